// Value types of the host agent's interface and address libraries.
#include <gtest/gtest.h>

#include "standins/Interface.h"
#include "standins/IpAddr.h"
#include "standins/Status.h"

using Brindle::IpAddr;

namespace {
IpAddr parse(const char* text) {
  IpAddr a(0xdeadbeef);  // a parse overwrites whatever was there
  a.stringValueIs(text);
  return a;
}
}  // namespace

TEST(IpAddr, BadTextYieldsTheZeroAddress) {
  for (const char* bad : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1..2.3", "a.b.c.d", "1.2.3.4 ",
                          " 1.2.3.4", "0001.2.3.4", "1.2.3.-4", "fe80::1", "."}) {
    IpAddr a = parse(bad);
    EXPECT_EQ(a.value(), 0u) << bad;
    EXPECT_FALSE(a.valid()) << bad;
  }
}
