// Virtual machines (and each host's kernel pseudo-machine), their virtual
// NICs, port groups and distributed switches.
#pragma once
#include "Kel/Record.h"
#include "messaging/Enums.h"
#include "standins/Interface.h"
#include "standins/IpAddr.h"

namespace Harbec {

// What the port of a NIC last reported, as vCenter gave it, beside the link
// and status that the port counters derive: the link of the port's runtime
// state, and the port's blocked policy ("" when the port had none, else its
// value) with whether it was inherited from the port group.
#define HARBEC_LINK_FACTS(SCALAR)                                                        \
  SCALAR(reportedLink, ReportedLink, Interface::LinkStatus, Interface::linkStatusUnknown) \
  SCALAR(blockedPolicy, BlockedPolicy, Kel::String8, Kel::String8())                     \
  SCALAR(blockedInherited, BlockedInherited, bool, false)

#define HARBEC_VNIC_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE)                     \
  SCALAR(macAddress, MacAddress, Kel::String8, Kel::String8())                           \
  SCALAR(ipAddrWithMask, IpAddrWithMask, Brindle::IpAddrWithMask, Brindle::IpAddrWithMask()) \
  SCALAR(portKey, PortKey, Kel::String8, Kel::String8())                                 \
  SCALAR(dvsName, DvsName, Kel::String8, Kel::String8())                                 \
  SCALAR(switchId, SwitchId, Kel::String8, Kel::String8())                               \
  SCALAR(label, Label, Kel::String8, Kel::String8())                                     \
  SCALAR(portGroup, PortGroup, Kel::String8, Kel::String8())                             \
  SCALAR(vmotionPg, VmotionPg, Kel::String8, Kel::String8())                             \
  SCALAR(active, Active, bool, false)                                                    \
  SCALAR(configId, ConfigId, unsigned, 0)                                                \
  SCALAR(stats, Stats, Interface::IntfStatistics, Interface::IntfStatistics())           \
  SCALAR(counterRefreshTime, CounterRefreshTime, double, 0.0)                            \
  SCALAR(operStatus, OperStatus, Interface::IntfOperStatus, Interface::intfOperStatusUp) \
  SCALAR(linkStatus, LinkStatus, Interface::LinkStatus, Interface::linkStatusUnknown)    \
  SCALAR(mtu, Mtu, unsigned, 0)                                                          \
  SCALAR(vnicType, VnicType, PeerType, virtualMachineNic)                               \
  HARBEC_LINK_FACTS(SCALAR)                                                             \
  SCALAR(opaqueNetworkId, OpaqueNetworkId, Kel::String8, Kel::String8())                \
  SCALAR(opaqueNetworkType, OpaqueNetworkType, Kel::String8, Kel::String8())            \
  SCALAR(legacyNetwork, LegacyNetwork, Kel::String8, Kel::String8())

// A virtual NIC of a machine, keyed by the card's key, or a VMkernel NIC of
// a host, keyed by its device name. A card on an opaque network (NSX) names
// that network by id and type instead of a port group, and a card with a
// legacy network backing by the name in legacyNetwork.
class Vnic : public Kel::Entity {
  KEL_RECORD(Harbec, Vnic, Kel::Entity, HARBEC_VNIC_ATTRIBUTES)
 protected:
  explicit Vnic(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(Vnic, vnicFactory)

// isTemplate: the machine is a template, which never runs.
#define HARBEC_VM_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(vmName, VmName, Kel::String8, Kel::String8())             \
  SCALAR(hostRef, HostRef, Kel::String8, Kel::String8())           \
  SCALAR(hostName, HostName, Kel::String8, Kel::String8())         \
  SCALAR(ftStatus, FtStatus, FTStatus, ftDisabled)                 \
  SCALAR(vmotionDst, VmotionDst, Kel::String8, Kel::String8())     \
  SCALAR(inVmotion, InVmotion, bool, false)                        \
  SCALAR(vmotionFailed, VmotionFailed, bool, false)                \
  SCALAR(powerState, PowerState, bool, false)                      \
  SCALAR(isTemplate, IsTemplate, bool, false)                      \
  ENTITIES(vnic, Vnic, Vnic)

class Vm : public Kel::Entity {
  KEL_RECORD(Harbec, Vm, Kel::Entity, HARBEC_VM_ATTRIBUTES)
 protected:
  explicit Vm(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(Vm, vmFactory)

// sVlanId and eVlanId are written from outside only; 4094 is their default
// end of range, unlike the 0 of the start. vlanPolicy is the kind of policy
// vCenter gave last ("none", "vlan", "trunk", "pvlan" or "other"; "" before
// any); a PVLAN policy names its secondary VLAN, pvlanId, and the switch's
// PVLAN map its primary, pvlanPrimaryId (0 while the map lacks it).
#define HARBEC_PORT_GROUP_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(pgName, PgName, Kel::String8, Kel::String8())                     \
  SCALAR(vlanId, VlanId, unsigned, 0)                                      \
  SCALAR(accessVlanId, AccessVlanId, Kel::String8, Kel::String8())         \
  SCALAR(switchRef, SwitchRef, Kel::String8, Kel::String8())               \
  SCALAR(trunk, Trunk, bool, false)                                        \
  SCALAR(trunkAllowedVlans, TrunkAllowedVlans, Kel::String8, Kel::String8()) \
  SCALAR(sVlanId, SVlanId, unsigned, 0)                                    \
  SCALAR(eVlanId, EVlanId, unsigned, 4094)                                 \
  SCALAR(active, Active, bool, false)                                      \
  SCALAR(vlanPolicy, VlanPolicy, Kel::String8, Kel::String8())             \
  SCALAR(pvlanId, PvlanId, unsigned, 0)                                    \
  SCALAR(pvlanPrimaryId, PvlanPrimaryId, unsigned, 0)

class PortGroup : public Kel::Entity {
  KEL_RECORD(Harbec, PortGroup, Kel::Entity, HARBEC_PORT_GROUP_ATTRIBUTES)
 protected:
  explicit PortGroup(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(PortGroup, portGroupFactory)

// pvlanPrimary is the switch's PVLAN map: the primary VLAN of each secondary.
#define HARBEC_DVS_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(uuId, UuId, Kel::String8, Kel::String8())                  \
  SCALAR(dvsName, DvsName, Kel::String8, Kel::String8())            \
  VALUES(pvlanPrimary, PvlanPrimary, unsigned, unsigned, Kel::HashMap)

class DVS : public Kel::Entity {
  KEL_RECORD(Harbec, DVS, Kel::Entity, HARBEC_DVS_ATTRIBUTES)
 protected:
  explicit DVS(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(DVS, dVSFactory)

}  // namespace Harbec
