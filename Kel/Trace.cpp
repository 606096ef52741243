#include "Kel/Trace.h"

#include <iostream>
#include <mutex>
#include <pthread.h>

namespace Kel {

std::atomic<std::ostream*> coverageStream_{nullptr};

TraceHandle::TraceHandle(String8 name, bool enabled) : name_(name), enabled_(enabled) {}

void TraceHandle::levelIs(int l, bool b) {
  if (l < 0 || l >= 10) return;
  if (b) levels_.fetch_or(1u << l);
  else levels_.fetch_and(~(1u << l));
}

void TraceHandle::levelsUpTo(int maxLevel) {
  unsigned bits = 0;
  for (int l = 0; l <= maxLevel && l < 10; ++l) bits |= 1u << l;
  levels_.store(bits);
  enabledIs(maxLevel >= 0);
}

bool TraceHandle::wanted(int l) const {
  return (enabled() && level(l)) || coverageStream_.load(std::memory_order_relaxed) != nullptr;
}

void traceHelper(char const* handleName, String8 context, std::stringstream& text, int level,
                 bool, char const* file, int line, char const* function) {
  static std::mutex out;
  std::lock_guard<std::mutex> g(out);
  std::ostream* os = coverageStream_.load();
  if (!os) os = &std::cerr;
  *os << handleName << " " << level << " " << context << " " << file << ":" << line << " "
      << function << ": " << text.str() << "\n";
}

}  // namespace Kel
