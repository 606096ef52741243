// IPv4 address values of the host agent's address library.
#pragma once
#include <cstdint>
#include <ostream>

#include "Kel/String8.h"

namespace Brindle {

class IpAddr {
 public:
  IpAddr() = default;
  explicit IpAddr(uint32_t hostOrder) : value_(hostOrder) {}

  uint32_t value() const { return value_; }
  // Parses dotted-quad text ("10.0.0.1"). Anything else, an empty text too,
  // yields the address 0.0.0.0 and valid() false.
  void stringValueIs(const Kel::String8& text);
  Kel::String8 stringValue() const;
  bool valid() const { return valid_; }

  bool operator==(const IpAddr& o) const { return value_ == o.value_; }
  bool operator!=(const IpAddr& o) const { return value_ != o.value_; }

 private:
  uint32_t value_ = 0;
  bool valid_ = false;
};

class IpAddrWithMask {
 public:
  IpAddrWithMask() = default;
  IpAddrWithMask(IpAddr addr, uint32_t length) : addr_(addr), length_(length) {}
  const IpAddr& addr() const { return addr_; }
  uint32_t length() const { return length_; }
  bool operator==(const IpAddrWithMask& o) const { return addr_ == o.addr_ && length_ == o.length_; }
  bool operator!=(const IpAddrWithMask& o) const { return !(*this == o); }

 private:
  IpAddr addr_;
  uint32_t length_ = 0;
};

std::ostream& operator<<(std::ostream& os, const IpAddr& a);
std::ostream& operator<<(std::ostream& os, const IpAddrWithMask& a);

}  // namespace Brindle
