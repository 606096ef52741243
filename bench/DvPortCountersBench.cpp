// DV port counters at scale, against the vCenter simulator with 200 hosts
// and 5,000 machines of two cards each: 10,000 connected machine ports.
// BM_UpdateCounters times the client's side alone, the writing of one
// FetchDVPorts reply of 10,000 ports onto the inventory (target: under
// 50 ms); BM_FetchDvPortRequest the whole request, from the queue of port
// numbers through the SOAP exchange to the inventory.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>

#include "Kel/Log.h"
#include "peers/VcSim.h"
#include "session/ports/PortOperations.h"
#include "support/LibrarySession.h"

using namespace Harbec;

namespace {

// One simulator, and one session with the inventory synced, for all runs.
struct Scale {
  Scale()
      : sim(bench::kUser, bench::kPassword,
            {"-standalone-host", "0", "-cluster", "4", "-host", "50", "-vm", "25", "-vm-nics", "2"}, 600000),
        session(sim.url) {
    bench::quietLogs();
    session.connect();
    session.checkForUpdates();
    // The plain road names no switch; here it reaches the one switch.
    sim.call("POST", "/options", "{\"emptyDvsRef\":\"dvs-9\"}");
    for (const vcsim::Simulator::DvPort& p : sim.dvPorts("dvs-9"))
      if (p.connecteeType == "vmVnic") machinePorts.push_back(static_cast<unsigned>(std::stoul(p.key)));
  }
  vcsim::Simulator sim;
  bench::LibrarySession session;
  std::vector<unsigned> machinePorts;
};

Scale& scale() {
  static Scale* s = new Scale();
  return *s;
}

void BM_UpdateCounters(benchmark::State& state) {
  Scale& s = scale();
  // One reply of all machine ports, kept in the soap context for the run.
  ns2__DistributedVirtualSwitchPortCriteria criteria;
  criteria.connected = &xsd_true;
  for (unsigned p : s.machinePorts) criteria.portKey.push_back(std::to_string(p));
  ns2__FetchDVPortsRequestType request;
  request._USCOREthis = &dvsMor;
  request.criteria = &criteria;
  _ns2__FetchDVPortsResponse response;
  auto start = std::chrono::steady_clock::now();
  if (s.session.sm->vim()->__ns2__FetchDVPorts(&request, &response) != SOAP_OK) {
    state.SkipWithError("FetchDVPorts failed");
    return;
  }
  double fetchSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  for (auto _ : state) updateCounters(s.session.sm, response);
  // Every machine card of the inventory has been written.
  double written = 0;
  for (VI::VmIterator i = s.session.vi->vmIterator(); i; ++i)
    for (Vm::VnicIterator n = i.value()->vnicIterator(); n; ++n) written += n.value()->counterRefreshTime() > 0;
  state.counters["nicsWritten"] = written;
  state.counters["ports"] = static_cast<double>(response.returnval.size());
  state.counters["fetchSeconds"] = fetchSeconds;
  s.session.sm->vim()->freeSoapMemory();
}
BENCHMARK(BM_UpdateCounters)->Unit(benchmark::kMillisecond)->MinTime(2.0);

void BM_FetchDvPortRequest(benchmark::State& state) {
  Scale& s = scale();
  for (auto _ : state) {
    FetchDvPortRequest::Ptr request = fetchDvPortRequestFactory("fetch");
    for (unsigned p : s.machinePorts) request->dvPortEnq(p);
    s.session.sm->processSoapRequest(request);
  }
  state.counters["ports"] = static_cast<double>(s.machinePorts.size());
}
BENCHMARK(BM_FetchDvPortRequest)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
