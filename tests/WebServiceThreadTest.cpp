// Consumer threads: completeness and order under load, and the assertions
// that end the process on misuse.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"
#include "messaging/WebServiceThread.h"

using namespace Harbec;
using namespace std::chrono_literals;

namespace {

// The agent drops its thread objects holding the activity lock.
template <class T>
void dropUnderActivityLock(Kel::Ptr<T>& thread) {
  Kel::ActivityLockAnchor anchor;
  thread = nullptr;
}

// What a handler saw, in order, and how many calls overlapped. The fields
// are read directly only once the consumer has been joined.
struct Recorder {
  void enter(const Kel::String8& name) {
    std::lock_guard<std::mutex> g(mutex);
    maxInFlight = std::max(maxInFlight, ++inFlight);
    seen.push_back(name.str());
  }
  void leave() {
    std::lock_guard<std::mutex> g(mutex);
    --inFlight;
    changed.notify_all();
  }
  bool waitFor(size_t n) {
    std::unique_lock<std::mutex> l(mutex);
    return changed.wait_for(l, 10s, [&] { return seen.size() >= n && inFlight == 0; });
  }
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> seen;
  int inFlight = 0;
  int maxInFlight = 0;
};

// A handler that records each call; the hook, set before the thread
// starts, runs inside the call.
template <class Base, class Request>
class Recording : public Base {
 public:
  Recorder recorder;
  std::function<void(const Request&)> hook;

 protected:
  using Base::Base;
  void record(const Request& r) {
    recorder.enter(r.name());
    if (hook) hook(r);
    recorder.leave();
  }
};

class TestSoapHandler : public Recording<SoapRequestHandler, SoapRequest> {
 public:
  static Kel::Ptr<TestSoapHandler> create() {
    return Kel::Ptr<TestSoapHandler>::adopt(
        new TestSoapHandler(soapStatusFactory("soapStatus"), sessionStatusFactory("session")));
  }
  void processSoapRequest(const Kel::Ptr<const SoapRequest>& r) override { record(*r); }

 private:
  using Recording::Recording;
};

class TestRestHandler : public Recording<RestRequestHandler, RestRequest> {
 public:
  static Kel::Ptr<TestRestHandler> create() {
    return Kel::Ptr<TestRestHandler>::adopt(
        new TestRestHandler(restStatusFactory("restStatus"), sessionStatusFactory("session")));
  }
  void processRestRequest(const Kel::Ptr<const RestRequest>& r) override { record(*r); }

 private:
  using Recording::Recording;
};

RestRequest::Ptr restRequest(const Kel::Name& name) {
  return restRequestFactory(name, vsVxlanSegment, httpGET);
}

// Names are "<tag><producer>:<sequence>"; each producer's sequence must
// come out complete, once each and in its order.
void expectEachOnceInProducerOrder(const std::vector<std::string>& seen, char tag, int producers,
                                   int perProducer) {
  std::vector<int> next(producers, 0);
  for (const std::string& s : seen) {
    int p = -1, i = -1;
    char t = 0;
    ASSERT_EQ(std::sscanf(s.c_str(), "%c%d:%d", &t, &p, &i), 3) << s;
    ASSERT_EQ(t, tag) << s;
    ASSERT_TRUE(p >= 0 && p < producers) << s;
    ASSERT_EQ(i, next[p]) << "producer " << p << " out of order or repeated";
    ++next[p];
  }
  for (int p = 0; p < producers; ++p) EXPECT_EQ(next[p], perProducer) << "producer " << p;
}

void useThreadsafeDeathTests() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

}  // namespace

TEST(WebServiceThread, ManyProducersEveryRequestOnceInEachProducersOrder) {
  constexpr int kSoapProducers = 3, kRestProducers = 2, kPerProducer = 2000;
  auto soapHandler = TestSoapHandler::create();
  auto restHandler = TestRestHandler::create();
  // Handlers read the request under the activity lock, as the sessions do;
  // the consumer must not be holding it at that moment.
  std::atomic<int> lockHeldOnEntry{0}, wrongType{0};
  soapHandler->hook = [&](const SoapRequest& r) {
    Kel::ActivityLockAnchor anchor;
    if (!anchor.tookLock()) ++lockHeldOnEntry;
    if (r.requestType() != connectRequestType) ++wrongType;
  };
  restHandler->hook = [&](const RestRequest& r) {
    Kel::ActivityLockAnchor anchor;
    if (!anchor.tookLock()) ++lockHeldOnEntry;
    if (r.requestType() != httpGET) ++wrongType;
  };
  auto soapThread = soapThreadFactory(soapHandler);
  auto restThread = restThreadFactory(restHandler);

  std::vector<std::thread> producers;
  for (int p = 0; p < kSoapProducers; ++p)
    producers.emplace_back([&, p] {
      for (int i = 0; i < kPerProducer; ++i)
        soapThread->addWebServiceRequest(connectRequestFactory(Kel::format("s%d:%d", p, i)));
    });
  for (int p = 0; p < kRestProducers; ++p)
    producers.emplace_back([&, p] {
      for (int i = 0; i < kPerProducer; ++i)
        restThread->addWebServiceRequest(restRequest(Kel::format("r%d:%d", p, i)));
    });
  for (auto& t : producers) t.join();

  ASSERT_TRUE(soapHandler->recorder.waitFor(kSoapProducers * kPerProducer));
  ASSERT_TRUE(restHandler->recorder.waitFor(kRestProducers * kPerProducer));
  dropUnderActivityLock(soapThread);
  dropUnderActivityLock(restThread);

  auto soapSeen = soapHandler->recorder.seen;
  auto restSeen = restHandler->recorder.seen;
  EXPECT_EQ(soapSeen.size(), size_t(kSoapProducers * kPerProducer));
  EXPECT_EQ(restSeen.size(), size_t(kRestProducers * kPerProducer));
  expectEachOnceInProducerOrder(soapSeen, 's', kSoapProducers, kPerProducer);
  expectEachOnceInProducerOrder(restSeen, 'r', kRestProducers, kPerProducer);
  EXPECT_EQ(soapHandler->recorder.maxInFlight, 1);
  EXPECT_EQ(restHandler->recorder.maxInFlight, 1);
  EXPECT_EQ(lockHeldOnEntry.load(), 0);
  EXPECT_EQ(wrongType.load(), 0);
}

TEST(WebServiceThreadDeathTest, MisuseEndsTheProcess) {
  useThreadsafeDeathTests();
  const char* notSoap = "soapRequest && \"WebServiceRequest is not a SoapRequest\"";
  const char* unimplemented = "false && \"Call to unimplemented base class method\"";
  auto soapHandler = TestSoapHandler::create();
  auto restHandler = TestRestHandler::create();
  auto soapThread = soapThreadFactory(soapHandler);
  auto restThread = restThreadFactory(restHandler);
  EXPECT_DEATH(soapThread->processWebServiceRequest(restRequest("r")), notSoap);
  EXPECT_DEATH(soapThread->processWebServiceRequest(nullptr), notSoap);
  EXPECT_DEATH(restThread->processWebServiceRequest(connectRequestFactory("c")),
               "restRequest && \"WebServiceRequest is not a RestRequest\"");
  EXPECT_DEATH(soapThread->WebServiceThread::processWebServiceRequest(connectRequestFactory("c")), unimplemented);
  EXPECT_DEATH(soapHandler->SoapRequestHandler::processSoapRequest(connectRequestFactory("c")), unimplemented);
  EXPECT_DEATH(restHandler->RestRequestHandler::processRestRequest(restRequest("r")), unimplemented);
  EXPECT_DEATH(soapThread->exitIs(pthread_mutex_t()), "0 && \"exitIs should never be called\"");
  dropUnderActivityLock(soapThread);
  dropUnderActivityLock(restThread);
}
