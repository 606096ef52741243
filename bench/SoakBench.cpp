// Soak: the library's loops run for long, and the process's resident size,
// open descriptors and threads are sampled at every tenth of the run. After
// the first tenth (the warm-up) they should stay flat: growth is a leak.
//
//   BM_UpdateSets      1,000,000 WaitForUpdates replies through the reader
//                      and the handlers, on a synced inventory: a machine
//                      renamed and powered, another entered and left
//   BM_Reconnects      10,000 connects of the update session (login and
//                      filters) against the simulator, a sync every 100th
//   BM_VshieldPolls    100,000 requests of the vShield session against the
//                      stand-in, the heartbeat and the five data requests
//   BM_SupervisorRestarts  10,000 children of the agent's supervisor that
//                      fail at once and are started again
//
// HARBEC_SOAK_SCALE (default 1) multiplies every count. Not run in CI.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/mman.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "agent/Supervisor.h"
#include "peers/VcSim.h"
#include "peers/VsmStub.h"
#include "session/HarbecSmInternal.h"
#include "support/Figures.h"
#include "support/LibrarySession.h"
#include "vshield/VmwareVsSm.h"

using namespace Harbec;

namespace {

long count(long full) {
  const char* env = std::getenv("HARBEC_SOAK_SCALE");
  return std::max(10L, static_cast<long>(static_cast<double>(full) * (env ? std::atof(env) : 1.0)));
}

struct Sample {
  long rssKb, fds, threads;
};

Sample sample() {
  long fds = 0;
  for (auto i = std::filesystem::directory_iterator("/proc/self/fd"); i != std::filesystem::directory_iterator(); ++i)
    ++fds;
  return {figures::statusKb("VmRSS"), fds, figures::statusKb("Threads")};
}

double growth(long from, long to) { return from ? 100.0 * static_cast<double>(to - from) / static_cast<double>(from) : 0; }

// Runs step(i) n times, samples at every tenth, and reports the samples
// after the warm-up and at the end, and the growth between them.
void soak(benchmark::State& state, const char* name, long n, const std::function<void(long)>& step) {
  for (auto _ : state) {
    std::vector<Sample> samples;
    double start = figures::monotonicSeconds();
    for (long i = 0; i < n; ++i) {
      step(i);
      if ((i + 1) % std::max(1L, n / 10) == 0) samples.push_back(sample());
    }
    double seconds = figures::monotonicSeconds() - start;
    const Sample& warm = samples.front();
    const Sample& end = samples.back();
    state.counters["n"] = static_cast<double>(n);
    state.counters["perSecond"] = static_cast<double>(n) / seconds;
    state.counters["rssKb0"] = static_cast<double>(warm.rssKb);
    state.counters["rssKb"] = static_cast<double>(end.rssKb);
    state.counters["rssGrowth%"] = growth(warm.rssKb, end.rssKb);
    state.counters["fds0"] = static_cast<double>(warm.fds);
    state.counters["fds"] = static_cast<double>(end.fds);
    state.counters["threads0"] = static_cast<double>(warm.threads);
    state.counters["threads"] = static_cast<double>(end.threads);
    std::fprintf(stderr, "%s samples (RSS kB/fds/threads):", name);
    for (const Sample& s : samples) std::fprintf(stderr, " %ld/%ld/%ld", s.rssKb, s.fds, s.threads);
    std::fprintf(stderr, "\n");
  }
}

vcsim::Simulator& simulator() {
  static auto* sim = new vcsim::Simulator(bench::kUser, bench::kPassword);
  return *sim;
}

std::string updateSet(long i, const std::string& vm, const std::string& host) {
  const std::string value = R"(<val xsi:type="xsd:string">)";
  std::ostringstream o;
  o << R"(<?xml version="1.0" encoding="UTF-8"?><soapenv:Envelope xmlns:soapenv="http://schemas.xmlsoap.org/soap/envelope/" )"
    << R"(xmlns:xsd="http://www.w3.org/2001/XMLSchema" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance">)"
    << R"(<soapenv:Body><WaitForUpdatesResponse xmlns="urn:vim25"><returnval><version>)" << i
    << R"(</version><filterSet><filter type="PropertyFilter">soak</filter><objectSet><kind>modify</kind>)"
    << R"(<obj type="VirtualMachine">)" << vm << "</obj><changeSet><name>name</name><op>assign</op>" << value
    << "soak-" << i % 1000 << R"(</val></changeSet><changeSet><name>runtime.powerState</name><op>assign</op>)"
    << R"(<val xsi:type="VirtualMachinePowerState">)" << (i % 2 ? "poweredOff" : "poweredOn")
    << "</val></changeSet></objectSet><objectSet><kind>" << (i % 2 ? "leave" : "enter")
    << R"(</kind><obj type="VirtualMachine">vm-soak</obj>)";
  if (i % 2 == 0)
    o << "<changeSet><name>name</name><op>assign</op>" << value << "passing</val></changeSet>"
      << R"(<changeSet><name>runtime.host</name><op>assign</op><val type="HostSystem" xsi:type="ManagedObjectReference">)"
      << host << "</val></changeSet>";
  o << "</objectSet></filterSet></returnval></WaitForUpdatesResponse></soapenv:Body></soapenv:Envelope>";
  return o.str();
}

void BM_UpdateSets(benchmark::State& state) {
  bench::quietLogs();
  bench::LibrarySession s(simulator().url);
  s.connect();
  s.checkForUpdates();
  std::string vm, host;
  {
    Kel::ActivityLockAnchor anchor;
    for (auto i = s.vi->vmIterator(); i && vm.empty(); ++i)
      if (i.key().str().rfind("vm-", 0) == 0) vm = i.key().str();
    host = s.vi->esxHostIterator().key().str();
  }
  VimBinding* vim = s.sm->vim();
  soak(state, "update sets", count(1000000), [&](long i) {
    std::istringstream in(updateSet(i, vm, host));
    vim->soap->is = &in;
    _ns2__WaitForUpdatesResponse reply;
    if (soap_recv___ns2__WaitForUpdates(vim->soap, reply) != SOAP_OK || !reply.returnval) std::abort();
    processUpdateSet(s.sm, reply.returnval);
    vim->soap->is = nullptr;
    vim->freeSoapMemory();
  });
}
BENCHMARK(BM_UpdateSets)->Iterations(1)->Unit(benchmark::kSecond);

void BM_Reconnects(benchmark::State& state) {
  bench::quietLogs();
  bench::LibrarySession s(simulator().url);
  soak(state, "reconnects", count(10000), [&](long i) {
    s.connect();
    if (!s.connected()) std::abort();
    if (i % 100 == 0) s.checkForUpdates();
  });
}
BENCHMARK(BM_Reconnects)->Iterations(1)->Unit(benchmark::kSecond);

void BM_VshieldPolls(benchmark::State& state) {
  bench::quietLogs();
  vsmstub::Stub stub;
  const struct {
    VsDataType type;
    const char *path, *generator;
  } kinds[] = {{vsHeartBeat, "api/2.0/global/heartbeat", "heartbeat"},
               {vsVxlanSegment, "api/2.0/vdn/virtualwires", "virtualWires"},
               {vsNetworkScope, "api/2.0/vdn/scopes", "vdnScopes"},
               {vsCluster, "api/2.0/vdn/switches", "clusterMappings"},
               {vsMulticastAddrRange, "api/2.0/vdn/config/multicasts", "multicastRanges"},
               {vsVniRange, "api/2.0/vdn/config/segments", "segmentRanges"}};
  for (const auto& k : kinds)
    stub.serve(k.path, std::string(R"("generate":{"kind":")") + k.generator + R"(","count":50})");
  VsConfig::Ptr config = vsConfigFactory("vsConfig");
  config->urlIs(stub.url);
  config->usernameIs("admin");
  config->passwordIs("default");
  config->proxyIs("direct");
  VS::Ptr vs = vSFactory("vs");
  VmwareVsSm::Ptr sm = vmwareVsSmFactory(restStatusFactory("rest"), sessionStatusFactory("session"), config, vs, false);
  soak(state, "vShield polls", count(100000), [&](long i) {
    const auto& kind = kinds[i % 6];
    RestRequest::Ptr request = restRequestFactory("poll", kind.type, httpGET);
    request->endPointIs(kind.path);
    sm->processRestRequest(request);
  });
  Kel::ActivityLockAnchor anchor;
  state.counters["wires"] = static_cast<double>(vs->vxlanSegments());
}
BENCHMARK(BM_VshieldPolls)->Iterations(1)->Unit(benchmark::kSecond);

void BM_SupervisorRestarts(benchmark::State& state) {
  // The children count themselves here; the last of a round stops it.
  auto* started = static_cast<std::atomic<long>*>(
      mmap(nullptr, sizeof(std::atomic<long>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  new (started) std::atomic<long>(0);
  std::ofstream devNull("/dev/null");
  HarbecAgent::SupervisorOptions options;
  options.firstDelay = options.maxDelay = 0;
  const long n = count(10000), round = std::max(1L, n / 10);
  soak(state, "supervisor restarts", 10, [&](long i) {
    const long last = (i + 1) * round;
    HarbecAgent::supervise(
        [&] {
          if (++*started >= last) kill(getppid(), SIGTERM);
          std::fputs("failing at once\n", stderr);
          return 1;
        },
        options, devNull);
  });
  state.counters["children"] = static_cast<double>(started->load());
  munmap(started, sizeof(std::atomic<long>));
}
BENCHMARK(BM_SupervisorRestarts)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
