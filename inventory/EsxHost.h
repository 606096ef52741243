// ESX hosts, their physical NICs, and the switch interfaces that lead to them.
#pragma once
#include <cstdint>

#include "inventory/Vm.h"

namespace Harbec {

// linkSpeedMb is the link speed as vCenter reports it (0 without link),
// also for the rates that `speed` has no value for. uplinkLag is the link
// aggregation group whose port the NIC serves on a distributed switch
// (empty on a plain uplink): the switch's side of that cable needs the
// same bundle.
#define HARBEC_PNIC_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE)                     \
  CTOR(pnicId, PnicId, unsigned char)                                                    \
  SCALAR(macAddress, MacAddress, Kel::String8, Kel::String8())                           \
  SCALAR(uplinkPortKey, UplinkPortKey, Kel::String8, Kel::String8())                     \
  SCALAR(switchId, SwitchId, Kel::String8, Kel::String8())                               \
  SCALAR(dvsName, DvsName, Kel::String8, Kel::String8())                                 \
  SCALAR(label, Label, Kel::String8, Kel::String8())                                     \
  SCALAR(uplinkName, UplinkName, Kel::String8, Kel::String8())                           \
  SCALAR(deviceName, DeviceName, Kel::String8, Kel::String8())                           \
  SCALAR(duplex, Duplex, Interface::EthDuplex, Interface::ethDuplexUnknown)              \
  SCALAR(speed, Speed, Interface::EthSpeed, Interface::ethSpeedUnknown)                  \
  SCALAR(mtu, Mtu, unsigned, 0)                                                          \
  SCALAR(peerIntf, PeerIntf, Kel::String8, Kel::String8())                               \
  SCALAR(peerDevId, PeerDevId, Kel::String8, Kel::String8())                             \
  SCALAR(peerMgmtAddr, PeerMgmtAddr, Kel::String8, Kel::String8())                       \
  SCALAR(peerSysName, PeerSysName, Kel::String8, Kel::String8())                         \
  SCALAR(vendor, Vendor, Kel::String8, Kel::String8())                                   \
  SCALAR(model, Model, Kel::String8, Kel::String8())                                     \
  SCALAR(active, Active, bool, false)                                                    \
  SCALAR(configId, ConfigId, unsigned, 0)                                                \
  SCALAR(stats, Stats, Interface::IntfStatistics, Interface::IntfStatistics())           \
  SCALAR(counterRefreshTime, CounterRefreshTime, double, 0.0)                            \
  SCALAR(operStatus, OperStatus, Interface::IntfOperStatus, Interface::intfOperStatusUp) \
  SCALAR(linkStatus, LinkStatus, Interface::LinkStatus, Interface::linkStatusUnknown) \
  HARBEC_LINK_FACTS(SCALAR)                                                             \
  SCALAR(linkSpeedMb, LinkSpeedMb, unsigned, 0)                                          \
  SCALAR(uplinkLag, UplinkLag, Kel::String8, Kel::String8())

class Pnic : public Kel::Entity {
  KEL_RECORD(Harbec, Pnic, Kel::Entity, HARBEC_PNIC_ATTRIBUTES)
 public:
  // A name already in use must come with the same pnicId.
  void kelCheckReinstantiation(unsigned char pnicId) const {
    if (pnicId != pnicId_) kelReinstantiationRefused("_pnicId", pnicId, pnicId_);
  }

 protected:
  Pnic(const Kel::Name& n, unsigned char pnicId) : Kel::Entity(n) { pnicId_ = pnicId; }
};
KEL_FACTORY(Pnic, pnicFactory)

#define HARBEC_INTF_TO_ESX_MAP_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(lagName, LagName, Kel::String8, Kel::String8())                        \
  SCALAR(cleanupIntfStatus, CleanupIntfStatus, bool, false)                     \
  SCALAR(cleanupAfter, CleanupAfter, unsigned char, 0)                          \
  SCALAR(hostRef, HostRef, Kel::String8, Kel::String8())                        \
  SCALAR(vmnicKey, VmnicKey, Kel::String8, Kel::String8())                      \
  SCALAR(linkUp, LinkUp, bool, false)                                           \
  SCALAR(nwInfoRspCnt, NwInfoRspCnt, uint16_t, 0)                               \
  SCALAR(nwInfoReqCnt, NwInfoReqCnt, uint16_t, 0)

// One interface of the switch, with what is known of the host behind it.
class IntfToEsxMap : public Kel::Entity {
  KEL_RECORD(Harbec, IntfToEsxMap, Kel::Entity, HARBEC_INTF_TO_ESX_MAP_ATTRIBUTES)
 protected:
  explicit IntfToEsxMap(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(IntfToEsxMap, intfToEsxMapFactory)

// pnicId is the next free id for a NIC of this host; it only grows. The
// kernel machine in `vm` is also kept in VI::vm under the host's key.
// connectionState is vCenter's word for its link to the host ("connected",
// "notResponding", "disconnected"; "" before any): what vCenter reports of
// a host it cannot reach is as old as the loss. inMaintenance is true while
// the host is in maintenance mode.
#define HARBEC_ESX_HOST_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  CTOR(hostId, HostId, unsigned)                                         \
  SCALAR(hostName, HostName, Kel::String8, Kel::String8())               \
  SCALAR(networkId, NetworkId, Kel::String8, Kel::String8())             \
  SCALAR(dcRef, DcRef, Kel::String8, Kel::String8())                     \
  SCALAR(parentRef, ParentRef, Kel::String8, Kel::String8())             \
  SCALAR(cpuDescription, CpuDescription, Kel::String8, Kel::String8())   \
  SCALAR(numCpus, NumCpus, unsigned, 0)                                  \
  SCALAR(numCores, NumCores, unsigned, 0)                                \
  SCALAR(vendor, Vendor, Kel::String8, Kel::String8())                   \
  SCALAR(model, Model, Kel::String8, Kel::String8())                     \
  SCALAR(serviceTag, ServiceTag, Kel::String8, Kel::String8())           \
  ENTITIES(pnic, Pnic, Pnic)                                             \
  ENTITIES(portGroup, PortGroup, PortGroup)                              \
  ENTITIES(vnic, Vnic, Vnic)                                             \
  VALUES(vswitch, Vswitch, Kel::String8, Kel::String8, Kel::HashMap)     \
  SCALAR(vm, Vm, Vm::Ptr, nullptr)                                       \
  SCALAR(pnicId, PnicId, unsigned, 1)                                    \
  SCALAR(connectionState, ConnectionState, Kel::String8, Kel::String8()) \
  SCALAR(inMaintenance, InMaintenance, bool, false)

class EsxHost : public Kel::Entity {
  KEL_RECORD(Harbec, EsxHost, Kel::Entity, HARBEC_ESX_HOST_ATTRIBUTES)
 public:
  // A name already in use must come with the same hostId.
  void kelCheckReinstantiation(unsigned hostId) const {
    if (hostId != hostId_) kelReinstantiationRefused("_hostId", hostId, hostId_);
  }

 protected:
  EsxHost(const Kel::Name& n, unsigned hostId) : Kel::Entity(n) { hostId_ = hostId; }
};
KEL_FACTORY(EsxHost, esxHostFactory)

}  // namespace Harbec
