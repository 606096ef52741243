#include "agent/SwitchView.h"

#include <algorithm>
#include <set>

#include "agent/JsonWriter.h"

namespace HarbecAgent {

SwitchView switchView(const Snapshot& s) {
  SwitchView view;
  std::set<std::string> reached;
  for (const InterfaceInfo& intf : s.interfaces) {
    InterfaceView iv{&intf, s.host(intf.hostRef), nullptr, {}, {}, 0, {}, {}, {}};
    if (iv.host) {
      view.interfacesOf[iv.host->ref].push_back(intf.name);
      iv.pnic = iv.host->pnic(intf.vmnic);
    }
    if (iv.pnic && !iv.pnic->switchId.empty()) {
      for (const VmInfo& vm : s.vms) {
        if (vm.hostRef != iv.host->ref) continue;
        bool attached = false;
        for (const VnicInfo& nic : vm.nics) {
          if (nic.switchId != iv.pnic->switchId) continue;
          iv.vms.push_back({&vm, &nic});
          iv.vlans.add(nic.vlans);
          if (nic.vlanPolicy == "unknown") ++iv.unknownVlanNics;
          attached = true;
        }
        if (attached) view.interfacesOf[vm.ref].push_back(intf.name);
      }
    }
    if (intf.configured) {
      iv.configured.add(intf.configuredVlans);
      if (intf.configuredVlans.empty()) iv.configured = VlanSet();
      iv.missing = iv.vlans.minus(iv.configured);
      iv.unneeded = iv.configured.minus(iv.vlans);
    }
    view.interfaces.push_back(std::move(iv));
  }
  for (const HostInfo& h : s.hosts)
    if (!view.interfacesOf.count(h.ref)) view.unreachedHosts.push_back(&h);
  for (const VmInfo& v : s.vms)
    if (!view.interfacesOf.count(v.ref)) view.unreachedVms.push_back(&v);
  return view;
}

std::string hostLabel(const std::string& ref, const Snapshot& s) {
  const HostInfo* h = s.host(ref);
  return h && !h->name.empty() ? h->name : ref;
}

std::string migrationText(const VmInfo& vm, const Snapshot& s) {
  if (vm.inVmotion) return "to " + hostLabel(vm.vmotionDst, s);
  if (vm.vmotionFailed) return vm.vmotionDst.empty() ? "failed" : "failed (" + hostLabel(vm.vmotionDst, s) + ")";
  return "-";
}

namespace {

// Rows of cells as lines with aligned columns, each line indented.
std::string table(const std::vector<std::vector<std::string>>& rows, const std::string& indent) {
  std::vector<size_t> width;
  for (const auto& r : rows)
    for (size_t c = 0; c < r.size(); ++c) {
      if (width.size() <= c) width.push_back(0);
      width[c] = std::max(width[c], r[c].size());
    }
  std::string out;
  for (const auto& r : rows) {
    std::string line = indent;
    for (size_t c = 0; c < r.size(); ++c) {
      line += r[c];
      if (c + 1 < r.size()) line.append(width[c] - r[c].size() + 2, ' ');
    }
    out += line + "\n";
  }
  return out;
}

std::string orDash(const std::string& s) { return s.empty() ? "-" : s; }

// A NIC's VLANs as the view shows them: "untagged", "unknown", or the set.
std::string vlansText(const VnicInfo& n) {
  return n.vlanPolicy == "unknown" ? "unknown" : n.vlans.empty() ? "untagged" : n.vlans;
}

// In the text view a PVLAN names itself: "PVLAN 500/102", primary first.
std::string vlanColumn(const VnicInfo& n) {
  if (n.vlanPolicy != "pvlan") return vlansText(n);
  return "PVLAN " + (n.pvlanPrimary ? std::to_string(n.pvlanPrimary) : std::string("unknown")) + "/" +
         std::to_string(n.pvlanSecondary);
}

std::string orNone(const VlanSet& s) { return s.empty() ? "none" : s.text(); }

std::string powerWord(const VmInfo& v) { return v.isTemplate ? "template" : v.poweredOn ? "on" : "off"; }

std::string carriedText(const InterfaceView& iv) {
  std::string out = iv.vlans.empty() ? "none" : iv.vlans.text();
  if (iv.unknownVlanNics) out += " and the unknown VLANs of " + std::to_string(iv.unknownVlanNics) + " NIC(s)";
  return out;
}

std::string linkLine(const PnicInfo& p) {
  std::string out = "link " + p.link;
  if (!p.speed.empty()) out += " " + p.speed;
  if (!p.duplex.empty()) out += " " + p.duplex;
  return out;
}

void interfaceText(const InterfaceView& iv, const Snapshot& s, std::string& out) {
  out += "Interface " + iv.intf->name;
  if (!iv.host) {
    out += ": no host found behind it\n\n";
    return;
  }
  out += " -> host " + hostLabel(iv.host->ref, s) + " (" + iv.host->ref + ")" + iv.host->stateText() + " " +
         iv.intf->vmnic;
  if (!iv.pnic) {
    out += ", NIC not in the host's configuration\n\n";
    return;
  }
  out += ", " + linkLine(*iv.pnic) + ", uplink of " + orDash(iv.pnic->switchName);
  if (!iv.pnic->lag.empty()) out += " in LACP group " + iv.pnic->lag;
  out += "\n";
  const Neighbour& n = iv.pnic->neighbour;
  if (!n.devId.empty())
    out += "  neighbour announced: " + orDash(n.sysName) + " " + n.port + " (" + n.devId +
           (n.mgmtAddr.empty() ? "" : ", " + n.mgmtAddr) + ")\n";
  if (iv.vms.empty()) {
    out += "  no VM on this host has a NIC on " + orDash(iv.pnic->switchName) + "\n";
  } else {
    std::vector<std::vector<std::string>> rows{{"VM", "Power", "Migration", "MAC", "Port group", "VLANs"}};
    for (const AttachedVm& a : iv.vms)
      rows.push_back({a.vm->name, powerWord(*a.vm), migrationText(*a.vm, s), a.nic->mac,
                      orDash(a.nic->portGroup), vlanColumn(*a.nic)});
    out += table(rows, "  ");
  }
  out += "  VLANs to carry: " + carriedText(iv) + "\n";
  if (iv.intf->configured)
    out += "  Configured: " + orNone(iv.configured) + "; missing: " + orNone(iv.missing) +
           "; needed by none: " + orNone(iv.unneeded) + "\n";
  out += "\n";
}

}  // namespace

std::string renderText(const Snapshot& s) {
  SwitchView view = switchView(s);
  std::string out;
  if (view.interfaces.empty()) out += "No switch interface is known: give --interfaces, or a --bridge-mac that hosts announce.\n\n";
  for (const InterfaceView& iv : view.interfaces) interfaceText(iv, s, out);

  out += "Hosts no interface reaches:";
  if (view.unreachedHosts.empty()) out += " none";
  out += "\n";
  std::vector<std::vector<std::string>> rows;
  for (const HostInfo* h : view.unreachedHosts) {
    std::string nics;
    for (const PnicInfo& p : h->pnics) {
      nics += (nics.empty() ? "" : ", ") + p.device;
      if (!p.neighbour.devId.empty()) nics += " to " + orDash(p.neighbour.sysName) + " " + p.neighbour.port;
    }
    rows.push_back({orDash(h->name) + h->stateText(), h->ref, nics});
  }
  out += table(rows, "  ");

  out += "VMs no interface reaches:";
  if (view.unreachedVms.empty()) out += " none";
  out += "\n";
  rows.clear();
  for (const VmInfo* v : view.unreachedVms)
    // A machine that names no host: vCenter lost it or never placed it.
    rows.push_back({orDash(v->name), v->ref, v->hostRef.empty() ? "host unknown" : "host " + hostLabel(v->hostRef, s),
                    v->isTemplate ? "template" : "powered " + powerWord(*v)});
  out += table(rows, "  ");

  if (s.vshield) {
    out += "\nvShield segments:";
    if (s.segments.empty()) out += " none";
    out += "\n";
    rows.assign(1, {"VNI", "Name", "Multicast", "Scope", "Port groups"});
    for (const SegmentInfo& seg : s.segments) {
      std::string pgs;
      for (const std::string& p : seg.portGroups) pgs += (pgs.empty() ? "" : ", ") + p;
      rows.push_back({std::to_string(seg.vni), orDash(seg.name), orDash(seg.multicast), orDash(seg.scope), orDash(pgs)});
    }
    if (!s.segments.empty()) out += table(rows, "  ");
  }
  return out;
}

namespace {

void neighbourJson(JsonWriter& w, const Neighbour& n) {
  w.beginObject("neighbour").value("devId", n.devId).value("port", n.port).value("sysName", n.sysName);
  w.value("mgmtAddr", n.mgmtAddr).endObject();
}

void namesJson(JsonWriter& w, const char* key, const SwitchView& view, const std::string& ref) {
  w.beginArray(key);
  auto i = view.interfacesOf.find(ref);
  if (i != view.interfacesOf.end())
    for (const std::string& n : i->second) w.element(n);
  w.endArray();
}

// A NIC's VLANs and the policy they come from; a PVLAN's primary only when known.
void vlansJson(JsonWriter& w, const VnicInfo& n) {
  w.value("vlans", vlansText(n)).value("vlanPolicy", n.vlanPolicy);
  if (n.vlanPolicy != "pvlan") return;
  if (n.pvlanPrimary) w.value("pvlanPrimary", n.pvlanPrimary);
  w.value("pvlanSecondary", n.pvlanSecondary);
}

void vmSummaryJson(JsonWriter& w, const VmInfo& vm, const Snapshot& s) {
  w.value("name", vm.name).value("ref", vm.ref).value("power", vm.poweredOn ? "on" : "off");
  w.value("template", vm.isTemplate);
  w.value("inMigration", vm.inVmotion).value("migration", migrationText(vm, s));
}

}  // namespace

std::string renderJson(const Snapshot& s, bool indent) {
  SwitchView view = switchView(s);
  JsonWriter w(indent);
  w.beginObject();

  w.beginArray("interfaces");
  for (const InterfaceView& iv : view.interfaces) {
    w.beginObject().value("name", iv.intf->name).value("hostRef", iv.intf->hostRef);
    w.value("host", iv.host ? hostLabel(iv.host->ref, s) : "").value("nic", iv.intf->vmnic);
    if (iv.pnic) {
      w.value("link", iv.pnic->link).value("speed", iv.pnic->speed).value("speedMb", iv.pnic->speedMb);
      w.value("duplex", iv.pnic->duplex);
      w.value("mtu", iv.pnic->mtu).value("vswitch", iv.pnic->switchName).value("lag", iv.pnic->lag);
      neighbourJson(w, iv.pnic->neighbour);
    }
    w.beginArray("vms");
    for (const AttachedVm& a : iv.vms) {
      w.beginObject();
      vmSummaryJson(w, *a.vm, s);
      w.value("nic", a.nic->key).value("mac", a.nic->mac).value("portGroup", a.nic->portGroup);
      vlansJson(w, *a.nic);
      w.endObject();
    }
    w.endArray().value("vlans", iv.vlans.text()).value("unknownVlanNics", iv.unknownVlanNics);
    if (iv.intf->configured) {
      w.value("configuredVlans", iv.configured.text()).value("missingVlans", iv.missing.text());
      w.value("unneededVlans", iv.unneeded.text());
    }
    w.endObject();
  }
  w.endArray();

  w.beginArray("hosts");
  for (const HostInfo& h : s.hosts) {
    w.beginObject().value("ref", h.ref).value("name", h.name);
    w.value("connection", h.connection).value("maintenance", h.maintenance);
    namesJson(w, "interfaces", view, h.ref);
    w.beginArray("nics");
    for (const PnicInfo& p : h.pnics) {
      w.beginObject().value("device", p.device).value("mac", p.mac).value("vswitch", p.switchName).value("lag", p.lag);
      w.value("link", p.link).value("speed", p.speed).value("speedMb", p.speedMb).value("mtu", p.mtu);
      neighbourJson(w, p.neighbour);
      w.endObject();
    }
    w.endArray().endObject();
  }
  w.endArray();

  w.beginArray("vms");
  for (const VmInfo& vm : s.vms) {
    w.beginObject();
    vmSummaryJson(w, vm, s);
    w.value("hostRef", vm.hostRef).value("host", hostLabel(vm.hostRef, s));
    namesJson(w, "interfaces", view, vm.ref);
    w.beginArray("nics");
    for (const VnicInfo& n : vm.nics) {
      w.beginObject().value("key", n.key).value("mac", n.mac).value("portGroup", n.portGroup);
      vlansJson(w, n);
      w.value("portKey", n.portKey).value("link", n.link).endObject();
    }
    w.endArray().endObject();
  }
  w.endArray();

  if (s.vshield) {
    w.beginArray("vshield");
    for (const SegmentInfo& seg : s.segments) {
      w.beginObject().value("id", seg.id).value("name", seg.name).value("vni", seg.vni);
      w.value("multicast", seg.multicast).value("scope", seg.scope).beginArray("portGroups");
      for (const std::string& p : seg.portGroups) w.element(p);
      w.endArray().endObject();
    }
    w.endArray();
  }
  w.endObject();
  return w.text();
}

}  // namespace HarbecAgent
