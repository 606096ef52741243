#include "messaging/WebServiceThread.h"

#include <signal.h>

#include <cerrno>

#include "Kel/Assert.h"
#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"

namespace Harbec {

// --- WebServiceThread -------------------------------------------------------

WebServiceThread::WebServiceThread() { handleInitialized(); }

void WebServiceThread::handleInitialized() {
  HARBEC_TRACE_ENTRY();
  lastWakeUpTimeIs(Kel::now());
  sem_init(&sem_, 0, 0);
  pthread_mutex_init(&exit_, nullptr);
  pthread_mutex_lock(&exit_);
  // The consumer touches nothing of the derived class before its first
  // wake-up, and none can come before the factory has returned.
  pthread_create(&threadHandle_, nullptr, consumer, this);
  HARBEC_TRACE(6, "Consumer thread created for WebServiceThread " << static_cast<const void*>(this));
  initializedIs(true);
}

WebServiceThread::~WebServiceThread() {
  destroy();
  kelDoZombieReactors(true);
  // Whatever is still queued is never processed.
  request_.clear();
  // sem_ and exit_ go with the object's memory.
}

void WebServiceThread::destroy() {
  HARBEC_TRACE_ENTRY();
  // From here on doShutdown() is true; the post wakes a waiting consumer.
  pthread_mutex_unlock(&exit_);
  doSemPost();
  {
    // The consumer may be waiting for the activity lock before its dequeue;
    // holding it across the join would never end.
    Kel::ActivityUnlockAnchor unlock;
    pthread_join(threadHandle_, nullptr);
  }
  HARBEC_TRACE(6, "Consumer thread exited for WebServiceThread " << static_cast<const void*>(this));
}

void WebServiceThread::addWebServiceRequest(const WebServiceRequest::PtrConst& request) {
  HARBEC_TRACE_ENTRY();
  HARBEC_TRACE(5, "webServiceRequest: " << request->name());
  Kel::ActivityLockAnchor anchor;
  requestEnq(request);
  // Posting under the same lock as the enqueue keeps the semaphore's count
  // at least the queue's length.
  doSemPost();
}

void WebServiceThread::clearWebServiceRequests() {
  HARBEC_TRACE_ENTRY();
  Kel::ActivityLockAnchor anchor;
  requestDelAll();
}

void WebServiceThread::processWebServiceRequest(const WebServiceRequest::PtrConst&) {
  HARBEC_TRACE_ENTRY();
  KEL_ASSERT(false && "Call to unimplemented base class method");
}

void WebServiceThread::threadHandleIs(pthread_t threadHandle) {
  HARBEC_TRACE_ENTRY();
  threadHandle_ = threadHandle;
}

void WebServiceThread::semIs(const sem_t& sem) {
  HARBEC_TRACE_ENTRY();
  sem_ = sem;
}

void WebServiceThread::exitIs(const pthread_mutex_t&) {
  HARBEC_TRACE_ENTRY();
  KEL_ASSERT(0 && "exitIs should never be called");
}

void WebServiceThread::lastWakeUpTimeIs(double t) {
  HARBEC_TRACE_ENTRY();
  lastWakeUpTime_ = t;
}

void WebServiceThread::requestDel(unsigned index) {
  HARBEC_TRACE_ENTRY();
  request_.erase(index);
}

void WebServiceThread::requestNotify(unsigned index, KelRequest::Ptr entry) {
  HARBEC_TRACE_ENTRY();
  if (entry) entry->kel_index = index;
  request_.set(index, std::move(entry));
}

unsigned WebServiceThread::requestEnq(const WebServiceRequest::PtrConst& request) {
  HARBEC_TRACE_ENTRY();
  KelRequest::Ptr entry = KelRequest::Ptr::adopt(new KelRequest(0, request));
  unsigned index = request_.enq(entry);
  entry->kel_index = index;
  return index;
}

WebServiceRequest::PtrConst WebServiceThread::requestDeq() {
  HARBEC_TRACE_ENTRY();
  KelRequest::Ptr entry = request_.deq();
  return entry ? entry->request() : WebServiceRequest::PtrConst();
}

void WebServiceThread::requestIs(unsigned index, const WebServiceRequest::PtrConst& request) {
  HARBEC_TRACE_ENTRY();
  requestNotify(index, KelRequest::Ptr::adopt(new KelRequest(index, request)));
}

void WebServiceThread::requestDelAll() {
  HARBEC_TRACE_ENTRY();
  while (!request_.empty()) request_.deq();
}

WebServiceRequest::PtrConst WebServiceThread::request(unsigned index) const {
  const KelRequest::Ptr* entry = request_.find(index);
  return entry && *entry ? (*entry)->request() : WebServiceRequest::PtrConst();
}

void WebServiceThread::initializedIs(bool b) {
  HARBEC_TRACE_ENTRY();
  initialized_ = b;
}

void WebServiceThread::kelDoZombieReactors(bool b) {
  if (b != kelMarkedForDeletion()) VFPtrInterface::kelDoZombieReactors(b);
}

void WebServiceThread::doSemWait() {
  HARBEC_TRACE_ENTRY();
  sem_wait(&sem_);
}

void WebServiceThread::doSemPost() {
  HARBEC_TRACE_ENTRY();
  sem_post(&sem_);
}

bool WebServiceThread::doShutdown() {
  HARBEC_TRACE_ENTRY();
  // exit_ is a flag only: nobody ever waits on it.
  int rc = pthread_mutex_trylock(&exit_);
  if (rc == 0) {
    pthread_mutex_unlock(&exit_);
    return true;
  }
  if (rc == EBUSY) return false;
  KEL_ASSERT(false && "Unexpected return status");
  return false;
}

void* consumer(void* webServiceThread) {
  HARBEC_TRACE_ENTRY();
  // A peer that closes its end while a request is written to it must not
  // end whatever process links the library: on this thread the write
  // fails with EPIPE instead.
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
  WebServiceThread* self = static_cast<WebServiceThread*>(webServiceThread);
  for (;;) {
    HARBEC_TRACE(9, "Consumer thread " << pthread_self() << " waiting.");
    // A wake-up by a signal counts like a post.
    self->doSemWait();
    if (self->doShutdown()) {
      HARBEC_TRACE(9, "Consumer thread " << pthread_self() << " exiting.");
      return nullptr;
    }
    WebServiceRequest::PtrConst request;
    {
      Kel::ActivityLockAnchor anchor;
      self->lastWakeUpTimeIs(Kel::now());
      request = self->requestDeq();
    }
    // No lock is held while the request is processed.
    self->processWebServiceRequest(request);
  }
}

// --- SoapThread / RestThread ------------------------------------------------

SoapThread::SoapThread(const SoapRequestHandler::Ptr& handler) : soapRequestHandler_(handler) {}

SoapThread::~SoapThread() {
  kelDoZombieReactors(true);
  soapRequestHandler_ = nullptr;
}

void SoapThread::hasNotificationActiveIs(bool b) {
  if (b != hasNotificationActive()) WebServiceThread::hasNotificationActiveIs(b);
}

void SoapThread::kelDoZombieReactors(bool b) {
  if (b != kelMarkedForDeletion()) WebServiceThread::kelDoZombieReactors(b);
}

void SoapThread::processWebServiceRequest(const WebServiceRequest::PtrConst& request) {
  HARBEC_TRACE_ENTRY();
  Kel::Ptr<const SoapRequest> soapRequest = Kel::ptr_cast<const SoapRequest>(request);
  KEL_ASSERT(soapRequest && "WebServiceRequest is not a SoapRequest");
  SoapRequestHandler::Ptr handler = soapRequestHandler_;
  handler->processSoapRequest(soapRequest);
}

SoapThread::Ptr soapThreadFactory(const SoapRequestHandler::Ptr& handler) {
  HARBEC_TRACE_ENTRY();
  SoapThread::Ptr thread = SoapThread::Ptr::adopt(new SoapThread(handler));
  thread->hasNotificationActiveIs(true);
  return Kel::validPtr(thread);
}

RestThread::RestThread(const RestRequestHandler::Ptr& handler) : restRequestHandler_(handler) {}

RestThread::~RestThread() {
  kelDoZombieReactors(true);
  restRequestHandler_ = nullptr;
}

void RestThread::hasNotificationActiveIs(bool b) {
  if (b != hasNotificationActive()) WebServiceThread::hasNotificationActiveIs(b);
}

void RestThread::kelDoZombieReactors(bool b) {
  if (b != kelMarkedForDeletion()) WebServiceThread::kelDoZombieReactors(b);
}

void RestThread::processWebServiceRequest(const WebServiceRequest::PtrConst& request) {
  HARBEC_TRACE_ENTRY();
  Kel::Ptr<const RestRequest> restRequest = Kel::ptr_cast<const RestRequest>(request);
  KEL_ASSERT(restRequest && "WebServiceRequest is not a RestRequest");
  RestRequestHandler::Ptr handler = restRequestHandler_;
  handler->processRestRequest(restRequest);
}

RestThread::Ptr restThreadFactory(const RestRequestHandler::Ptr& handler) {
  HARBEC_TRACE_ENTRY();
  RestThread::Ptr thread = RestThread::Ptr::adopt(new RestThread(handler));
  thread->hasNotificationActiveIs(true);
  return Kel::validPtr(thread);
}

// --- Handlers ---------------------------------------------------------------

SoapRequestHandler::SoapRequestHandler(const SoapStatus::Ptr& soapStatus,
                                       const SessionStatus::Ptr& sessionStatus)
    : soapStatus_(soapStatus), sessionStatus_(sessionStatus) {}

SoapRequestHandler::~SoapRequestHandler() { kelDoZombieReactors(true); }

void SoapRequestHandler::processSoapRequest(const Kel::Ptr<const SoapRequest>&) {
  HARBEC_TRACE_ENTRY();
  KEL_ASSERT(false && "Call to unimplemented base class method");
}

void SoapRequestHandler::kelDoZombieReactors(bool b) {
  if (b != kelMarkedForDeletion()) VFPtrInterface::kelDoZombieReactors(b);
}

RestRequestHandler::RestRequestHandler(const RestStatus::Ptr& restStatus,
                                       const SessionStatus::Ptr& sessionStatus)
    : restStatus_(restStatus), sessionStatus_(sessionStatus) {}

RestRequestHandler::~RestRequestHandler() { kelDoZombieReactors(true); }

void RestRequestHandler::processRestRequest(const Kel::Ptr<const RestRequest>&) {
  HARBEC_TRACE_ENTRY();
  KEL_ASSERT(false && "Call to unimplemented base class method");
}

void RestRequestHandler::kelDoZombieReactors(bool b) {
  if (b != kelMarkedForDeletion()) VFPtrInterface::kelDoZombieReactors(b);
}

// --- Text forms -------------------------------------------------------------

std::ostream& operator<<(std::ostream& os, const WebServiceThread& t) {
  return os << t.fwkType() << "(" << static_cast<const void*>(&t) << ")";
}

std::ostream& operator<<(std::ostream& os, const SoapRequestHandler& h) {
  return os << h.fwkType() << "(" << static_cast<const void*>(&h) << ")";
}

std::ostream& operator<<(std::ostream& os, const RestRequestHandler& h) {
  return os << h.fwkType() << "(" << static_cast<const void*>(&h) << ")";
}

}  // namespace Harbec
