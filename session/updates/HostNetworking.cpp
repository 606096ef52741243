// To which switch a host's physical NIC belongs, and the host's own
// VMkernel NICs.
#include <cstdint>

#include "Kel/Assert.h"
#include "messaging/HarbecTrace.h"
#include "session/updates/HostNetworking.h"
#include "session/updates/UpdateHandlers.h"

namespace Harbec {

namespace {

// Prefix length of a netmask: 0 for no bits, the count of leading ones for
// a contiguous mask, all ones for anything else.
uint32_t prefixLength(uint32_t mask) {
  if (mask == 0) return 0;
  uint32_t hostBits = ~mask;
  if (hostBits & (hostBits + 1)) return UINT32_MAX;
  return 32 - __builtin_ctz(mask);
}

ns2__DistributedVirtualSwitchHostMemberPnicBacking* pnicBacking(const ns2__HostProxySwitch* proxy) {
  if (!proxy->spec) return nullptr;
  return dynamic_cast<ns2__DistributedVirtualSwitchHostMemberPnicBacking*>(proxy->spec->backing);
}

ns2__HostVirtualSwitchBondBridge* bondBridge(const ns2__HostVirtualSwitch* vswitch) {
  if (!vswitch->spec) return nullptr;
  return dynamic_cast<ns2__HostVirtualSwitchBondBridge*>(vswitch->spec->bridge);
}

// The link aggregation group that owns an uplink port: its name, or its
// key where vCenter gives none; empty for a plain uplink.
std::string lagOf(const ns2__HostProxySwitch* proxy, const std::string& portKey) {
  for (const ns2__HostProxySwitchHostLagConfig* lag : proxy->hostLag)
    for (const ns2__KeyValue* port : lag->uplinkPort)
      if (port->key == portKey) return lag->lagName && !lag->lagName->empty() ? *lag->lagName : lag->lagKey;
  return std::string();
}

// A NIC on a distributed switch: the proxy switch names it in its backing.
bool mapToProxySwitch(ns2__HostNetworkInfo* networkInfo, Pnic::Ptr pnic, const Kel::String8& deviceName) {
  for (ns2__HostProxySwitch* proxy : networkInfo->proxySwitch) {
    ns2__DistributedVirtualSwitchHostMemberPnicBacking* backing = pnicBacking(proxy);
    if (!backing) continue;
    for (ns2__DistributedVirtualSwitchHostMemberPnicSpec* pnicSpec : backing->pnicSpec) {
      if (pnicSpec->pnicDevice != deviceName.str()) continue;
      // A proxy switch that names a NIC gives its uplink port and its MTU;
      // where vCenter leaves either out, the NIC keeps what it had.
      pnic->deviceNameIs(deviceName);
      if (pnicSpec->uplinkPortKey)
        pnic->uplinkPortKeyIs(*pnicSpec->uplinkPortKey);
      else
        HARBEC_TRACE(3, "pnic " << deviceName << ": no uplink port key");
      pnic->dvsNameIs(proxy->dvsName);
      pnic->switchIdIs(proxy->dvsUuid);
      if (proxy->mtu)
        pnic->mtuIs(static_cast<unsigned>(*proxy->mtu));
      else
        HARBEC_TRACE(3, "proxy switch " << proxy->dvsName << ": no MTU");
      HARBEC_TRACE(7, "uplinkPortKey " << pnic->uplinkPortKey());
      // Of several entries with the key, the last one counts.
      for (ns2__KeyValue* uplink : proxy->uplinkPort) {
        if (uplink->key != pnic->uplinkPortKey().str()) continue;
        pnic->uplinkNameIs(uplink->value);
        HARBEC_TRACE(8, "uplinkName " << uplink->value);
      }
      pnic->uplinkLagIs(lagOf(proxy, pnic->uplinkPortKey().str()));
      HARBEC_TRACE(7, "pnic " << deviceName << " mapped to " << pnic->switchId());
      return true;
    }
  }
  return false;
}

// A NIC on a standard switch: the switch bonds it. The switch id is the
// key of the switch in the host's vswitch collection.
bool mapToVswitch(EsxHost::Ptr host, ns2__HostNetworkInfo* networkInfo, Pnic::Ptr pnic,
                  const Kel::String8& deviceName) {
  for (ns2__HostVirtualSwitch* vswitch : networkInfo->vswitch) {
    ns2__HostVirtualSwitchBondBridge* bridge = bondBridge(vswitch);
    if (!bridge) continue;
    for (const std::string& nicDevice : bridge->nicDevice) {
      if (nicDevice != deviceName.str()) continue;
      pnic->deviceNameIs(deviceName);
      pnic->uplinkPortKeyIs(Kel::String8());
      pnic->dvsNameIs(Kel::String8());
      pnic->switchIdIs(Kel::String8(vswitch->key) + host->name());
      if (vswitch->mtu) pnic->mtuIs(static_cast<unsigned>(*vswitch->mtu));
      pnic->uplinkNameIs(Kel::String8());
      pnic->uplinkLagIs(Kel::String8());
      HARBEC_TRACE(8, "pnic " << deviceName << " mapped to " << pnic->switchId());
      return true;
    }
  }
  return false;
}

}  // namespace

const ns2__HostVirtualNicSpec* specOf(const ns2__HostVirtualNic* hostVnic) {
  if (hostVnic->spec) return hostVnic->spec;
  // Taken as a spec of which every part is left out: what the NIC had stays.
  HARBEC_TRACE(3, "Vnic " << hostVnic->device << ": no spec");
  static const ns2__HostVirtualNicSpec empty;
  return &empty;
}

void hostVnicAddressIs(Vnic::Ptr vnic, const ns2__HostIpConfig* ip) {
  if (!ip || !ip->ipAddress || !ip->subnetMask) return;
  Brindle::IpAddr address;
  address.stringValueIs(*ip->ipAddress);
  Brindle::IpAddr mask;
  mask.stringValueIs(*ip->subnetMask);
  HARBEC_TRACE(6, "IpAddress " << address);
  HARBEC_TRACE(6, "NetMask" << " " << mask);
  Brindle::IpAddrWithMask withMask(address, prefixLength(mask.value()));
  HARBEC_TRACE(6, "IpAddressWithMask " << withMask);
  vnic->ipAddrWithMaskIs(withMask);
}

// Distributed switches first: a NIC named both by a proxy switch and by a
// standard switch belongs to the distributed one.
void processHostProxySwitch(VI::Ptr, EsxHost::Ptr host, ns2__HostNetworkInfo* networkInfo, Pnic::Ptr pnic,
                            Kel::String8 deviceName) {
  HARBEC_TRACE(5, "void Harbec::processHostProxySwitch(Harbec::VI::Ptr, Harbec::EsxHost::Ptr, "
                  "ns2__HostNetworkInfo*, Harbec::Pnic::Ptr, Kel::String)"
                      << " deviceName: " << deviceName);
  if (mapToProxySwitch(networkInfo, pnic, deviceName)) return;
  if (mapToVswitch(host, networkInfo, pnic, deviceName)) return;
  // On no switch. deviceName is written only on a match, so it stays.
  pnic->uplinkPortKeyIs(Kel::String8());
  pnic->dvsNameIs(Kel::String8());
  pnic->switchIdIs(Kel::String8());
  pnic->mtuIs(0);
  pnic->uplinkNameIs(Kel::String8());
  pnic->uplinkLagIs(Kel::String8());
  HARBEC_TRACE(5, "pnic " << deviceName << " not mapped to a switch");
}

// Unlike the kernel machine's copy of the NIC, this one takes no MAC address.
void inflateHostVnic(Vnic::Ptr vnic, ns2__HostVirtualNic* hostVnic) {
  HARBEC_TRACE(5, "void Harbec::inflateHostVnic(Harbec::Vnic::Ptr, ns2__HostVirtualNic*)");
  HARBEC_TRACE(6, "Vnic Key: " << hostVnic->key << " Device: " << hostVnic->device << " PortGroup: "
                               << hostVnic->portgroup);
  const ns2__HostVirtualNicSpec* spec = specOf(hostVnic);
  vnic->labelIs(hostVnic->device);
  HARBEC_TRACE(6, "Label " << hostVnic->device);
  hostVnicAddressIs(vnic, spec->ip);
  if (spec->mtu) {
    vnic->mtuIs(static_cast<unsigned>(*spec->mtu));
    HARBEC_TRACE(6, "MTU " << *spec->mtu);
  }
  if (ns2__DistributedVirtualSwitchPortConnection* port = spec->distributedVirtualPort) {
    vnic->switchIdIs(port->switchUuid);
    HARBEC_TRACE(6, "SwitchId " << port->switchUuid);
    if (port->portKey) {
      vnic->portKeyIs(*port->portKey);
      HARBEC_TRACE(6, "PortKey " << *port->portKey);
    }
    if (port->portgroupKey) {
      vnic->portGroupIs(*port->portgroupKey);
      HARBEC_TRACE(6, "PortGroup " << *port->portgroupKey);
    }
  } else {
    vnic->portGroupIs(hostVnic->portgroup);
    HARBEC_TRACE(6, "PortGroup " << hostVnic->portgroup);
  }
  vnic->configIdIs(vnic->configId() + 1);
  vnic->vnicTypeIs(vmKernelNic);
  vnic->activeIs(true);
}

}  // namespace Harbec
