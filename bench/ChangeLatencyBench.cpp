// Latency of one change, over many small update sets (1,000 unless
// HARBEC_BENCH_LATENCY_SETS says otherwise): a machine of the vCenter
// simulator is renamed, and both the library's update loop (a SoapThread in
// WaitForUpdates, as the host agent runs it) and the govmomi client of
// testing/peers/govclient (looping on WaitForUpdates) take the change in.
//
//   lib_own    from the first byte of the WaitForUpdates reply on the
//              library's socket to the Vm listener's onVmName; targets:
//              median 2 ms, 99th percentile 10 ms
//   lib_e2e    from the rename request to the simulator to that listener
//   gov_e2e    from the same rename to the govmomi client's applying it
//
// End to end includes the simulator's own wait: it gathers changes for a
// while (settleTime in testing/peers/vcsim/pc.go) before it answers, and collects
// the filter's objects anew, so both clients carry that floor.
#include <benchmark/benchmark.h>
#include <semaphore.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "peers/VcSim.h"
#include "messaging/WebServiceThread.h"
#include "session/connection/VimBinding.h"
#include "support/Figures.h"
#include "peers/GovClient.h"
#include "support/LibrarySession.h"

namespace {

const char kPrefix[] = "lat-";

int sets() {
  const char* env = std::getenv("HARBEC_BENCH_LATENCY_SETS");
  return env ? std::max(1, std::atoi(env)) : 1000;
}

double realtimeSeconds() {
  timespec t;
  clock_gettime(CLOCK_REALTIME, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

// When the first bytes of the reply to the last request came in: the soap
// context's send and receive callbacks, wrapped.
struct ArrivalClock {
  static int (*send)(struct soap*, const char*, size_t);
  static size_t (*recv)(struct soap*, char*, size_t);
  static std::atomic<bool> awaiting;
  static std::atomic<double> arrival;

  static void install(struct soap* soap) {
    send = soap->fsend;
    recv = soap->frecv;
    soap->fsend = [](struct soap* s, const char* data, size_t n) {
      awaiting = true;
      return send(s, data, n);
    };
    soap->frecv = [](struct soap* s, char* data, size_t n) {
      size_t got = recv(s, data, n);
      if (got > 0 && awaiting.exchange(false)) arrival = figures::monotonicSeconds();
      return got;
    };
  }
};
int (*ArrivalClock::send)(struct soap*, const char*, size_t) = nullptr;
size_t (*ArrivalClock::recv)(struct soap*, char*, size_t) = nullptr;
std::atomic<bool> ArrivalClock::awaiting{false};
std::atomic<double> ArrivalClock::arrival{0};

// Hears the renames of one machine, on the session's thread.
class NameListener : public Harbec::Vm::Notifiee {
 public:
  NameListener() { sem_init(&heard_, 0, 0); }
  ~NameListener() override { sem_destroy(&heard_); }

  void onVmName() override {
    double now = figures::monotonicSeconds();
    double real = realtimeSeconds();
    std::string name = notifier()->vmName().str();
    if (name.rfind(kPrefix, 0) != 0) return;
    {
      std::lock_guard<std::mutex> g(mutex_);
      name_ = name;
      ownS_ = now - ArrivalClock::arrival.load();
      realtime_ = real;
    }
    sem_post(&heard_);
  }

  // The next rename heard, with the library's own time and when it was heard.
  bool next(std::string* name, double* ownS, double* realtime) {
    timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += 30;
    if (sem_timedwait(&heard_, &until) != 0) return false;
    std::lock_guard<std::mutex> g(mutex_);
    *name = name_;
    *ownS = ownS_;
    *realtime = realtime_;
    return true;
  }

 private:
  sem_t heard_;
  std::mutex mutex_;
  std::string name_;
  double ownS_ = 0, realtime_ = 0;
};

double percentile(std::vector<double> v, double p) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  size_t i = static_cast<size_t>(p * static_cast<double>(v.size() - 1) + 0.5);
  return v[std::min(i, v.size() - 1)];
}

void BM_ChangeLatency(benchmark::State& state) {
  bench::quietLogs();
  vcsim::Simulator sim(bench::kUser, bench::kPassword);
  bench::LibrarySession session(sim.url);
  session.connect();
  ArrivalClock::install(session.sm->vim()->soap);
  session.checkForUpdates();

  std::string vmRef;
  NameListener listener;
  {
    Kel::ActivityLockAnchor anchor;
    for (auto i = session.vi->vmIterator(); i; ++i) {
      if (i.key().str().rfind("vm-", 0) == 0) {
        vmRef = i.key().str();
        listener.notifierIs(i.value());
        break;
      }
    }
  }
  if (vmRef.empty()) {
    state.SkipWithError("the first sync brought no machine");
    return;
  }
  govclient::Watcher watcher(sim.url, kPrefix);
  Harbec::SoapThread::Ptr thread = Harbec::soapThreadFactory(session.sm);
  Harbec::CheckForUpdatesRequest::Ptr loop = Harbec::checkForUpdatesRequestFactory("loop");
  loop->blockIs(true);
  thread->addWebServiceRequest(loop);

  std::vector<double> own, libE2e, govE2e;
  int n = 0;
  for (auto _ : state) {
    std::string name = kPrefix + std::to_string(n++);
    double t0 = realtimeSeconds();
    sim.call("POST", "/vm/rename", "{\"vm\":\"" + vmRef + "\",\"name\":\"" + name + "\"}");
    std::string heard, govHeard;
    double ownS = 0, real = 0;
    long long govNs = 0;
    if (!listener.next(&heard, &ownS, &real) || heard != name) {
      state.SkipWithError(("the library missed " + name).c_str());
      break;
    }
    if (!watcher.next(&govHeard, &govNs, 30000) || govHeard != name) {
      state.SkipWithError(("govclient missed " + name).c_str());
      break;
    }
    state.SetIterationTime(real - t0);
    own.push_back(ownS * 1e3);
    libE2e.push_back((real - t0) * 1e3);
    govE2e.push_back((static_cast<double>(govNs) / 1e9 - t0) * 1e3);
  }

  // Both waits end on a fault after one more set, one fault for each
  // client, whichever asks first; the thread is then idle.
  sim.fault("WaitForUpdates", "fault", "Try Again", 2);
  sim.call("POST", "/vm/rename", "{\"vm\":\"" + vmRef + "\",\"name\":\"done\"}");
  auto failures = [&] {
    Kel::ActivityLockAnchor anchor;
    return session.soapStatus->failureCount();
  };
  for (int i = 0; i < 300 && failures() == 0; ++i) usleep(100000);
  {
    Kel::ActivityLockAnchor anchor;
    thread = nullptr;
  }
  watcher.stop();

  state.counters["lib_own_p50_ms"] = percentile(own, 0.5);
  state.counters["lib_own_p99_ms"] = percentile(own, 0.99);
  state.counters["lib_e2e_p50_ms"] = percentile(libE2e, 0.5);
  state.counters["lib_e2e_p99_ms"] = percentile(libE2e, 0.99);
  state.counters["gov_e2e_p50_ms"] = percentile(govE2e, 0.5);
  state.counters["gov_e2e_p99_ms"] = percentile(govE2e, 0.99);
}
BENCHMARK(BM_ChangeLatency)->Iterations(sets())->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
