// Costs of the object layer's hot paths: notifying setters, keyed lookup
// with vCenter-like names, and string copies.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "Kel/Record.h"

namespace KelBench {

#define KELBENCH_GAUGE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(count, Count, unsigned, 0)                                     \
  SCALAR(label, Label, Kel::String8, Kel::String8())

class Gauge : public Kel::Entity {
  KEL_RECORD(KelBench, Gauge, Kel::Entity, KELBENCH_GAUGE_ATTRIBUTES)
 protected:
  explicit Gauge(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(Gauge, gaugeFactory)

class Reader : public Gauge::NotifieeConst {
 public:
  unsigned heard = 0;
  void onCount() override { ++heard; }
};

void AttributeWrite(benchmark::State& state) {
  const int listeners = static_cast<int>(state.range(0));
  auto g = gaugeFactory("g");
  std::vector<Reader> readers(static_cast<size_t>(listeners));
  for (Reader& r : readers) r.notifierIs(g);
  unsigned v = 0;
  for (auto _ : state) g->countIs(++v);
  state.counters["listeners"] = listeners;
}
BENCHMARK(AttributeWrite)->Arg(0)->Arg(1)->Arg(4);

void AttributeWritePresentValue(benchmark::State& state) {
  auto g = gaugeFactory("g");
  Reader r;
  r.notifierIs(g);
  g->labelIs("vm-1234");
  Kel::String8 same = Kel::String8(std::string("vm-1234"));
  for (auto _ : state) g->labelIs(same);
  if (r.heard != 0) state.SkipWithError("a no-op write notified");
}
BENCHMARK(AttributeWritePresentValue);

constexpr unsigned kKeys = 100000;

std::vector<Kel::Name> names() {
  std::vector<Kel::Name> out;
  out.reserve(kKeys);
  for (unsigned i = 0; i < kKeys; ++i) out.push_back(Kel::format("vm-%u", 1000 + i));
  return out;
}

void HashMapInsert(benchmark::State& state) {
  const std::vector<Kel::Name> keys = names();
  for (auto _ : state) {
    Kel::HashMap<unsigned, Kel::Name> m;
    for (unsigned i = 0; i < kKeys; ++i) m.set(keys[i], i);
    benchmark::DoNotOptimize(m.size());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kKeys);
}
BENCHMARK(HashMapInsert)->Unit(benchmark::kMillisecond);

void HashMapLookup(benchmark::State& state) {
  const std::vector<Kel::Name> keys = names();
  Kel::HashMap<unsigned, Kel::Name> m;
  for (unsigned i = 0; i < kKeys; ++i) m.set(keys[i], i);
  // Fresh copies of the text, as a lookup by a name that came off the wire.
  std::vector<Kel::Name> probes;
  for (const Kel::Name& k : keys) probes.push_back(Kel::Name(k.str()));
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(m.find(probes[i]));
    if (++i == kKeys) i = 0;
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(HashMapLookup);

void String8Copy(benchmark::State& state) {
  Kel::String8 s = "datacenter-21/host/cluster-7/host-42";
  for (auto _ : state) {
    Kel::String8 copy = s;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(String8Copy);

}  // namespace KelBench
