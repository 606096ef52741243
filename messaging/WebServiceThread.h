// Consumer threads of the two sessions. Each thread owns a queue of requests
// and a semaphore that counts wake-ups; it takes one request at a time and
// hands it to its session's handler. Every call into the sessions' logic
// enters here: the agent's threads only enqueue, so blocking SOAP and HTTP
// exchanges run on these threads alone.
//
// The activity lock guards the queue. The consumer holds it only around the
// dequeue; handlers take it themselves around each access to entities.
#pragma once
#include <pthread.h>
#include <semaphore.h>

#include <cstdint>
#include <ostream>

#include "Kel/LinkQueue.h"
#include "Kel/Ptr.h"
#include "messaging/WebServiceTypes.h"
#include "standins/Status.h"

namespace Kel {
class ActivityConfig;  // deferred delivery; unused by this library
}

namespace Harbec {

// A queue entry: a request under its running index.
class KelRequest : public Kel::VFPtrInterface {
 public:
  using Ptr = Kel::Ptr<KelRequest>;
  using PtrConst = Kel::Ptr<const KelRequest>;

  KelRequest(unsigned index, const WebServiceRequest::PtrConst& request)
      : kel_index(index), request_(request) {}

  static Kel::String8 _fwkType() { return "Harbec::KelRequest"; }
  Kel::String8 fwkType() const override { return _fwkType(); }

  const WebServiceRequest::PtrConst& request() const { return request_; }

  uint32_t kel_index;

 private:
  WebServiceRequest::PtrConst request_;
};

// Head index and next index of a request queue.
using RequestMetadata = Kel::QueueMetadata;

class WebServiceThread : public Kel::VFPtrInterface {
 public:
  using Ptr = Kel::Ptr<WebServiceThread>;
  using PtrConst = Kel::Ptr<const WebServiceThread>;
  using RequestQueue = Kel::LinkQueue<KelRequest::Ptr>;
  using RequestIteratorConst = RequestQueue::IteratorConst;

  static Kel::String8 _fwkType() { return "Harbec::WebServiceThread"; }
  Kel::String8 fwkType() const override { return _fwkType(); }

  // Entry for all work, from any thread: enqueue under the activity lock
  // and wake the consumer.
  void addWebServiceRequest(const WebServiceRequest::PtrConst& request);
  // Drops every pending request. The semaphore keeps its count, so the
  // consumer's next wake-up may find the queue empty.
  void clearWebServiceRequests();

  // Dispatch to the session's handler; the derived threads override it.
  virtual void processWebServiceRequest(const WebServiceRequest::PtrConst& request);

  // Plain setters: they store without compare and tell nobody.
  virtual void threadHandleIs(pthread_t threadHandle);
  virtual void semIs(const sem_t& sem);
  // The shutdown flag belongs to the thread's life cycle alone.
  virtual void exitIs(const pthread_mutex_t& exit);
  virtual void lastWakeUpTimeIs(double t);

  // The request queue, guarded by the activity lock: every caller holds it.
  virtual void requestDel(unsigned index);
  // Puts an entry in place under the given index.
  virtual void requestNotify(unsigned index, KelRequest::Ptr entry);
  // Appends a request and returns its index.
  virtual unsigned requestEnq(const WebServiceRequest::PtrConst& request);
  // The head request, removed; null when the queue is empty.
  virtual WebServiceRequest::PtrConst requestDeq();
  virtual void requestIs(unsigned index, const WebServiceRequest::PtrConst& request);
  void requestDelAll();
  WebServiceRequest::PtrConst request(unsigned index) const;
  size_t requests() const { return request_.size(); }
  RequestIteratorConst requestIteratorConst() const { return request_.iteratorConst(); }
  const RequestMetadata& requestMetadata() const { return request_.metadata(); }
  void requestMetadataIs(const RequestMetadata& m) { request_.metadataIs(m); }

  virtual void initializedIs(bool b);
  void kelDoZombieReactors(bool b) override;

  pthread_t threadHandle() const { return threadHandle_; }
  // Liveness mark: written at construction and at every wake-up, under the
  // activity lock once the consumer runs.
  double lastWakeUpTime() const { return lastWakeUpTime_; }
  bool initialized() const { return initialized_; }

  // sem_wait and sem_post on the wake-up semaphore; results unexamined.
  void doSemWait();
  void doSemPost();
  // True once destroy() has released the shutdown flag.
  bool doShutdown();

 protected:
  WebServiceThread();
  // Stops and joins the consumer, then drops whatever is still queued.
  // Runs on a thread that holds the activity lock.
  ~WebServiceThread() override;

  // The constructor's last step, while the object is still of this class:
  // sets up the semaphore and the shutdown flag and starts the consumer.
  void handleInitialized();
  // Stops and joins the consumer; the caller holds the activity lock, which
  // is dropped for the span of the join.
  void destroy();

 private:
  pthread_t threadHandle_ = 0;
  sem_t sem_{};
  pthread_mutex_t exit_{};  // held from construction until destroy()
  double lastWakeUpTime_ = 0.0;
  RequestQueue request_;
  bool initialized_ = false;
};

// The thread's main loop, given the WebServiceThread.
void* consumer(void* webServiceThread);

class SoapRequestHandler : public Kel::VFPtrInterface {
 public:
  using Ptr = Kel::Ptr<SoapRequestHandler>;
  using PtrConst = Kel::Ptr<const SoapRequestHandler>;

  static Kel::String8 _fwkType() { return "Harbec::SoapRequestHandler"; }
  Kel::String8 fwkType() const override { return _fwkType(); }

  // Carried out on the consumer thread, one request at a time; the session
  // overrides it.
  virtual void processSoapRequest(const Kel::Ptr<const SoapRequest>& request);
  void kelDoZombieReactors(bool b) override;

  const SoapStatus::Ptr& soapStatus() const { return soapStatus_; }
  const SessionStatus::Ptr& sessionStatus() const { return sessionStatus_; }
  Kel::ActivityConfig* kelFwkActivity() const { return kelFwkActivity_; }

 protected:
  SoapRequestHandler(const SoapStatus::Ptr& soapStatus, const SessionStatus::Ptr& sessionStatus);
  ~SoapRequestHandler() override;

 private:
  SoapStatus::Ptr soapStatus_;
  SessionStatus::Ptr sessionStatus_;
  Kel::ActivityConfig* kelFwkActivity_ = nullptr;
};

class RestRequestHandler : public Kel::VFPtrInterface {
 public:
  using Ptr = Kel::Ptr<RestRequestHandler>;
  using PtrConst = Kel::Ptr<const RestRequestHandler>;

  static Kel::String8 _fwkType() { return "Harbec::RestRequestHandler"; }
  Kel::String8 fwkType() const override { return _fwkType(); }

  virtual void processRestRequest(const Kel::Ptr<const RestRequest>& request);
  void kelDoZombieReactors(bool b) override;

  const RestStatus::Ptr& restStatus() const { return restStatus_; }
  const SessionStatus::Ptr& sessionStatus() const { return sessionStatus_; }
  Kel::ActivityConfig* kelFwkActivity() const { return kelFwkActivity_; }

 protected:
  RestRequestHandler(const RestStatus::Ptr& restStatus, const SessionStatus::Ptr& sessionStatus);
  ~RestRequestHandler() override;

 private:
  RestStatus::Ptr restStatus_;
  SessionStatus::Ptr sessionStatus_;
  Kel::ActivityConfig* kelFwkActivity_ = nullptr;
};

class SoapThread : public WebServiceThread {
 public:
  using Ptr = Kel::Ptr<SoapThread>;
  using PtrConst = Kel::Ptr<const SoapThread>;

  static Kel::String8 _fwkType() { return "Harbec::SoapThread"; }
  Kel::String8 fwkType() const override { return _fwkType(); }

  void hasNotificationActiveIs(bool b) override;
  void processWebServiceRequest(const WebServiceRequest::PtrConst& request) override;
  void kelDoZombieReactors(bool b) override;

  const SoapRequestHandler::Ptr& soapRequestHandler() const { return soapRequestHandler_; }

  // Dropped by the last holder of a Ptr, who holds the activity lock.
  ~SoapThread() override;

 private:
  friend SoapThread::Ptr soapThreadFactory(const SoapRequestHandler::Ptr& handler);
  explicit SoapThread(const SoapRequestHandler::Ptr& handler);

  SoapRequestHandler::Ptr soapRequestHandler_;
};

class RestThread : public WebServiceThread {
 public:
  using Ptr = Kel::Ptr<RestThread>;
  using PtrConst = Kel::Ptr<const RestThread>;

  static Kel::String8 _fwkType() { return "Harbec::RestThread"; }
  Kel::String8 fwkType() const override { return _fwkType(); }

  void hasNotificationActiveIs(bool b) override;
  void processWebServiceRequest(const WebServiceRequest::PtrConst& request) override;
  void kelDoZombieReactors(bool b) override;

  const RestRequestHandler::Ptr& restRequestHandler() const { return restRequestHandler_; }

  ~RestThread() override;

 private:
  friend RestThread::Ptr restThreadFactory(const RestRequestHandler::Ptr& handler);
  explicit RestThread(const RestRequestHandler::Ptr& handler);

  RestRequestHandler::Ptr restRequestHandler_;
};

// A new thread object for the handler, its consumer already running. The
// last Ptr must be dropped by a thread that holds the activity lock.
SoapThread::Ptr soapThreadFactory(const SoapRequestHandler::Ptr& handler);
RestThread::Ptr restThreadFactory(const RestRequestHandler::Ptr& handler);

std::ostream& operator<<(std::ostream& os, const WebServiceThread& t);
std::ostream& operator<<(std::ostream& os, const SoapRequestHandler& h);
std::ostream& operator<<(std::ostream& os, const RestRequestHandler& h);

}  // namespace Harbec
