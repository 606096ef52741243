// What the agent's JSON view costs to make, with its own streaming writer
// and with a document built in nlohmann-json, on the machines' part of the
// view (the largest). The live loop makes the view on every pass, so its
// time and the heap it holds while made are what matter.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <nlohmann/json.hpp>

#include "agent/JsonWriter.h"
#include "agent/Snapshot.h"
#include "agent/SwitchView.h"

namespace {

using HarbecAgent::JsonWriter;
using HarbecAgent::Snapshot;
using HarbecAgent::VmInfo;
using HarbecAgent::VnicInfo;

Snapshot machines(int count) {
  Snapshot s;
  for (int i = 0; i < count; ++i) {
    VmInfo vm;
    vm.ref = "vm-" + std::to_string(i);
    vm.name = "machine-" + std::to_string(i);
    vm.hostRef = "host-" + std::to_string(i / 12);
    vm.poweredOn = i % 3 != 0;
    for (int n = 0; n < 2; ++n) {
      VnicInfo nic;
      nic.key = std::to_string(4000 + n);
      nic.mac = "00:50:56:00:" + std::to_string(10 + i % 90) + ":" + std::to_string(10 + n);
      nic.portGroup = "DVPortGroup-" + std::to_string(i % 40);
      nic.vlans = std::to_string(100 + i % 40);
      nic.vlanPolicy = "vlan";
      nic.portKey = std::to_string(i * 2 + n);
      nic.link = "up";
      vm.nics.push_back(nic);
    }
    s.vms.push_back(vm);
  }
  return s;
}

size_t heapInUse() { return mallinfo2().uordblks; }

void writerVms(JsonWriter& w, const Snapshot& s) {
  w.beginObject().beginArray("vms");
  for (const VmInfo& vm : s.vms) {
    w.beginObject().value("name", vm.name).value("ref", vm.ref).value("power", vm.poweredOn ? "on" : "off");
    w.value("template", vm.isTemplate).value("inMigration", vm.inVmotion).value("hostRef", vm.hostRef);
    w.beginArray("nics");
    for (const VnicInfo& n : vm.nics) {
      w.beginObject().value("key", n.key).value("mac", n.mac).value("portGroup", n.portGroup);
      w.value("vlans", n.vlans).value("vlanPolicy", n.vlanPolicy).value("portKey", n.portKey);
      w.value("link", n.link).endObject();
    }
    w.endArray().endObject();
  }
  w.endArray().endObject();
}

nlohmann::ordered_json documentVms(const Snapshot& s) {
  nlohmann::ordered_json vms = nlohmann::ordered_json::array();
  for (const VmInfo& vm : s.vms) {
    nlohmann::ordered_json nics = nlohmann::ordered_json::array();
    for (const VnicInfo& n : vm.nics)
      nics.push_back({{"key", n.key}, {"mac", n.mac}, {"portGroup", n.portGroup}, {"vlans", n.vlans},
                      {"vlanPolicy", n.vlanPolicy}, {"portKey", n.portKey}, {"link", n.link}});
    vms.push_back({{"name", vm.name}, {"ref", vm.ref}, {"power", vm.poweredOn ? "on" : "off"},
                   {"template", vm.isTemplate}, {"inMigration", vm.inVmotion}, {"hostRef", vm.hostRef},
                   {"nics", std::move(nics)}});
  }
  return {{"vms", std::move(vms)}};
}

void BM_VmsWithJsonWriter(benchmark::State& state) {
  const Snapshot s = machines(static_cast<int>(state.range(0)));
  size_t held = 0, bytes = 0;
  for (auto _ : state) {
    const size_t before = heapInUse();
    JsonWriter w(false);
    writerVms(w, s);
    held = heapInUse() - before;
    bytes = w.text().size();
    benchmark::DoNotOptimize(w.text().data());
  }
  state.counters["heldMB"] = static_cast<double>(held) / 1e6;
  state.counters["textMB"] = static_cast<double>(bytes) / 1e6;
}

void BM_VmsWithNlohmann(benchmark::State& state) {
  const Snapshot s = machines(static_cast<int>(state.range(0)));
  size_t held = 0, bytes = 0;
  for (auto _ : state) {
    const size_t before = heapInUse();
    nlohmann::ordered_json doc = documentVms(s);
    const std::string text = doc.dump();
    held = heapInUse() - before;
    bytes = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.counters["heldMB"] = static_cast<double>(held) / 1e6;
  state.counters["textMB"] = static_cast<double>(bytes) / 1e6;
}

// The whole view as the agent makes it, for scale.
void BM_WholeView(benchmark::State& state) {
  const Snapshot s = machines(static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(HarbecAgent::renderJson(s, false));
}

BENCHMARK(BM_VmsWithJsonWriter)->Arg(5200)->Arg(48000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_VmsWithNlohmann)->Arg(5200)->Arg(48000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WholeView)->Arg(5200)->Arg(48000)->Unit(benchmark::kMillisecond);

}  // namespace
