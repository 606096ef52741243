#include "Kel/String8.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <ostream>
#include <sys/time.h>
#include <vector>

namespace Kel {

uint32_t String8::hashBytes(const char* s, size_t n) {
  // FNV-1a: cheap, and good enough for keys that are mostly vCenter ids.
  uint32_t h = emptyHash();
  for (size_t i = 0; i < n; ++i) {
    h ^= static_cast<unsigned char>(s[i]);
    h *= 16777619u;
  }
  return h;
}

void String8::assign(const char* s, size_t n) {
  if (n == 0) { d_ = nullptr; return; }
  void* mem = std::malloc(sizeof(Data) + n);
  if (!mem) throw std::bad_alloc();
  d_ = static_cast<Data*>(mem);
  new (&d_->count) std::atomic<uint32_t>(1);
  d_->length = static_cast<uint32_t>(n);
  std::memcpy(d_->bytes, s, n);
  d_->bytes[n] = 0;
  d_->hash = hashBytes(s, n);
}

void String8::unref() {
  if (d_ && d_->count.fetch_sub(1, std::memory_order_acq_rel) == 1) std::free(d_);
  d_ = nullptr;
}

String8 String8::operator+(const char* s) const {
  size_t n = s ? std::strlen(s) : 0;
  if (n == 0) return *this;
  std::string t;
  t.reserve(length() + n);
  t.append(charPtr(), length()).append(s, n);
  return String8(t);
}

String8 String8::operator+(const String8& s) const {
  if (s.empty()) return *this;
  if (empty()) return s;
  std::string t;
  t.reserve(length() + s.length());
  t.append(charPtr(), length()).append(s.charPtr(), s.length());
  return String8(t);
}

std::ostream& operator<<(std::ostream& os, const String8& s) {
  return os.write(s.charPtr(), static_cast<std::streamsize>(s.length()));
}

String8 format(const char* fmt, ...) {
  char small[256];
  va_list ap;
  va_start(ap, fmt);
  int n = std::vsnprintf(small, sizeof small, fmt, ap);
  va_end(ap);
  if (n < 0) return String8();
  if (static_cast<size_t>(n) < sizeof small) return String8(small, static_cast<size_t>(n));
  std::vector<char> big(static_cast<size_t>(n) + 1);
  va_start(ap, fmt);
  std::vsnprintf(big.data(), big.size(), fmt, ap);
  va_end(ap);
  return String8(big.data(), static_cast<size_t>(n));
}

double now() {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  return static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1e6;
}

}  // namespace Kel
