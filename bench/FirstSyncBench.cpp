// The first full sync of a large inventory (the vCenter simulator with 200
// hosts and 5,000 machines unless HARBEC_BENCH_VCSIM_ARGS says otherwise),
// side by side:
//
//   Library   ConnectRequest, then the timed CheckForUpdatesRequest on an
//             "UpdateThread" session, in a forked child so that its peak is
//             its own; targets: CPU under 0.35 s, peak under 60 MB.
//   Govmomi   testing/peers/govclient, the same filter, in its own process.
//   Floor     the same reply read off the socket over TLS and dropped.
//
// Each reports the median over its iterations of wall time (the benchmark's
// own time), client CPU time (cpu_s) and the client's resident high-water
// mark (peak_MB; base_MB is the resident size before the sync). The
// simulator is a separate process: its time shows in wall time only.
// UpdateLinkStatus is one walk of the synced tree for a port key no NIC has.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <vector>

#include "peers/VcSim.h"
#include "session/updates/UpdateHandlers.h"
#include "support/Figures.h"
#include "peers/GovClient.h"
#include "support/LibrarySession.h"
#include "support/RawSoap.h"

namespace {

std::vector<std::string> simulatorArgs() {
  const char* env = std::getenv("HARBEC_BENCH_VCSIM_ARGS");
  std::istringstream in(env ? env : "-standalone-host 0 -cluster 4 -host 50 -vm 25");
  std::vector<std::string> args;
  for (std::string a; in >> a;) args.push_back(a);
  return args;
}

// HARBEC_BENCH_VCSIM_URL names a simulator that runs already, for a
// profiler that should see the clients alone.
std::string simulatorUrl() {
  if (const char* env = std::getenv("HARBEC_BENCH_VCSIM_URL")) return env;
  static vcsim::Simulator sim(bench::kUser, bench::kPassword, simulatorArgs(), 600000);
  return sim.url;
}

double median(std::vector<double> v) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

// Runs `once` per iteration and reports the medians of its figures.
template <typename Once>
void run(benchmark::State& state, Once once, const char* countName) {
  std::vector<double> cpu, sys, peak, base, count;
  for (auto _ : state) {
    figures::Figures f = once();
    if (!f.ok) {
      state.SkipWithError("the sync failed");
      return;
    }
    state.SetIterationTime(f.wallS);
    cpu.push_back(f.cpuS);
    sys.push_back(f.sysS);
    peak.push_back(static_cast<double>(f.peakKb) / 1024);
    base.push_back(static_cast<double>(f.baseKb) / 1024);
    count.push_back(static_cast<double>(f.count[0]));
  }
  state.counters["cpu_s"] = median(cpu);
  state.counters["sys_s"] = median(sys);
  state.counters["peak_MB"] = median(peak);
  state.counters["base_MB"] = median(base);
  state.counters[countName] = median(count);
}

void BM_FirstSync_Library(benchmark::State& state) {
  std::string url = simulatorUrl();
  std::vector<double> hosts;
  run(
      state,
      [&] {
        std::unique_ptr<bench::LibrarySession> session;
        figures::Figures f = figures::measureInChild(
            [&] {
              bench::quietLogs();
              session = std::make_unique<bench::LibrarySession>(url);
              session->connect();
              if (!session->connected()) throw std::runtime_error("not connected");
            },
            [&](figures::Figures& f) {
              session->checkForUpdates();
              f.count[0] = session->vms();
              f.count[1] = session->hosts();
              f.ok = f.count[0] > 0;
            });
        hosts.push_back(static_cast<double>(f.count[1]));
        return f;
      },
      "vms");
  state.counters["hosts"] = median(hosts);
}
BENCHMARK(BM_FirstSync_Library)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_FirstSync_Govmomi(benchmark::State& state) {
  std::string url = simulatorUrl();
  run(
      state,
      [&] {
        govclient::SyncFigures g = govclient::firstSync(url);
        figures::Figures f;
        f.count[0] = g.objects;
        f.wallS = g.wallS;
        f.cpuS = g.cpuS;
        f.peakKb = g.peakKb;
        f.baseKb = g.baseKb;
        f.ok = g.objects > 0;
        return f;
      },
      "objects");
}
BENCHMARK(BM_FirstSync_Govmomi)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_FirstSync_Floor(benchmark::State& state) {
  std::string url = simulatorUrl();
  run(
      state,
      [&] {
        std::unique_ptr<rawsoap::Client> client;
        std::unique_ptr<rawsoap::Client::Connection> connection;
        return figures::measureInChild(
            [&] {
              client = std::make_unique<rawsoap::Client>(url);
              client->login(bench::kUser, bench::kPassword);
              client->createFilter();
              connection = std::make_unique<rawsoap::Client::Connection>(*client);
            },
            [&](figures::Figures& f) {
              f.count[0] = static_cast<long>(connection->drain(client->request(client->checkForUpdatesBody(""))));
              f.ok = f.count[0] > 0;
            });
      },
      "bytes");
}
BENCHMARK(BM_FirstSync_Floor)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);

// Last: the tree it builds stays in this process's heap.
void BM_UpdateLinkStatus(benchmark::State& state) {
  bench::quietLogs();
  bench::LibrarySession session(simulatorUrl());
  session.connect();
  session.checkForUpdates();
  if (session.vms() == 0) {
    state.SkipWithError("the sync failed");
    return;
  }
  {
    // As in the update loop, which holds the lock when events arrive.
    Kel::ActivityLockAnchor anchor;
    for (auto _ : state) Harbec::updateLinkStatus(session.vi, "no-such-port", Interface::linkStatusUp);
  }
  state.counters["vms"] = static_cast<double>(session.vms());
  state.counters["hosts"] = static_cast<double>(session.hosts());
}
BENCHMARK(BM_UpdateLinkStatus)->Unit(benchmark::kMicrosecond);

}  // namespace
