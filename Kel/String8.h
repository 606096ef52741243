// Shared, immutable-content byte strings. A String8 is one pointer to a
// counted buffer; copies share the buffer, equality is by content.
#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <iterator>
#include <string>

namespace Kel {

template <class C>
struct StringN {
  struct Data {
    std::atomic<uint32_t> count;
    uint32_t length;
    uint32_t hash;
    C bytes[1];  // length + 1, NUL-terminated

    bool operator==(const Data& o) const {
      return length == o.length && hash == o.hash &&
             std::memcmp(bytes, o.bytes, length) == 0;
    }
    bool operator<(const Data& o) const {
      uint32_t n = length < o.length ? length : o.length;
      int c = std::memcmp(bytes, o.bytes, n);
      return c < 0 || (c == 0 && length < o.length);
    }
  };
};

class String8 {
 public:
  using Data = StringN<unsigned char>::Data;

  // A forward iterator over the bytes, usable with the standard algorithms.
  class IteratorConst {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    IteratorConst() = default;
    explicit IteratorConst(const char* p) : p_(p) {}
    const char& operator*() const { return *p_; }
    IteratorConst& operator++() { ++p_; return *this; }
    IteratorConst operator++(int) { IteratorConst t = *this; ++p_; return t; }
    bool operator==(const IteratorConst& o) const { return p_ == o.p_; }
    bool operator!=(const IteratorConst& o) const { return p_ != o.p_; }
    long long operator-(const IteratorConst& o) const { return p_ - o.p_; }
    const char* ptr() const { return p_; }
   private:
    const char* p_ = nullptr;
  };

  String8() = default;
  String8(const char* s) { assign(s, s ? std::strlen(s) : 0); }
  String8(const char* s, size_t n) { assign(s, n); }
  String8(const std::string& s) { assign(s.data(), s.size()); }
  String8(const String8& o) : d_(o.d_) { ref(); }
  String8(String8&& o) noexcept : d_(o.d_) { o.d_ = nullptr; }
  ~String8() { unref(); }

  String8& operator=(const String8& o) {
    if (d_ != o.d_) { o.ref(); unref(); d_ = o.d_; }
    return *this;
  }
  String8& operator=(String8&& o) noexcept {
    if (this != &o) { unref(); d_ = o.d_; o.d_ = nullptr; }
    return *this;
  }
  String8& operator=(const char* s) { return *this = String8(s); }
  String8& operator=(const std::string& s) { return *this = String8(s); }

  String8 operator+(const char* s) const;
  String8 operator+(const String8& s) const;
  String8& operator+=(const char* s) { return *this = *this + s; }
  String8& operator+=(const String8& s) { return *this = *this + s; }

  const char* charPtr() const { return d_ ? reinterpret_cast<const char*>(d_->bytes) : kEmpty; }
  size_t length() const { return d_ ? d_->length : 0; }
  size_t size() const { return length(); }
  bool empty() const { return length() == 0; }
  uint32_t hash() const { return d_ ? d_->hash : emptyHash(); }
  std::string str() const { return std::string(charPtr(), length()); }

  IteratorConst begin() const { return IteratorConst(charPtr()); }
  IteratorConst end() const { return IteratorConst(charPtr() + length()); }

  bool operator==(const String8& o) const {
    if (d_ == o.d_) return true;
    if (!d_ || !o.d_) return length() == o.length();
    return *d_ == *o.d_;
  }
  bool operator!=(const String8& o) const { return !(*this == o); }
  bool operator==(const char* s) const {
    size_t n = s ? std::strlen(s) : 0;
    return n == length() && std::memcmp(charPtr(), s, n) == 0;
  }
  bool operator!=(const char* s) const { return !(*this == s); }
  bool operator<(const String8& o) const {
    if (!d_ || !o.d_) return length() < o.length();
    return *d_ < *o.d_;
  }

  static uint32_t hashBytes(const char* s, size_t n);

 private:
  // One address for every empty string: begin() and end() of one must meet,
  // which two "" literals need not do.
  static constexpr char kEmpty[1] = {};
  static uint32_t emptyHash() { return 2166136261u; }
  void assign(const char* s, size_t n);
  void ref() const { if (d_) d_->count.fetch_add(1, std::memory_order_relaxed); }
  void unref();
  Data* d_ = nullptr;
};

// A string that names an entity or keys a collection.
class Name : public String8 {
 public:
  using String8::String8;
  Name() = default;
  Name(const String8& s) : String8(s) {}
};

std::ostream& operator<<(std::ostream& os, const String8& s);

// printf-style formatting into a String8.
String8 format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// Wall-clock time in seconds.
double now();

}  // namespace Kel

namespace std {
template <> struct hash<Kel::String8> {
  size_t operator()(const Kel::String8& s) const { return s.hash(); }
};
template <> struct hash<Kel::Name> {
  size_t operator()(const Kel::Name& s) const { return s.hash(); }
};
}  // namespace std
