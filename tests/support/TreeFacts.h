// The inventory tree as flat, sorted facts ("pnic host-1/vmnic0 speedMb
// 10000"), in the terms the vCenter simulator uses for its own account of
// its inventory (GET /inventory/facts), so that the two compare line by line.
#pragma once
#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "inventory/VI.h"

namespace harness {

using namespace Harbec;
using Lines = std::vector<std::string>;

template <class... A>
std::string cat(const A&... a) {
  std::ostringstream o;
  (o << ... << a);
  return o.str();
}

inline const char* speedMb(Interface::EthSpeed s) {
  static const char* const mb[] = {"0", "10", "100", "1000", "10000", "40000", "100000"};
  return s < 7 ? mb[s] : "?";
}
inline const char* duplex(Interface::EthDuplex d) { return d == 2 ? "full" : d == 1 ? "half" : "unknown"; }
inline const char* ft(FTStatus f) { return f == ftActive ? "active" : f == ftStandby ? "standby" : "disabled"; }
inline std::string vlan(const PortGroup::Ptr& pg) {
  if (pg->trunk()) return pg->trunkAllowedVlans().length() ? cat("trunk ", pg->trunkAllowedVlans()) : "trunk";
  return pg->accessVlanId().length() ? cat("access ", pg->accessVlanId()) : "none";
}

inline void nicFacts(Lines& out, const std::string& kind, const std::string& id, const Vnic::Ptr& v, bool withMac) {
  if (withMac) out.push_back(cat(kind, " ", id, " mac ", v->macAddress()));
  out.push_back(cat(kind, " ", id, " label ", v->label()));
  if (v->vnicType() == vmKernelNic) {
    out.push_back(cat(kind, " ", id, " mtu ", v->mtu()));
    const Brindle::IpAddrWithMask& ip = v->ipAddrWithMask();
    if (ip.addr().value()) out.push_back(cat(kind, " ", id, " ip ", ip.addr().stringValue(), "/", ip.length()));
  }
  out.push_back(cat(kind, " ", id, " switchId ", v->switchId()));
  out.push_back(cat(kind, " ", id, " portKey ", v->portKey()));
  out.push_back(cat(kind, " ", id, " portGroup ", v->portGroup()));
  if (v->opaqueNetworkId().length())
    out.push_back(cat(kind, " ", id, " opaqueNetwork ", v->opaqueNetworkType(), " ", v->opaqueNetworkId()));
}

// The tree in the terms of the simulator's facts; the caller holds the lock.
inline Lines treeFacts(const VI::Ptr& vi) {
  Lines out;
  for (auto i = vi->esxHostIterator(); i; ++i) {
    EsxHost::Ptr h = i.value();
    const std::string id = cat(h->name());
    out.push_back(cat("host ", id, " name ", h->hostName()));
    out.push_back(cat("host ", id, " parent ", h->parentRef()));
    out.push_back(cat("host ", id, " dcRef ", h->dcRef()));
    out.push_back(cat("host ", id, " connection ", h->connectionState()));
    out.push_back(cat("host ", id, " maintenance ", h->inMaintenance() ? "true" : "false"));
    out.push_back(cat("host ", id, " networkId ", h->networkId()));
    out.push_back(cat("host ", id, " vendor ", h->vendor()));
    out.push_back(cat("host ", id, " model ", h->model()));
    out.push_back(cat("host ", id, " cores ", h->numCores()));
    for (auto s = h->vswitchIterator(); s; ++s) out.push_back(cat("vswitch ", s.key(), " name ", s.value()));
    for (auto p = h->pnicIterator(); p; ++p) {
      Pnic::Ptr n = p.value();
      const std::string nic = cat("pnic ", id, "/", n->name(), " ");
      out.push_back(cat(nic, "mac ", n->macAddress()));
      out.push_back(cat(nic, "speedMb ", speedMb(n->speed())));
      out.push_back(cat(nic, "linkSpeedMb ", n->linkSpeedMb()));
      out.push_back(cat(nic, "duplex ", duplex(n->duplex())));
      out.push_back(cat(nic, "vendor ", n->vendor()));
      out.push_back(cat(nic, "model ", n->model()));
      out.push_back(cat(nic, "switchId ", n->switchId()));
      out.push_back(cat(nic, "mtu ", n->mtu()));
      out.push_back(cat(nic, "uplinkPortKey ", n->uplinkPortKey()));
      out.push_back(cat(nic, "uplinkName ", n->uplinkName()));
      out.push_back(cat(nic, "uplinkLag ", n->uplinkLag()));
      out.push_back(cat(nic, "dvsName ", n->dvsName()));
    }
    for (auto p = h->portGroupIterator(); p; ++p) {
      const std::string pg = cat("hostpg ", p.key(), " ");
      out.push_back(cat(pg, "name ", p.value()->pgName()));
      out.push_back(cat(pg, "switch ", p.value()->switchRef()));
      out.push_back(cat(pg, "vlanId ", p.value()->vlanId()));
      out.push_back(cat(pg, "vlan ", vlan(p.value())));
      out.push_back(cat(pg, "policy ", p.value()->vlanPolicy()));
    }
    for (auto v = h->vnicIterator(); v; ++v) nicFacts(out, "hostvnic", cat(id, "/", v.key()), v.value(), false);
  }
  for (auto i = vi->vmIterator(); i; ++i) {
    Vm::Ptr vm = i.value();
    const std::string id = cat(vm->name());
    out.push_back(cat("vm ", id, " name ", vm->vmName()));
    out.push_back(cat("vm ", id, " host ", vm->hostRef()));
    out.push_back(cat("vm ", id, " hostName ", vm->hostName()));
    out.push_back(cat("vm ", id, " power ", vm->powerState() ? "on" : "off"));
    out.push_back(cat("vm ", id, " ft ", ft(vm->ftStatus())));
    out.push_back(cat("vm ", id, " template ", vm->isTemplate() ? "true" : "false"));
    for (auto v = vm->vnicIterator(); v; ++v) nicFacts(out, "vnic", cat(id, "/", v.key()), v.value(), true);
  }
  for (auto i = vi->dvsIterator(); i; ++i) {
    out.push_back(cat("dvs ", i.key(), " name ", i.value()->dvsName()));
    out.push_back(cat("dvs ", i.key(), " uuid ", i.value()->uuId()));
  }
  for (auto i = vi->portGroupIterator(); i; ++i) {
    out.push_back(cat("dvpg ", i.key(), " name ", i.value()->pgName()));
    out.push_back(cat("dvpg ", i.key(), " switch ", i.value()->switchRef()));
    out.push_back(cat("dvpg ", i.key(), " vlan ", vlan(i.value())));
    out.push_back(cat("dvpg ", i.key(), " policy ", i.value()->vlanPolicy()));
    if (i.value()->vlanPolicy() == "pvlan")
      out.push_back(cat("dvpg ", i.key(), " pvlan ", i.value()->pvlanPrimaryId(), "/", i.value()->pvlanId()));
  }
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace harness
