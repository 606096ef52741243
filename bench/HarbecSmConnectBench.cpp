// Repeated connects of the inventory-owning session against the vCenter
// simulator over HTTPS: each ConnectRequest clears the inventory, resets the
// soap context and logs in anew. One iteration is one whole ConnectRequest.
// The counters show the process's memory before and after the timed run:
// resident set, heap in use, live objects of the C++ heap, and the requests
// still referenced by anything but the caller; flat means no growth.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <new>

#include "peers/VcSim.h"
#include "Kel/Lock.h"
#include "Kel/Log.h"
#include "session/HarbecSm.h"

using namespace Harbec;

namespace {
std::atomic<long> liveObjects{0};
}

// Counting replacements of the global allocation functions: every C++
// object of the process, gSOAP's records and strings included.
void* operator new(size_t size) {
  void* p = std::malloc(size ? size : 1);
  if (!p) throw std::bad_alloc();
  liveObjects.fetch_add(1, std::memory_order_relaxed);
  return p;
}
void* operator new[](size_t size) { return operator new(size); }
void operator delete(void* p) noexcept {
  if (!p) return;
  liveObjects.fetch_sub(1, std::memory_order_relaxed);
  std::free(p);
}
void operator delete[](void* p) noexcept { operator delete(p); }
void operator delete(void* p, size_t) noexcept { operator delete(p); }
void operator delete[](void* p, size_t) noexcept { operator delete(p); }

namespace {

struct Memory {
  double rssKb;
  double heapBytes;
  double objects;
};

Memory memory() {
  long pages = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return {resident * (sysconf(_SC_PAGESIZE) / 1024.0), static_cast<double>(mallinfo2().uordblks),
          static_cast<double>(liveObjects.load())};
}

void BM_RepeatedConnects(benchmark::State& state) {
  vcsim::Simulator sim("administrator@vsphere.local", "vmware");
  long connected = 0;
  Kel::logSinkIs([&](const Kel::LogHandle& h, const Kel::String8&) {
    if (h.id() == "HARBEC_VCENTER_CONNECTED") ++connected;
  });
  ViConfig::Ptr config = viConfigFactory("viConfig");
  config->urlIs(sim.url);
  config->usernameIs("administrator@vsphere.local");
  config->passwordIs("vmware");
  SoapStatus::Ptr soapStatus = soapStatusFactory("soapStatus");
  SessionStatus::Ptr sessionStatus = sessionStatusFactory("sessionStatus");
  HarbecSm::Ptr sm = harbecSmFactory(soapStatus, sessionStatus, "UpdateThread", config, vIFactory("vi"), false);

  // The first connects set up what stays: TLS state, pools, first buffers.
  for (int i = 0; i < 50; ++i) sm->processSoapRequest(connectRequestFactory("warm-up"));
  Memory before = memory();
  long retained = 0;
  for (auto _ : state) {
    ConnectRequest::Ptr request = connectRequestFactory("connect");
    sm->processSoapRequest(request);
    if (request->references() != 1) ++retained;
  }
  Memory after = memory();

  if (connected != 50 + state.iterations() || sessionStatus->sessionState() != sessionConnected)
    state.SkipWithError("a connect failed");
  state.counters["rss_before_kB"] = before.rssKb;
  state.counters["rss_after_kB"] = after.rssKb;
  state.counters["heap_before_B"] = before.heapBytes;
  state.counters["heap_after_B"] = after.heapBytes;
  state.counters["objects_before"] = before.objects;
  state.counters["objects_after"] = after.objects;
  state.counters["requests_retained"] = static_cast<double>(retained);
  Kel::logSinkIs(nullptr);
}
BENCHMARK(BM_RepeatedConnects)->Iterations(1000)->Unit(benchmark::kMillisecond);

}  // namespace
