// The agent's handlers behind its consumer threads: each passes a request
// to its session, on the thread, and then marks the request's name as
// served, so that the agent knows when a connect has ended or the update
// loop has returned.
#pragma once
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>

#include "session/HarbecSm.h"
#include "vshield/VmwareVsSm.h"

namespace HarbecAgent {

class ServedRequests {
 public:
  void add(const std::string& name);
  bool has(const std::string& name);
  // False when `seconds` pass first.
  bool wait(const std::string& name, double seconds);

  // Told of every request carried out, on its session's thread: the peer
  // ("vcenter", "vshield"), the request's name and whether it went well.
  // Set before the sessions' threads start.
  std::function<void(const char* peer, const std::string& name, bool ok)> observer;
  void exchanged(const char* peer, const std::string& name, bool ok) {
    if (observer) observer(peer, name, ok);
    add(name);
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::set<std::string> names_;
};

class SoapRelay : public Harbec::SoapRequestHandler {
 public:
  using Ptr = Kel::Ptr<SoapRelay>;
  static Ptr create(const Harbec::HarbecSm::Ptr& sm, ServedRequests* served) {
    return Ptr::adopt(new SoapRelay(sm, served));
  }
  // The status is written on this thread only, so it is read here unlocked.
  void processSoapRequest(const Kel::Ptr<const Harbec::SoapRequest>& request) override {
    unsigned failures = sm_->soapStatus()->failureCount();
    sm_->processSoapRequest(request);
    served_->exchanged("vcenter", request->name().str(), sm_->soapStatus()->failureCount() == failures);
  }

 private:
  SoapRelay(const Harbec::HarbecSm::Ptr& sm, ServedRequests* served)
      : SoapRequestHandler(sm->soapStatus(), sm->sessionStatus()), sm_(sm), served_(served) {}
  Harbec::HarbecSm::Ptr sm_;
  ServedRequests* served_;
};

class RestRelay : public Harbec::RestRequestHandler {
 public:
  using Ptr = Kel::Ptr<RestRelay>;
  static Ptr create(const Harbec::VmwareVsSm::Ptr& sm, ServedRequests* served) {
    return Ptr::adopt(new RestRelay(sm, served));
  }
  void processRestRequest(const Kel::Ptr<const Harbec::RestRequest>& request) override {
    unsigned failures = sm_->restStatus()->failureCount();
    sm_->processRestRequest(request);
    served_->exchanged("vshield", request->name().str(), sm_->restStatus()->failureCount() == failures);
  }

 private:
  RestRelay(const Harbec::VmwareVsSm::Ptr& sm, ServedRequests* served)
      : RestRequestHandler(sm->restStatus(), sm->sessionStatus()), sm_(sm), served_(served) {}
  Harbec::VmwareVsSm::Ptr sm_;
  ServedRequests* served_;
};

}  // namespace HarbecAgent
