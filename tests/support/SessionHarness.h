// A vCenter session in a test as the host agent builds it: its status
// entities, configuration and inventory root, a SoapThread whose requests
// the test can wait for, and a capture of the operator log.
#pragma once
#include <gtest/gtest.h>
#include <semaphore.h>

#include <ctime>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Lock.h"
#include "Kel/Log.h"
#include "LogCapture.h"
#include "session/HarbecSm.h"

namespace harness {

using namespace Harbec;
using Lines = std::vector<std::string>;

const char kUser[] = "administrator@vsphere.local";
const char kPassword[] = "vmware";

using testsupport::LogCapture;

struct StatusView {
  unsigned successCount, failureCount;
  std::string lastMsgSent, lastSuccessMsg, lastFailedMsg, lastError;
  double lastRoundTripTime;
};

// The handler of a test's SoapThread: passes each request to the session on
// the thread's consumer, then tells the test that the request is done.
class Relay : public SoapRequestHandler {
 public:
  using Ptr = Kel::Ptr<Relay>;
  static Ptr create(const HarbecSm::Ptr& sm) { return Ptr::adopt(new Relay(sm)); }
  void processSoapRequest(const Kel::Ptr<const SoapRequest>& request) override {
    sm_->processSoapRequest(request);
    sem_post(&done_);
  }
  bool done() {
    timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += 60;
    return sem_timedwait(&done_, &until) == 0;
  }

 private:
  explicit Relay(const HarbecSm::Ptr& sm) : SoapRequestHandler(sm->soapStatus(), sm->sessionStatus()), sm_(sm) {
    sem_init(&done_, 0, 0);
  }
  ~Relay() override { sem_destroy(&done_); }
  HarbecSm::Ptr sm_;
  sem_t done_;
};

// A session as the host agent builds it: its own status entities, the
// configuration and the inventory root, optionally behind a SoapThread.
struct Session {
  Session(const std::string& instance, const std::string& url, const std::string& password = kPassword,
          bool exitOnConnectionError = false, bool threaded = true) {
    config->urlIs(url);
    config->usernameIs(kUser);
    config->passwordIs(password);
    sm = harbecSmFactory(soapStatus, sessionStatus, instance, config, vi, exitOnConnectionError);
    if (threaded) {
      relay = Relay::create(sm);
      thread = soapThreadFactory(relay);
    }
  }
  ~Session() {
    if (beforeEnd) beforeEnd();
    Kel::ActivityLockAnchor anchor;
    thread = nullptr;
  }
  // Frees a thread held in a blocking call, so that a test that stopped
  // early does not wait at its end for ever.
  std::function<void()> beforeEnd;

  // Carries a request out, on the thread if there is one, and returns once
  // it is done.
  void serve(const SoapRequest::Ptr& request) {
    if (!thread) return sm->processSoapRequest(request);
    thread->addWebServiceRequest(request);
    ASSERT_TRUE(relay->done()) << "request not served";
  }
  // Queues a request without waiting for it, such as a blocking wait for
  // updates; done() tells when it has left the session.
  void queue(const SoapRequest::Ptr& request) { thread->addWebServiceRequest(request); }
  bool done() { return relay->done(); }
  void connect() { serve(connectRequestFactory("connect")); }
  void probe() { serve(connectionStatusRequestFactory("probe")); }
  void post(const Lines& messages) {
    LogMsgRequest::Ptr request = logMsgRequestFactory("log");
    for (const std::string& m : messages) request->logMsgEnq(LogMsg("vm-50", m, true));
    serve(request);
  }

  SessionState state() const {
    Kel::ActivityLockAnchor anchor;
    return sessionStatus->sessionState();
  }
  StatusView status() const {
    Kel::ActivityLockAnchor anchor;
    return {soapStatus->successCount(),   soapStatus->failureCount(),  soapStatus->lastMsgSent().str(),
            soapStatus->lastSuccessMsg().str(), soapStatus->lastFailedMsg().str(), soapStatus->lastError().str(),
            soapStatus->lastRoundTripTime()};
  }

  SoapStatus::Ptr soapStatus = soapStatusFactory("soapStatus");
  SessionStatus::Ptr sessionStatus = sessionStatusFactory("sessionStatus");
  ViConfig::Ptr config = viConfigFactory("viConfig");
  VI::Ptr vi = vIFactory("vi");
  HarbecSm::Ptr sm;
  Relay::Ptr relay;
  SoapThread::Ptr thread;
};

}  // namespace harness
