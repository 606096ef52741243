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
// They take turns within each iteration. Each reports the median over the
// iterations of its wall time (wall_s), client CPU time (cpu_s) and the
// client's resident high-water mark (peak_MB; base_MB is the resident size
// before the sync). The simulator is a separate process: its time shows in
// wall time only.
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

// One first sync of the library; count[0] the machines, count[1] the hosts.
figures::Figures librarySync(const std::string& url) {
  std::unique_ptr<bench::LibrarySession> session;
  return figures::measureInChild(
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
}

// count[0]: the objects of the reply.
figures::Figures govmomiSync(const std::string& url) {
  govclient::SyncFigures g = govclient::firstSync(url);
  figures::Figures f;
  f.count[0] = g.objects;
  f.wallS = g.wallS;
  f.cpuS = g.cpuS;
  f.peakKb = g.peakKb;
  f.baseKb = g.baseKb;
  f.ok = g.objects > 0;
  return f;
}

// count[0]: the bytes of the reply.
figures::Figures floorSync(const std::string& url) {
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
}

struct Client {
  const char* name;
  figures::Figures (*sync)(const std::string&);
  const char* counts[2];  // names of count[0] and count[1], if reported
  std::vector<figures::Figures> runs;
};

// The clients take turns, a sync each per iteration, so that a slower
// spell of the machine (they come and go over minutes here) falls on all
// of them alike. Counters "Library.cpu_s" and so on: medians per client.
void BM_FirstSync(benchmark::State& state) {
  const std::string url = simulatorUrl();
  Client clients[] = {{"Library", librarySync, {"vms", "hosts"}, {}},
                      {"Govmomi", govmomiSync, {"objects", nullptr}, {}},
                      {"Floor", floorSync, {"bytes", nullptr}, {}}};
  for (auto _ : state)
    for (Client& c : clients) {
      c.runs.push_back(c.sync(url));
      if (!c.runs.back().ok) {
        state.SkipWithError((std::string(c.name) + ": the sync failed").c_str());
        return;
      }
    }
  for (const Client& c : clients) {
    auto counter = [&](const char* name, auto of) {
      std::vector<double> v;
      for (const figures::Figures& f : c.runs) v.push_back(static_cast<double>(of(f)));
      state.counters[std::string(c.name) + "." + name] = median(v);
    };
    counter("wall_s", [](const figures::Figures& f) { return f.wallS; });
    counter("cpu_s", [](const figures::Figures& f) { return f.cpuS; });
    counter("sys_s", [](const figures::Figures& f) { return f.sysS; });
    counter("peak_MB", [](const figures::Figures& f) { return f.peakKb / 1024.0; });
    counter("base_MB", [](const figures::Figures& f) { return f.baseKb / 1024.0; });
    for (int i = 0; i < 2; ++i)
      if (c.counts[i]) counter(c.counts[i], [i](const figures::Figures& f) { return f.count[i]; });
  }
}
BENCHMARK(BM_FirstSync)->Iterations(5)->Unit(benchmark::kSecond);

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
