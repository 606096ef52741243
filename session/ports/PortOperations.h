// The port operations of the vCenter session beyond the handlers: what is
// done with the replies of FetchDVPorts and QueryNetworkHint. All of it runs
// on the session's SoapThread.
#pragma once
#include <string>

#include "session/HarbecSmInternal.h"

namespace Harbec {

// A DV port number as the key vCenter knows: "%u", no prefix, no zeros.
std::string dvPortKey(unsigned port);

// The twelve counters of one DV port, bytes summed over unicast, multicast
// and broadcast.
Interface::IntfStatistics intfStatistics(const ns2__DistributedVirtualSwitchPortStatistics& stats);

// A port's own facts, as the inventory and the answers of the named road
// keep them beside what the specified attributes say: its blocked policy
// ("" without one, else "true" or "false") and whether that was inherited,
// and its link (unknown without runtime state).
struct PortFacts {
  std::string blocked;
  bool blockedInherited = false;
  Interface::LinkStatus link = Interface::linkStatusUnknown;
};
PortFacts portFacts(const ns2__DistributedVirtualPort& port);

// Writes link, MTU and counters of each port of the reply onto the NIC it
// connects to, under the activity lock. A NIC that the inventory lacks is a
// broken invariant.
void updateCounters(HarbecSm::Ptr sm, _ns2__FetchDVPortsResponse& response);

// Ties switch interfaces to the host `host` (its entity name) and its NICs
// by the neighbours that the NICs saw, under the activity lock.
void updateNetworkInfo(VI::Ptr vi, std::string host, _ns2__QueryNetworkHintResponse& response,
                       std::string bridgeMacAddr);

}  // namespace Harbec
