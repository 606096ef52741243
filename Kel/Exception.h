// Exceptions of the object layer.
#pragma once
#include <cstdint>
#include <exception>

#include "Kel/String8.h"

namespace Kel {

class Exception : public std::exception {
 public:
  enum Id : unsigned {
    noId = 0,
    rangeId = 1,
    nameInUseId = 2,
    internalId = 3,
    errnoId = 4,
    typeId = 5,
    unknownAttrId = 6,
    junkAtColumnId = 12,
  };

  // A set of ids; the empty set is the ordinary value.
  class IdBitArray {
   public:
    IdBitArray() = default;
    IdBitArray& add(unsigned id) { bits_ |= (uint64_t{1} << (id & 63)); return *this; }
    bool has(unsigned id) const { return (bits_ >> (id & 63)) & 1; }
    bool empty() const { return bits_ == 0; }
    bool operator==(const IdBitArray& o) const { return bits_ == o.bits_; }
   private:
    uint64_t bits_ = 0;
  };

  Exception(String8 message, IdBitArray ids, bool = false) : message_(message), ids_(ids) {}
  const char* what() const noexcept override { return message_.charPtr(); }
  const String8& message() const { return message_; }
  const IdBitArray& ids() const { return ids_; }

 private:
  String8 message_;
  IdBitArray ids_;
};

class InternalException : public Exception {
 public:
  InternalException(String8 message, IdBitArray ids = IdBitArray()) : Exception(message, ids) {}
};

class ErrnoException : public Exception {
 public:
  ErrnoException(int err, String8 message) : Exception(message, IdBitArray()), errnum_(err) {}
  int errnum() const { return errnum_; }
 private:
  int errnum_;
};

class RangeException : public Exception {
 public:
  explicit RangeException(String8 message, IdBitArray ids = IdBitArray()) : Exception(message, ids) {}
};

class NameInUseException : public Exception {
 public:
  explicit NameInUseException(String8 message) : Exception(message, IdBitArray()) {}
};

class TypeException : public Exception {
 public:
  explicit TypeException(String8 message) : Exception(message, IdBitArray()) {}
};

class UnknownAttrException : public Exception {
 public:
  explicit UnknownAttrException(String8 message) : Exception(message, IdBitArray()) {}
};

[[noreturn]] void throwRangeException(const char* message);
[[noreturn]] void throwRangeException(const String8& message);
[[noreturn]] void throwNameInUseException(const String8& message);

// Declares, for its lifetime on this thread, which failure is expected.
class Expect {
 public:
  explicit Expect(unsigned id);
  ~Expect();
  Expect(const Expect&) = delete;
  Expect& operator=(const Expect&) = delete;
  static unsigned current();
 private:
  unsigned saved_;
};

}  // namespace Kel
