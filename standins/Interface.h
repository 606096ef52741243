// Value types of the host agent's interface library, as this library uses
// them: stored and compared whole.
#pragma once
#include <cstdint>
#include <ostream>

namespace Interface {

enum EthSpeed : uint32_t {
  ethSpeedUnknown = 0,
  ethSpeed10Mbps = 1,
  ethSpeed100Mbps = 2,
  ethSpeed1Gbps = 3,
  ethSpeed10Gbps = 4,
  ethSpeed40Gbps = 5,
  ethSpeed100Gbps = 6,
};

enum EthDuplex : uint32_t { ethDuplexUnknown = 0, ethDuplexHalf = 1, ethDuplexFull = 2 };

enum LinkStatus : uint32_t { linkStatusUnknown = 0, linkStatusDown = 1, linkStatusUp = 2 };

enum IntfOperStatus : uint32_t { intfOperStatusUnknown = 0, intfOperStatusUp = 1, intfOperStatusDown = 2 };

// Twelve 64-bit counters of one interface, in this order.
struct IntfStatistics {
  uint64_t outUcastPkts = 0;
  uint64_t outMulticastPkts = 0;
  uint64_t outBroadcastPkts = 0;
  uint64_t inUcastPkts = 0;
  uint64_t inMulticastPkts = 0;
  uint64_t inBroadcastPkts = 0;
  uint64_t outOctets = 0;
  uint64_t inOctets = 0;
  uint64_t inDiscards = 0;
  uint64_t inErrors = 0;
  uint64_t outDiscards = 0;
  uint64_t outErrors = 0;

  bool operator==(const IntfStatistics& o) const;
  bool operator!=(const IntfStatistics& o) const { return !(*this == o); }
};

std::ostream& operator<<(std::ostream& os, const IntfStatistics& s);

}  // namespace Interface
