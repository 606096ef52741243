// Consumer threads: completeness and order under load, shutdown with work
// queued and in progress, the queue's running index, the liveness mark and
// the traces, and the assertions that end the process on misuse.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <future>
#include <mutex>
#include <sstream>
#include <streambuf>
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

// Raises a flag once a trace containing the given text has been written.
class TraceWatch : public std::streambuf {
 public:
  explicit TraceWatch(std::string text) : text_(std::move(text)) {}
  std::atomic<bool> seen{false};

 protected:
  int overflow(int c) override {
    char ch = static_cast<char>(c);
    xsputn(&ch, 1);
    return c;
  }
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    line_.append(s, n);
    if (line_.find(text_) != std::string::npos) seen = true;
    size_t nl = line_.rfind('\n');
    if (nl != std::string::npos) line_.erase(0, nl + 1);
    return n;
  }

 private:
  std::string text_;
  std::string line_;
};

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

TEST(WebServiceThread, DestroyWaitsForRequestInProgressAndDropsTheQueued) {
  auto handler = TestSoapHandler::create();
  std::atomic<WebServiceThread*> self{nullptr};
  std::promise<void> entered;
  std::atomic<bool> finished{false};
  handler->hook = [&](const SoapRequest& r) {
    if (r.name() != "first") return;
    entered.set_value();
    // Stay in the request until destroy() has begun, then a little longer.
    while (!self.load()->doShutdown()) std::this_thread::sleep_for(1ms);
    std::this_thread::sleep_for(30ms);
    finished = true;
  };
  auto thread = soapThreadFactory(handler);
  self = thread.ptr();

  thread->addWebServiceRequest(connectRequestFactory("first"));
  entered.get_future().wait();
  std::vector<SoapRequest::Ptr> queued;
  for (int i = 0; i < 5; ++i) {
    queued.push_back(blockPortRequestFactory(Kel::format("queued%d", i)));
    thread->addWebServiceRequest(queued.back());
  }
  {
    Kel::ActivityLockAnchor anchor;
    EXPECT_EQ(thread->requests(), 5u);
  }

  auto start = std::chrono::steady_clock::now();
  dropUnderActivityLock(thread);
  auto took = std::chrono::steady_clock::now() - start;

  EXPECT_TRUE(finished.load()) << "destroy() returned before the request in progress ended";
  EXPECT_GE(took, 30ms);
  EXPECT_EQ(handler->recorder.seen, std::vector<std::string>{"first"});
  // The queue's entries went with the thread; only our references remain.
  for (const auto& r : queued) EXPECT_EQ(r->references(), 1u) << r->name();
}

TEST(WebServiceThread, QueueIndicesRunOnAndNeverReset) {
  auto handler = TestSoapHandler::create();
  auto thread = soapThreadFactory(handler);
  auto a = connectRequestFactory("a"), b = connectRequestFactory("b"), c = connectRequestFactory("c");
  {
    // Straight on the queue: no wake-up is posted, so the consumer sleeps on.
    Kel::ActivityLockAnchor anchor;
    EXPECT_EQ(thread->requestEnq(a), 0u);
    EXPECT_EQ(thread->requestEnq(b), 1u);
    EXPECT_EQ(thread->requestDeq(), a);
    EXPECT_EQ(thread->requestMetadata(), (RequestMetadata{1, 2}));
    thread->requestDelAll();
    EXPECT_EQ(thread->requestDeq(), nullptr);
    // Emptied, the queue still hands out the next index; an entry placed
    // beyond it moves the next one past it.
    EXPECT_EQ(thread->requestEnq(a), 2u);
    thread->requestIs(10, b);
    EXPECT_EQ(thread->requestEnq(c), 11u);
    thread->requestDel(10);
    EXPECT_EQ(thread->requestDeq(), a);
    EXPECT_EQ(thread->requestDeq(), c);
    EXPECT_EQ(thread->requestEnq(b), 12u);
    thread = nullptr;
  }
  EXPECT_TRUE(handler->recorder.seen.empty());
}

TEST(WebServiceThread, LastWakeUpTimeWrittenAtConstructionAndAtEachWakeUp) {
  auto handler = TestSoapHandler::create();
  double before = Kel::now();
  auto thread = soapThreadFactory(handler);
  double previous = thread->lastWakeUpTime();
  EXPECT_GE(previous, before);
  for (int round = 0; round < 2; ++round) {
    std::this_thread::sleep_for(5ms);
    double beforeAdd = Kel::now();
    thread->addWebServiceRequest(checkForUpdatesRequestFactory(Kel::format("wake%d", round)));
    ASSERT_TRUE(handler->recorder.waitFor(round + 1));
    Kel::ActivityLockAnchor anchor;
    EXPECT_GE(thread->lastWakeUpTime(), beforeAdd);
    EXPECT_GT(thread->lastWakeUpTime(), previous);
    previous = thread->lastWakeUpTime();
  }
  dropUnderActivityLock(thread);
}

TEST(WebServiceThreadDeathTest, ConsumerWakingOnClearedQueueDies) {
  useThreadsafeDeathTests();
  EXPECT_DEATH(
      {
        auto handler = TestSoapHandler::create();
        auto thread = soapThreadFactory(handler);
        {
          // The consumer cannot dequeue while the lock is held here.
          Kel::ActivityLockAnchor anchor;
          for (int i = 0; i < 3; ++i)
            thread->addWebServiceRequest(connectRequestFactory(Kel::format("c%d", i)));
          thread->clearWebServiceRequests();
        }
        std::this_thread::sleep_for(5s);
      },
      "soapRequest && \"WebServiceRequest is not a SoapRequest\"");
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

TEST(WebServiceThreadDeathTest, RequestDequeuedWhileTheThreadIsDestroyedReachesTheBaseClass) {
  useThreadsafeDeathTests();
  EXPECT_DEATH(
      {
        alarm(10);  // a destroy() that keeps the lock across the join hangs here
        auto handler = TestSoapHandler::create();
        auto thread = soapThreadFactory(handler);
        TraceWatch watch("doShutdown");
        std::ostream traces(&watch);
        Kel::coverageStream_ = &traces;
        {
          Kel::ActivityLockAnchor anchor;
          thread->addWebServiceRequest(connectRequestFactory("late"));
          // The consumer has woken, found the thread running and now waits
          // for the lock held here. destroy() must let it through to the
          // dequeue, where the object is no longer a SoapThread.
          while (!watch.seen) std::this_thread::sleep_for(1ms);
          std::this_thread::sleep_for(50ms);
          thread = nullptr;
        }
        std::this_thread::sleep_for(5s);
      },
      "false && \"Call to unimplemented base class method\"");
}

TEST(WebServiceThreadDeathTest, DestroyWithoutTheActivityLockIsAProtocolViolation) {
  useThreadsafeDeathTests();
  EXPECT_DEATH(
      {
        auto thread = soapThreadFactory(TestSoapHandler::create());
        thread = nullptr;
      },
      "Lock Protocol exception -- unlocking an unreleasable lock");
}
