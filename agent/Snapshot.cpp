#include "agent/Snapshot.h"

#include <algorithm>

#include "agent/VlanSet.h"

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

std::string speedText(Interface::EthSpeed speed) {
  switch (speed) {
    case Interface::ethSpeed10Mbps: return "10M";
    case Interface::ethSpeed100Mbps: return "100M";
    case Interface::ethSpeed1Gbps: return "1G";
    case Interface::ethSpeed10Gbps: return "10G";
    case Interface::ethSpeed40Gbps: return "40G";
    case Interface::ethSpeed100Gbps: return "100G";
    default: return "";
  }
}

namespace {

std::string duplexText(Interface::EthDuplex d) {
  return d == Interface::ethDuplexFull ? "full" : d == Interface::ethDuplexHalf ? "half" : "";
}

// Link as the port counters or link events last told it; before either, a
// NIC that reports a speed has its link up.
std::string linkText(Interface::LinkStatus status, bool hasSpeed) {
  if (status == Interface::linkStatusUp) return "up";
  if (status == Interface::linkStatusDown) return "down";
  return hasSpeed ? "up" : "unknown";
}

PnicInfo pnicInfo(const EsxHost& host, const Pnic& p) {
  PnicInfo info;
  info.device = p.name().str();
  info.mac = p.macAddress().str();
  info.uplinkPortKey = p.uplinkPortKey().str();
  info.switchId = p.switchId().str();
  info.switchName = p.dvsName().empty() ? host.vswitch(p.switchId()).str() : p.dvsName().str();
  info.speed = speedText(p.speed());
  info.duplex = duplexText(p.duplex());
  info.link = linkText(p.linkStatus(), p.speed() != Interface::ethSpeedUnknown);
  info.mtu = p.mtu();
  info.neighbour = {p.peerDevId().str(), p.peerIntf().str(), p.peerSysName().str(), p.peerMgmtAddr().str()};
  return info;
}

// A machine NIC's port group: a distributed one by key, else a standard one
// of the machine's host by network name, whose switch then stands for the
// switch id that the NIC itself leaves empty.
void resolvePortGroup(const VI& vi, const EsxHost* host, const Vnic& nic, VnicInfo& info) {
  const std::string pg = nic.portGroup().str();
  info.portGroupKey = pg;
  info.vlans = "?";  // until the port group is found
  if (!nic.switchId().empty()) {
    PortGroup::Ptr dv = vi.portGroup(pg);
    info.portGroup = dv ? dv->pgName().str() : pg;
    if (dv) info.vlans = portGroupVlans(dv->trunk(), dv->trunkAllowedVlans().str(), dv->accessVlanId().str());
    return;
  }
  info.portGroup = pg;
  if (!host) return;
  for (auto i = host->portGroupIteratorConst(); i; ++i) {
    const PortGroup& local = *i.value();
    if (local.pgName().str() != pg) continue;
    info.switchId = local.switchRef().str() + host->name().str();
    info.vlans = portGroupVlans(local.trunk(), local.trunkAllowedVlans().str(), local.accessVlanId().str());
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
    s.interfaces.push_back({i.key().str(), i.value()->hostRef().str(), i.value()->vmnicKey().str()});
  std::sort(s.interfaces.begin(), s.interfaces.end(),
            [](const InterfaceInfo& a, const InterfaceInfo& b) { return a.name < b.name; });

  for (auto i = vi.esxHostIteratorConst(); i; ++i) {
    const EsxHost& h = *i.value();
    HostInfo host{i.key().str(), h.hostName().str(), {}};
    for (auto p = h.pnicIteratorConst(); p; ++p) host.pnics.push_back(pnicInfo(h, *p.value()));
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
      info.link = linkText(nic.linkStatus(), false);
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
