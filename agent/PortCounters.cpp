#include "agent/PortCounters.h"

#include <fcntl.h>
#include <unistd.h>

#include "Kel/Lock.h"
#include "session/HarbecSm.h"

namespace HarbecAgent {

using namespace Harbec;

namespace {

bool digitsOnly(const std::string& s) {
  return !s.empty() && s.size() < 10 && s.find_first_not_of("0123456789") == std::string::npos;
}

std::string switchByUuid(const VI& vi, const std::string& uuid) {
  for (auto i = vi.dvsIteratorConst(); i; ++i)
    if (i.value()->uuId().str() == uuid) return i.key().str();
  return "";
}

// The port's facts onto one NIC; a Pnic and a Vnic carry the same attributes.
template <class Nic>
void write(Nic& nic, const FetchDvPortResponse& answer, const Kel::String8& port, double now) {
  nic.reportedLinkIs(answer.dvPortLink(port));
  nic.blockedPolicyIs(answer.dvPortBlocked(port));
  nic.blockedInheritedIs(answer.dvPortBlockedInherited(port));
  if (unsigned mtu = answer.dvPortMtu(port)) nic.mtuIs(mtu);
  nic.statsIs(answer.dvPortStat(port));
  nic.counterRefreshTimeIs(now);
}

}  // namespace

std::vector<PortAsk> portAsks(const SwitchView& view, const VI& vi) {
  std::map<std::string, PortAsk> bySwitch;
  auto add = [&](const std::string& uuid, const std::string& port, NicKey nic) {
    if (!digitsOnly(port)) return;
    std::string moId = switchByUuid(vi, uuid);
    if (moId.empty()) return;
    PortAsk& ask = bySwitch[moId];
    ask.dvsMoId = moId;
    ask.nics[port].push_back(std::move(nic));
  };
  for (const InterfaceView& iv : view.interfaces) {
    if (!iv.pnic) continue;
    add(iv.pnic->switchId, iv.pnic->uplinkPortKey, {true, iv.host->ref, iv.pnic->device});
    for (const AttachedVm& a : iv.vms) add(a.nic->switchId, a.nic->portKey, {false, a.vm->ref, a.nic->key});
  }
  std::vector<PortAsk> asks;
  for (auto& [moId, ask] : bySwitch) asks.push_back(std::move(ask));
  return asks;
}

FetchDvPortRequest::Ptr portRequest(PortAsk& ask, const Kel::Name& name) {
  ask.descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (ask.descriptor <= 0) return nullptr;
  FetchDvPortRequest::Ptr r = fetchDvPortRequestFactory(name);
  r->targetCallbackIs("harbec-agent");
  r->socketIs(static_cast<unsigned>(ask.descriptor));
  r->dvsMoIdIs(ask.dvsMoId);
  for (const auto& [port, nics] : ask.nics) r->dvPortEnq(static_cast<unsigned>(std::stoul(port)));
  ask.request = name.str();
  return r;
}

bool takeAnswer(const VI::Ptr& vi, const PortAsk& ask) {
  {
    Kel::ActivityLockAnchor lock;
    auto answer = Kel::ptr_cast<FetchDvPortResponse>(vi->responsesWithCallback(static_cast<unsigned>(ask.descriptor)));
    if (!answer) return false;
    const double now = Kel::now();
    // The ports that came back: one not connected to anything does not.
    for (auto p = answer->dvPortStatIterator(); p; ++p) {
      const Kel::String8 key = p.key();
      auto asked = ask.nics.find(key.str());
      if (asked == ask.nics.end()) continue;
      for (const NicKey& n : asked->second) {
        if (n.physical) {
          EsxHost::Ptr host = vi->esxHost(Kel::Name(n.owner));
          if (Pnic::Ptr pnic = host ? host->pnic(Kel::Name(n.key)) : Pnic::Ptr()) write(*pnic, *answer, key, now);
        } else {
          Vm::Ptr vm = vi->vm(Kel::Name(n.owner));
          if (Vnic::Ptr vnic = vm ? vm->vnic(Kel::Name(n.key)) : Vnic::Ptr()) write(*vnic, *answer, key, now);
        }
      }
    }
    vi->responsesWithCallbackDel(static_cast<unsigned>(ask.descriptor));
  }
  closeSocket(static_cast<unsigned>(ask.descriptor));
  return true;
}

}  // namespace HarbecAgent
