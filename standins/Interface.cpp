#include "standins/Interface.h"

namespace Interface {

bool IntfStatistics::operator==(const IntfStatistics& o) const {
  return outUcastPkts == o.outUcastPkts && outMulticastPkts == o.outMulticastPkts &&
         outBroadcastPkts == o.outBroadcastPkts && inUcastPkts == o.inUcastPkts &&
         inMulticastPkts == o.inMulticastPkts && inBroadcastPkts == o.inBroadcastPkts &&
         outOctets == o.outOctets && inOctets == o.inOctets && inDiscards == o.inDiscards &&
         inErrors == o.inErrors && outDiscards == o.outDiscards && outErrors == o.outErrors;
}

std::ostream& operator<<(std::ostream& os, const IntfStatistics& s) {
  return os << "{outUcast " << s.outUcastPkts << ", outMcast " << s.outMulticastPkts
            << ", outBcast " << s.outBroadcastPkts << ", inUcast " << s.inUcastPkts
            << ", inMcast " << s.inMulticastPkts << ", inBcast " << s.inBroadcastPkts
            << ", outOctets " << s.outOctets << ", inOctets " << s.inOctets << ", inDiscards "
            << s.inDiscards << ", inErrors " << s.inErrors << ", outDiscards " << s.outDiscards
            << ", outErrors " << s.outErrors << "}";
}

}  // namespace Interface
