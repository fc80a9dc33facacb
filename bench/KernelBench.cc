// Pointer copies and hash lookups: the two operations the packet path does most.
#include <benchmark/benchmark.h>

#include <vector>

#include "bench/support/BenchSupport.h"
#include "kernel/HashMap.h"
#include "kernel/Ptr.h"
#include "kernel/String.h"

namespace {

struct Obj : Kiv::PtrInterface, Kiv::HashLink<Obj> {
  explicit Obj(uint32_t k) : key(k) {}
  uint32_t key;
};
struct ObjKey {
  const uint32_t& operator()(const Obj& o) const { return o.key; }
};

void BM_PtrCopy(benchmark::State& state) {
  Kiv::Ptr<Obj> p = Kiv::make<Obj>(1);
  for (auto _ : state) {
    Kiv::Ptr<Obj> q = p;
    benchmark::DoNotOptimize(q);
  }
}

// Lookups that hit, in a map of 32,768 entries, visiting keys in a scattered order.
void BM_HashMapLookupHit(benchmark::State& state) {
  Kiv::HashMap<uint32_t, Obj, ObjKey> map;
  constexpr uint32_t n = 32768;
  for (uint32_t k = 0; k < n; ++k) map.insert(k * 7919u, Kiv::make<Obj>(k * 7919u));
  std::vector<uint32_t> keys;
  for (uint32_t i = 0; i < n; ++i) keys.push_back(((i * 2654435761u) % n) * 7919u);
  size_t i = 0;
  uint64_t before = Bench::allocations();
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(keys[i]));
    i = (i + 1) & (n - 1);
  }
  double allocs = double(Bench::allocations() - before) / double(state.iterations());
  Bench::result("hashmap_lookup_allocs", allocs, "allocs");
}

// Same with interned-string keys, as the per-interface counters are found.
void BM_HashMap2018LookupString(benchmark::State& state) {
  Kiv::HashMap2018<Kiv::Name, uint32_t> map;
  std::vector<Kiv::Name> keys;
  for (uint32_t k = 0; k < 256; ++k) {
    keys.push_back(Kiv::format("Ethernet%u", k));
    map.set(keys.back(), k);
  }
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(keys[i]));
    i = (i + 1) & 255;
  }
}

BENCHMARK(BM_PtrCopy);
BENCHMARK(BM_HashMapLookupHit);
BENCHMARK(BM_HashMap2018LookupString);

// Reports per-iteration times as RESULT lines after the runs.
class Reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      double ns = r.GetAdjustedRealTime();
      if (r.benchmark_name() == "BM_PtrCopy") Bench::result("ptr_copy_ns", ns, "ns");
      if (r.benchmark_name() == "BM_HashMapLookupHit") Bench::result("hashmap_lookup_hit_ns", ns, "ns");
      if (r.benchmark_name() == "BM_HashMap2018LookupString")
        Bench::result("hashmap_string_lookup_ns", ns, "ns");
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  Bench::printResults();
  return 0;
}
