// The DV ports that the vCenter simulator has in use, as its control port
// lists them, and an inventory seeded with the hosts, machines and NICs
// they connect to, keyed as the session's update handlers key them.
#pragma once
#include <string>
#include <vector>

#include "peers/VcSim.h"
#include "Kel/Lock.h"
#include "inventory/VI.h"

namespace simports {

using Port = vcsim::Simulator::DvPort;

inline std::vector<Port> ports(vcsim::Simulator& sim, const std::string& dvs) { return sim.dvPorts(dvs); }

// Hosts with their physical NICs and kernel machine, machines with their
// cards: whatever the ports connect to. Ports of any other connectee type
// name a VMkernel NIC of their proxy host.
inline void seed(const Harbec::VI::Ptr& vi, const std::vector<Port>& ports) {
  using namespace Harbec;
  Kel::ActivityLockAnchor anchor;
  auto host = [&](const std::string& ref) {
    EsxHost::Ptr h = vi->esxHost(ref);
    if (h) return h;
    h = vi->esxHostIs(ref, static_cast<unsigned>(vi->esxHosts() + 1));
    h->hostNameIs("esx-" + ref);
    Vm::Ptr kernel = vi->vmIs(ref);
    kernel->vmNameIs("VMKernel");
    h->vmIs(kernel);
    return h;
  };
  for (const Port& p : ports) {
    if (p.connecteeType == "pnic") {
      EsxHost::Ptr h = host(p.entity);
      h->pnicIs(p.nicKey, static_cast<unsigned char>(h->pnics() + 1));
    } else if (p.connecteeType == "vmVnic") {
      vi->vmIs(p.entity)->vnicIs(p.nicKey);
    } else {
      host(p.proxyHost)->vm()->vnicIs(p.nicKey)->vnicTypeIs(vmKernelNic);
    }
  }
}

// Counters with a distinct value each, as the simulator takes them, and
// the statistics they make: packets one by one, bytes summed.
const char kStatsJson[] =
    "{\"packetsInMulticast\":1,\"packetsOutMulticast\":2,\"bytesInMulticast\":3,\"bytesOutMulticast\":4,"
    "\"packetsInUnicast\":5,\"packetsOutUnicast\":6,\"bytesInUnicast\":7,\"bytesOutUnicast\":8,"
    "\"packetsInBroadcast\":9,\"packetsOutBroadcast\":10,\"bytesInBroadcast\":11,\"bytesOutBroadcast\":12,"
    "\"packetsInDropped\":13,\"packetsOutDropped\":14,\"packetsInException\":15,\"packetsOutException\":16}";
inline Interface::IntfStatistics statsOfJson() {
  Interface::IntfStatistics s;
  s.outUcastPkts = 6;
  s.outMulticastPkts = 2;
  s.outBroadcastPkts = 10;
  s.inUcastPkts = 5;
  s.inMulticastPkts = 1;
  s.inBroadcastPkts = 9;
  s.outOctets = 4 + 12 + 8;
  s.inOctets = 3 + 11 + 7;
  s.inDiscards = 13;
  s.inErrors = 15;
  s.outDiscards = 14;
  s.outErrors = 16;
  return s;
}

// Changes what the simulator reports for one port of the switch "dvs-9".
inline void setPort(vcsim::Simulator& sim, const std::string& key, const std::string& fields) {
  sim.call("POST", "/ports", "{\"dvs\":\"dvs-9\",\"key\":\"" + key + "\"," + fields + "}");
}

}  // namespace simports
