// A host's "config.network": its complete network configuration, applied as
// the mark half of a mark-and-sweep over the host's NICs, kernel NICs and
// port groups.
#include "Kel/Assert.h"
#include "messaging/HarbecTrace.h"
#include "session/updates/HostNetworking.h"
#include "session/updates/UpdateHandlers.h"

namespace Harbec {

namespace {

Interface::EthSpeed ethSpeed(int speedMb) {
  switch (speedMb) {
    case 10: return Interface::ethSpeed10Mbps;
    case 100: return Interface::ethSpeed100Mbps;
    case 1000: return Interface::ethSpeed1Gbps;
    case 10000: return Interface::ethSpeed10Gbps;
    case 40000: return Interface::ethSpeed40Gbps;
    case 100000: return Interface::ethSpeed100Gbps;
    default: return Interface::ethSpeedUnknown;
  }
}

std::string lookUp(const std::map<std::string, std::string>& table, const std::string& pciId) {
  auto i = table.find(pciId);
  return i == table.end() ? std::string() : i->second;
}

// Everything the configuration names is marked active again as it is
// visited; the host's own kernel NICs are not swept and not marked.
void markInactive(EsxHost::Ptr host, Vm::Ptr kernel) {
  for (auto i = host->pnicIterator(); i; ++i) i.value()->activeIs(false);
  for (auto i = kernel->vnicIterator(); i; ++i) i.value()->activeIs(false);
  for (auto i = host->portGroupIterator(); i; ++i) i.value()->activeIs(false);
}

// Switch entries are only added; those of vanished switches stay until the
// host goes.
void processVswitches(EsxHost::Ptr host, ns2__HostNetworkInfo* networkInfo) {
  for (ns2__HostVirtualSwitch* vswitch : networkInfo->vswitch) {
    host->vswitchIs(Kel::String8(vswitch->key) + host->name(), vswitch->name);
    HARBEC_TRACE(7, "vswitch " << vswitch->key << " " << vswitch->name);
  }
}

// Ids of NICs are never reused within a host; past 255 they repeat, the
// NIC's id being 8 bits wide.
Pnic::Ptr pnicFor(EsxHost::Ptr host, const Kel::Name& device) {
  if (Pnic::Ptr pnic = host->pnic(device)) return pnic;
  unsigned id = host->pnicId();
  Pnic::Ptr pnic = host->pnicIs(device, static_cast<unsigned char>(id));
  host->pnicIdIs(id + 1);
  HARBEC_TRACE(7, "pnic " << device << " pnicid " << id);
  return pnic;
}

void processPnics(VI::Ptr vi, EsxHost::Ptr host, ns2__HostNetworkInfo* networkInfo, const PciTables& pci) {
  for (ns2__PhysicalNic* nic : networkInfo->pnic) {
    Pnic::Ptr pnic = pnicFor(host, Kel::Name(nic->device));
    pnic->macAddressIs(nic->mac);
    pnic->labelIs(nic->device);
    if (ns2__PhysicalNicLinkInfo* link = nic->linkSpeed) {
      pnic->speedIs(ethSpeed(link->speedMb));
      pnic->duplexIs(link->duplex ? Interface::ethDuplexFull : Interface::ethDuplexHalf);
      pnic->linkSpeedMbIs(link->speedMb > 0 ? static_cast<unsigned>(link->speedMb) : 0);
    } else {
      pnic->speedIs(Interface::ethSpeedUnknown);
      pnic->duplexIs(Interface::ethDuplexUnknown);
      pnic->linkSpeedMbIs(0);
    }
    // Vendor and model are looked up until a record's hardware names them;
    // once known they stay.
    if (pnic->vendor().length() == 0) {
      std::string vendor = lookUp(pci.pciIdToVendor, nic->pci);
      std::string model = lookUp(pci.pciIdToDeviceName, nic->pci);
      pnic->vendorIs(vendor);
      pnic->modelIs(model);
      HARBEC_TRACE(7, "pnic vendor " << vendor << " device name " << model);
    }
    processHostProxySwitch(vi, host, networkInfo, pnic, pnic->name());
    pnic->configIdIs(pnic->configId() + 1);
    pnic->activeIs(true);
  }
}

void processHostVnics(EsxHost::Ptr host, ns2__HostNetworkInfo* networkInfo) {
  for (ns2__HostVirtualNic* hostVnic : networkInfo->vnic) {
    HARBEC_TRACE(9, "Processing vnic: " << hostVnic->device << " " << hostVnic->key);
    inflateHostVnic(host->vnicIs(Kel::Name(hostVnic->device)), hostVnic);
  }
}

// vim25 VLAN ids: 0 none, 4095 all. A port group keeps its trunk string when
// it stops being a trunk, and its access VLAN when it becomes one.
void processVlan(PortGroup::Ptr pg, int vlanId) {
  pg->trunkIs(false);
  if (vlanId == 4095) {
    pg->trunkIs(true);
    pg->trunkAllowedVlansIs("1-4094");
  } else if (vlanId >= 1 && vlanId <= 4094) {
    pg->accessVlanIdIs(Kel::format("%u", static_cast<unsigned>(vlanId)));
  } else if (vlanId == 0 || vlanId > 4095) {
    pg->accessVlanIdIs(Kel::String8());
  }
  pg->vlanPolicyIs(vlanId == 4095 ? "trunk" : vlanId >= 1 && vlanId <= 4094 ? "vlan" : "none");
  pg->vlanIdIs(static_cast<unsigned>(vlanId));
}

// A port group's key carries the host's key; its switchRef is vCenter's
// switch string as given, without it.
void processPortGroups(EsxHost::Ptr host, ns2__HostNetworkInfo* networkInfo) {
  for (ns2__HostPortGroup* group : networkInfo->portgroup) {
    ns2__HostPortGroupSpec* spec = group->spec;
    if (!spec) continue;
    Kel::String8 key = group->key ? Kel::String8(*group->key) : Kel::String8();
    PortGroup::Ptr pg = host->portGroupIs(Kel::Name(key + host->name()));
    pg->pgNameIs(spec->name);
    pg->switchRefIs(group->vswitch ? Kel::String8(*group->vswitch) : Kel::String8());
    processVlan(pg, spec->vlanId);
    pg->activeIs(true);
    HARBEC_TRACE(7, "Portgroup " << spec->name << " vlanId " << spec->vlanId << "str vlanId "
                                 << pg->accessVlanId() << " switch " << pg->switchRef());
  }
}

// The kernel machine's copy of each VMkernel NIC, which unlike the host's
// own copy carries the MAC address and is swept.
void processKernelVnics(Vm::Ptr kernel, ns2__HostNetworkInfo* networkInfo) {
  for (ns2__HostVirtualNic* hostVnic : networkInfo->vnic) {
    HARBEC_TRACE(7, "Processing Vnic " << hostVnic->device);
    Vnic::Ptr vnic = kernel->vnicIs(Kel::Name(hostVnic->device));
    const ns2__HostVirtualNicSpec* spec = specOf(hostVnic);
    if (spec->mtu) {
      vnic->mtuIs(static_cast<unsigned>(*spec->mtu));
      HARBEC_TRACE(7, "Mtu " << *spec->mtu);
    }
    if (spec->mac) {
      vnic->macAddressIs(*spec->mac);
      HARBEC_TRACE(7, "MacAddress " << *spec->mac);
    }
    hostVnicAddressIs(vnic, spec->ip);
    vnic->labelIs(hostVnic->device);
    HARBEC_TRACE(7, "Label " << hostVnic->device);
    // Without a distributed port, switchId and portKey keep what they held.
    if (ns2__DistributedVirtualSwitchPortConnection* port = spec->distributedVirtualPort) {
      vnic->switchIdIs(port->switchUuid);
      if (port->portKey) {
        vnic->portKeyIs(*port->portKey);
        HARBEC_TRACE(7, "PortKey " << *port->portKey);
      }
      if (port->portgroupKey) {
        vnic->portGroupIs(*port->portgroupKey);
        HARBEC_TRACE(7, "PortGroup " << *port->portgroupKey);
      }
    } else {
      vnic->portGroupIs(hostVnic->portgroup);
      HARBEC_TRACE(7, "PortGroup " << hostVnic->portgroup);
    }
    vnic->configIdIs(vnic->configId() + 1);
    vnic->vnicTypeIs(vmKernelNic);
    vnic->activeIs(true);
  }
}

}  // namespace

void processHostNetwork(VI::Ptr vi, EsxHost::Ptr host, ns2__HostNetworkInfo* networkInfo, const PciTables& pci) {
  HARBEC_TRACE(6, "Config Network Update");
  Vm::Ptr kernel = host->vm();
  markInactive(host, kernel);
  processVswitches(host, networkInfo);
  processPnics(vi, host, networkInfo, pci);
  processHostVnics(host, networkInfo);
  kernel->hostRefIs(host->name());
  kernel->hostNameIs(host->hostName());
  kernel->vmNameIs("VMKernel");
  processPortGroups(host, networkInfo);
  processKernelVnics(kernel, networkInfo);
}

}  // namespace Harbec
