#include "agent/Changes.h"

#include <map>

#include "agent/SwitchView.h"

namespace HarbecAgent {

namespace {

template <class T>
std::map<std::string, const T*> byRef(const std::vector<T>& v) {
  std::map<std::string, const T*> m;
  for (const T& x : v) m[x.ref] = &x;
  return m;
}

std::string vmLabel(const VmInfo& vm) { return "VM " + (vm.name.empty() ? vm.ref : vm.name); }

void vmChanges(const VmInfo& a, const VmInfo& b, const Snapshot& sa, const Snapshot& sb,
               std::vector<std::string>& out) {
  const std::string who = vmLabel(b);
  if (a.poweredOn != b.poweredOn) out.push_back(who + (b.poweredOn ? " powered on" : " powered off"));
  if (!a.inVmotion && b.inVmotion)
    out.push_back(who + " migration started from " + hostLabel(b.hostRef, sb) + " to " + hostLabel(b.vmotionDst, sb));
  if (a.inVmotion && !b.inVmotion) {
    if (b.vmotionFailed)
      out.push_back(who + " migration failed, stays on " + hostLabel(b.hostRef, sb));
    else
      out.push_back(who + " migration ended, runs on " + hostLabel(b.hostRef, sb));
  } else if (a.hostRef != b.hostRef && !b.inVmotion) {
    out.push_back(who + " moved from " + hostLabel(a.hostRef, sa) + " to " + hostLabel(b.hostRef, sb));
  }
  for (const VnicInfo& nb : b.nics) {
    for (const VnicInfo& na : a.nics) {
      if (na.key != nb.key) continue;
      if (na.portGroup != nb.portGroup)
        out.push_back(who + " NIC " + nb.mac + " moved from port group " + na.portGroup + " to " + nb.portGroup);
      if (na.link != nb.link && (nb.link == "down" || na.link == "down"))
        out.push_back(who + " NIC " + nb.mac + " link " + nb.link);
    }
  }
}

void hostChanges(const HostInfo& a, const HostInfo& b, std::vector<std::string>& out) {
  const std::string who = "Host " + (b.name.empty() ? b.ref : b.name);
  if (a.connection != b.connection && !a.connection.empty()) out.push_back(who + " connection " + b.connection);
  if (a.maintenance != b.maintenance)
    out.push_back(who + (b.maintenance ? " entered maintenance mode" : " left maintenance mode"));
  for (const PnicInfo& pb : b.pnics) {
    const PnicInfo* pa = a.pnic(pb.device);
    if (!pa) continue;
    if (pa->link != pb.link && (pb.link == "down" || pa->link == "down"))
      out.push_back(who + " " + pb.device + " link " + pb.link);
    if (!(pa->neighbour == pb.neighbour) && !pb.neighbour.devId.empty())
      out.push_back(who + " " + pb.device + " now cabled to " +
                    (pb.neighbour.sysName.empty() ? pb.neighbour.devId : pb.neighbour.sysName) + " " +
                    pb.neighbour.port);
  }
}

}  // namespace

std::vector<std::string> describeChanges(const Snapshot& before, const Snapshot& after) {
  std::vector<std::string> out;

  std::map<std::string, const InterfaceInfo*> intfBefore;
  for (const InterfaceInfo& i : before.interfaces) intfBefore[i.name] = &i;
  for (const InterfaceInfo& i : after.interfaces) {
    auto was = intfBefore.find(i.name);
    bool same = was != intfBefore.end() && was->second->hostRef == i.hostRef && was->second->vmnic == i.vmnic;
    if (!same && !i.hostRef.empty())
      out.push_back("Interface " + i.name + " now leads to " + hostLabel(i.hostRef, after) + " " + i.vmnic);
    if (!same && i.hostRef.empty() && was != intfBefore.end())
      out.push_back("Interface " + i.name + " leads to no known host");
  }

  auto hostsBefore = byRef(before.hosts);
  auto hostsAfter = byRef(after.hosts);
  for (const auto& [ref, h] : hostsAfter) {
    auto was = hostsBefore.find(ref);
    if (was == hostsBefore.end())
      out.push_back("Host " + (h->name.empty() ? ref : h->name) + " added");
    else
      hostChanges(*was->second, *h, out);
  }
  for (const auto& [ref, h] : hostsBefore)
    if (!hostsAfter.count(ref)) out.push_back("Host " + (h->name.empty() ? ref : h->name) + " removed");

  auto vmsBefore = byRef(before.vms);
  auto vmsAfter = byRef(after.vms);
  for (const auto& [ref, vm] : vmsAfter) {
    auto was = vmsBefore.find(ref);
    if (was == vmsBefore.end())
      out.push_back(vmLabel(*vm) + " added on " + hostLabel(vm->hostRef, after));
    else
      vmChanges(*was->second, *vm, before, after, out);
  }
  for (const auto& [ref, vm] : vmsBefore)
    if (!vmsAfter.count(ref)) out.push_back(vmLabel(*vm) + " removed");
  return out;
}

}  // namespace HarbecAgent
