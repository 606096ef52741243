#include "standins/IpAddr.h"

namespace Brindle {

void IpAddr::stringValueIs(const Kel::String8& text) {
  const char* p = text.charPtr();
  const char* end = p + text.length();
  uint32_t v = 0;
  for (int part = 0; part < 4; ++part) {
    if (part > 0) {
      if (p == end || *p != '.') { value_ = 0; valid_ = false; return; }
      ++p;
    }
    if (p == end || *p < '0' || *p > '9') { value_ = 0; valid_ = false; return; }
    unsigned octet = 0;
    int digits = 0;
    while (p != end && *p >= '0' && *p <= '9') {
      octet = octet * 10 + static_cast<unsigned>(*p - '0');
      if (++digits > 3 || octet > 255) { value_ = 0; valid_ = false; return; }
      ++p;
    }
    v = (v << 8) | octet;
  }
  if (p != end) { value_ = 0; valid_ = false; return; }
  value_ = v;
  valid_ = true;
}

Kel::String8 IpAddr::stringValue() const {
  return Kel::format("%u.%u.%u.%u", value_ >> 24, (value_ >> 16) & 0xff, (value_ >> 8) & 0xff,
                     value_ & 0xff);
}

std::ostream& operator<<(std::ostream& os, const IpAddr& a) { return os << a.stringValue(); }
std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& a) {
  return os << a.addr() << "/" << a.length();
}

}  // namespace Brindle
