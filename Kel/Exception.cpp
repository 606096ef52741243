#include "Kel/Exception.h"

namespace Kel {

namespace {
thread_local unsigned expected_ = 0;
}

void throwRangeException(const char* message) { throw RangeException(String8(message)); }
void throwRangeException(const String8& message) { throw RangeException(message); }
void throwNameInUseException(const String8& message) { throw NameInUseException(message); }

Expect::Expect(unsigned id) : saved_(expected_) { expected_ = id; }
Expect::~Expect() { expected_ = saved_; }
unsigned Expect::current() { return expected_; }

}  // namespace Kel
