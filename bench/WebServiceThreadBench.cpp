// Round trip through a consumer thread: the caller adds a request, the
// consumer wakes, dequeues it and hands it to the handler, which signals the
// caller back. One iteration is one whole round trip.
#include <benchmark/benchmark.h>
#include <semaphore.h>

#include "Kel/Lock.h"
#include "messaging/WebServiceThread.h"

using namespace Harbec;

namespace {

class EchoSoapHandler : public SoapRequestHandler {
 public:
  using Ptr = Kel::Ptr<EchoSoapHandler>;
  static Ptr create() { return Ptr::adopt(new EchoSoapHandler()); }
  void processSoapRequest(const Kel::Ptr<const SoapRequest>&) override { sem_post(&done_); }
  void wait() { sem_wait(&done_); }

 private:
  EchoSoapHandler()
      : SoapRequestHandler(soapStatusFactory("soapStatus"), sessionStatusFactory("sessionStatus")) {
    sem_init(&done_, 0, 0);
  }
  ~EchoSoapHandler() override { sem_destroy(&done_); }
  sem_t done_;
};

class EchoRestHandler : public RestRequestHandler {
 public:
  using Ptr = Kel::Ptr<EchoRestHandler>;
  static Ptr create() { return Ptr::adopt(new EchoRestHandler()); }
  void processRestRequest(const Kel::Ptr<const RestRequest>&) override { sem_post(&done_); }
  void wait() { sem_wait(&done_); }

 private:
  EchoRestHandler()
      : RestRequestHandler(restStatusFactory("restStatus"), sessionStatusFactory("sessionStatus")) {
    sem_init(&done_, 0, 0);
  }
  ~EchoRestHandler() override { sem_destroy(&done_); }
  sem_t done_;
};

template <class T>
void dropUnderActivityLock(Kel::Ptr<T>& thread) {
  Kel::ActivityLockAnchor anchor;
  thread = nullptr;
}

// The same request posted again and again: queue, semaphore, lock and
// dispatch only.
void BM_SoapRoundTrip(benchmark::State& state) {
  auto handler = EchoSoapHandler::create();
  auto thread = soapThreadFactory(handler);
  auto request = connectRequestFactory("roundTrip");
  for (auto _ : state) {
    thread->addWebServiceRequest(request);
    handler->wait();
  }
  dropUnderActivityLock(thread);
}
BENCHMARK(BM_SoapRoundTrip)->UseRealTime();

// A fresh request each time, as the agent posts them.
void BM_SoapRoundTripNewRequest(benchmark::State& state) {
  auto handler = EchoSoapHandler::create();
  auto thread = soapThreadFactory(handler);
  for (auto _ : state) {
    thread->addWebServiceRequest(connectRequestFactory("roundTrip"));
    handler->wait();
  }
  dropUnderActivityLock(thread);
}
BENCHMARK(BM_SoapRoundTripNewRequest)->UseRealTime();

void BM_RestRoundTrip(benchmark::State& state) {
  auto handler = EchoRestHandler::create();
  auto thread = restThreadFactory(handler);
  auto request = restRequestFactory("roundTrip", vsVxlanSegment, httpGET);
  for (auto _ : state) {
    thread->addWebServiceRequest(request);
    handler->wait();
  }
  dropUnderActivityLock(thread);
}
BENCHMARK(BM_RestRoundTrip)->UseRealTime();

}  // namespace
