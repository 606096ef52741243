#include "agent/Snapshot.h"

#include <algorithm>


namespace HarbecAgent {

using namespace Harbec;

const PnicInfo* HostInfo::pnic(const std::string& device) const {
  for (const PnicInfo& p : pnics)
    if (p.device == device) return &p;
  return nullptr;
}

const HostInfo* Snapshot::host(const std::string& ref) const {
  for (const HostInfo& h : hosts)
    if (h.ref == ref) return &h;
  return nullptr;
}

const VmInfo* Snapshot::vm(const std::string& ref) const {
  for (const VmInfo& v : vms)
    if (v.ref == ref) return &v;
  return nullptr;
}

std::string speedText(unsigned speedMb) {
  if (speedMb == 0) return "";
  if (speedMb < 1000) return std::to_string(speedMb) + "M";
  std::string text = std::to_string(speedMb / 1000);
  if (unsigned rest = speedMb % 1000) {
    std::string fraction = std::to_string(1000 + rest).substr(1);
    text += "." + fraction.substr(0, fraction.find_last_not_of('0') + 1);
  }
  return text + "G";
}

namespace {

std::string duplexText(Interface::EthDuplex d) {
  return d == Interface::ethDuplexFull ? "full" : d == Interface::ethDuplexHalf ? "half" : "";
}

// Link as the port last reported it, unless the port is blocked; else as a
// link event told it; before either, a NIC that reports a speed has its
// link up. A blocked policy with the value false blocks nothing.
template <class Nic>
std::string linkText(const Nic& nic, bool hasSpeed) {
  if (nic.blockedPolicy() == "true") return "blocked";
  Interface::LinkStatus status = nic.reportedLink() != Interface::linkStatusUnknown ? nic.reportedLink() : nic.linkStatus();
  if (status == Interface::linkStatusUp) return "up";
  if (status == Interface::linkStatusDown) return "down";
  return hasSpeed ? "up" : "unknown";
}

}  // namespace

std::string HostInfo::stateText() const {
  if (!reached()) return " [" + connection + "]";
  return maintenance ? " [maintenance]" : "";
}

namespace {

PnicInfo pnicInfo(const EsxHost& host, const Pnic& p) {
  PnicInfo info;
  info.device = p.name().str();
  info.mac = p.macAddress().str();
  info.uplinkPortKey = p.uplinkPortKey().str();
  info.switchId = p.switchId().str();
  info.switchName = p.dvsName().empty() ? host.vswitch(p.switchId()).str() : p.dvsName().str();
  info.lag = p.uplinkLag().str();
  info.speedMb = p.linkSpeedMb();
  info.speed = speedText(info.speedMb);
  info.duplex = duplexText(p.duplex());
  info.link = linkText(p, info.speedMb > 0);
  info.mtu = p.mtu();
  info.neighbour = {p.peerDevId().str(), p.peerIntf().str(), p.peerSysName().str(), p.peerMgmtAddr().str()};
  return info;
}

// The VLANs of a port group by the kind of its policy. A PVLAN carries its
// primary and secondary VLANs; its older VLAN attributes no longer count.
void portGroupVlans(const PortGroup& pg, VnicInfo& info) {
  const std::string policy = pg.vlanPolicy().str();
  if (policy == "pvlan") {
    info.vlanPolicy = policy;
    info.pvlanPrimary = pg.pvlanPrimaryId();
    info.pvlanSecondary = pg.pvlanId();
    info.vlans = std::to_string(info.pvlanSecondary);
    if (info.pvlanPrimary) info.vlans = std::to_string(info.pvlanPrimary) + "," + info.vlans;
  } else if (policy == "other") {
    info.vlanPolicy = "unknown";
  } else {
    info.vlanPolicy = pg.trunk() ? "trunk" : pg.accessVlanId().empty() ? "none" : "vlan";
    info.vlans = pg.trunk() ? pg.trunkAllowedVlans().str() : pg.accessVlanId().str();
  }
}

// A machine NIC's port group: a distributed one by key, else a standard one
// of the machine's host by network name, whose switch then stands for the
// switch id that the NIC itself leaves empty. A card on an opaque or a
// legacy network has no port group: its VLANs are unknown.
void resolvePortGroup(const VI& vi, const EsxHost* host, const Vnic& nic, VnicInfo& info) {
  const std::string pg = nic.portGroup().str();
  info.portGroupKey = pg;
  info.vlans = "?";  // until the port group is found
  if (!nic.opaqueNetworkId().empty()) {
    info.portGroup = "opaque " + nic.opaqueNetworkType().str() + " " + nic.opaqueNetworkId().str();
    return;
  }
  if (!nic.legacyNetwork().empty()) {
    info.portGroup = "legacy " + nic.legacyNetwork().str();
    return;
  }
  if (!nic.switchId().empty()) {
    PortGroup::Ptr dv = vi.portGroup(pg);
    info.portGroup = dv ? dv->pgName().str() : pg;
    if (dv) portGroupVlans(*dv, info);
    return;
  }
  info.portGroup = pg;
  if (!host) return;
  for (auto i = host->portGroupIteratorConst(); i; ++i) {
    const PortGroup& local = *i.value();
    if (local.pgName().str() != pg) continue;
    info.switchId = local.switchRef().str() + host->name().str();
    portGroupVlans(local, info);
    return;
  }
}

template <class T>
void sortByName(std::vector<T>& v) {
  std::sort(v.begin(), v.end(), [](const T& a, const T& b) { return a.name != b.name ? a.name < b.name : a.ref < b.ref; });
}

}  // namespace

Snapshot takeSnapshot(const VI& vi, const VS* vs) {
  Snapshot s;
  for (auto i = vi.intfToEsxMapIteratorConst(); i; ++i)
    s.interfaces.push_back({i.key().str(), i.value()->hostRef().str(), i.value()->vmnicKey().str(), false, ""});
  std::sort(s.interfaces.begin(), s.interfaces.end(),
            [](const InterfaceInfo& a, const InterfaceInfo& b) { return a.name < b.name; });

  for (auto i = vi.esxHostIteratorConst(); i; ++i) {
    const EsxHost& h = *i.value();
    HostInfo host{i.key().str(), h.hostName().str(), {}, h.connectionState().str(), h.inMaintenance()};
    for (auto p = h.pnicIteratorConst(); p; ++p) {
      host.pnics.push_back(pnicInfo(h, *p.value()));
      if (!host.reached()) host.pnics.back().link = "unknown";
    }
    std::sort(host.pnics.begin(), host.pnics.end(),
              [](const PnicInfo& a, const PnicInfo& b) { return a.device < b.device; });
    s.hosts.push_back(std::move(host));
  }
  sortByName(s.hosts);

  for (auto i = vi.vmIteratorConst(); i; ++i) {
    const Vm& v = *i.value();
    EsxHost::Ptr own = vi.esxHost(i.key());
    if (own && own->vm().ptr() == &v) continue;
    VmInfo vm;
    vm.ref = i.key().str();
    vm.name = v.vmName().str();
    vm.hostRef = v.hostRef().str();
    vm.hostName = v.hostName().str();
    vm.poweredOn = v.powerState();
    vm.isTemplate = v.isTemplate();
    vm.inVmotion = v.inVmotion();
    vm.vmotionFailed = v.vmotionFailed();
    vm.vmotionDst = v.vmotionDst().str();
    EsxHost::Ptr host = vi.esxHost(v.hostRef());
    for (auto n = v.vnicIteratorConst(); n; ++n) {
      const Vnic& nic = *n.value();
      VnicInfo info;
      info.key = n.key().str();
      info.mac = nic.macAddress().str();
      info.switchId = nic.switchId().str();
      info.portKey = nic.portKey().str();
      info.link = linkText(nic, false);
      resolvePortGroup(vi, host.ptr(), nic, info);
      vm.nics.push_back(std::move(info));
    }
    std::sort(vm.nics.begin(), vm.nics.end(), [](const VnicInfo& a, const VnicInfo& b) {
      return a.key.size() != b.key.size() ? a.key.size() < b.key.size() : a.key < b.key;
    });
    s.vms.push_back(std::move(vm));
  }
  sortByName(s.vms);

  if (!vs) return s;
  s.vshield = true;
  for (auto i = vs->vxlanSegmentIteratorConst(); i; ++i) {
    const VxlanSegment& w = *i.value();
    SegmentInfo seg;
    seg.id = i.key().str();
    seg.name = w.displayName().str();
    seg.vni = w.vni();
    seg.multicast = w.multicastIpAddr().stringValue().str();
    seg.scope = w.networkScope().str();
    for (auto p = w.dvsPortGroupIteratorConst(); p; ++p) {
      if (!p.value()) continue;
      PortGroup::Ptr pg = vi.portGroup(p.key());
      seg.portGroups.push_back(pg && !pg->pgName().empty() ? pg->pgName().str() : p.key().str());
    }
    std::sort(seg.portGroups.begin(), seg.portGroups.end());
    s.segments.push_back(std::move(seg));
  }
  std::sort(s.segments.begin(), s.segments.end(),
            [](const SegmentInfo& a, const SegmentInfo& b) { return a.vni != b.vni ? a.vni < b.vni : a.id < b.id; });
  return s;
}

}  // namespace HarbecAgent
