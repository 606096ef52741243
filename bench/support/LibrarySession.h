// The inventory-owning session as the host agent builds it, driven directly
// on the calling thread: connect, first sync, and what the tree holds.
#pragma once
#include <string>

#include "Kel/Lock.h"
#include "Kel/Log.h"
#include "session/HarbecSm.h"

namespace bench {

constexpr char kUser[] = "administrator@vsphere.local";
constexpr char kPassword[] = "vmware";

struct LibrarySession {
  explicit LibrarySession(const std::string& url) {
    config->urlIs(url);
    config->usernameIs(kUser);
    config->passwordIs(kPassword);
    sm = Harbec::harbecSmFactory(soapStatus, sessionStatus, "UpdateThread", config, vi, false);
  }
  ~LibrarySession() {
    Kel::ActivityLockAnchor anchor;
    sm = nullptr;
    vi = nullptr;
  }

  // Login and filters.
  void connect() { sm->processSoapRequest(Harbec::connectRequestFactory("connect")); }
  // One CheckForUpdates: after a connect, the whole inventory.
  void checkForUpdates() { sm->processSoapRequest(Harbec::checkForUpdatesRequestFactory("sync")); }
  bool connected() const {
    Kel::ActivityLockAnchor anchor;
    return sessionStatus->sessionState() == Harbec::sessionConnected;
  }
  // Machines, the hosts' kernel machines among them, and hosts.
  long vms() const {
    Kel::ActivityLockAnchor anchor;
    return static_cast<long>(vi->vms());
  }
  long hosts() const {
    Kel::ActivityLockAnchor anchor;
    return static_cast<long>(vi->esxHosts());
  }

  Harbec::SoapStatus::Ptr soapStatus = Harbec::soapStatusFactory("soapStatus");
  Harbec::SessionStatus::Ptr sessionStatus = Harbec::sessionStatusFactory("sessionStatus");
  Harbec::ViConfig::Ptr config = Harbec::viConfigFactory("viConfig");
  Harbec::VI::Ptr vi = Harbec::vIFactory("vi");
  Harbec::HarbecSm::Ptr sm;
};

// Operator messages would only clutter the benchmark's output.
inline void quietLogs() {
  Kel::logSinkIs([](const Kel::LogHandle&, const Kel::String8&) {});
}

}  // namespace bench
