// The cost of trace statements: a ring write per message, and a text trace that is off.
#include <benchmark/benchmark.h>

#include <chrono>

#include "bench/support/BenchSupport.h"
#include "kernel/ActivityManager.h"
#include "kernel/Trace.h"

namespace {

double nanosSince(std::chrono::steady_clock::time_point start, int64_t n) {
  return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() /
         double(n);
}

Kiv::TraceHandle benchHandle("IgmpSnoopingBench", false);

void ringWrite(benchmark::State& state) {
  // As inside a turn of the loop, where one clock reading stamps every message of a phase.
  Kiv::VirtualTime virtualTime(1e6);
  Vellum::snoopVlHandle = Vellum::initialize_handle("IgmpSnoopingBench", std::vector<uint32_t>(10, 30));
  std::string intf = "Ethernet12";
  uint32_t group = 0x010101ef;
  uint64_t allocs = Bench::allocations();
  int64_t n = 0;
  auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    KIV_TRACE(benchHandle, 6,
              "Membership of group " << Vellum::Ipv4{group} << " by reporter " << n << " on interface "
                                     << intf << " began.");
    ++n;
  }
  Bench::result("ring_write_ns_per_msg", nanosSince(start, n), "ns");
  Bench::result("ring_write_allocs_per_msg", double(Bench::allocations() - allocs) / double(n), "allocs");
  delete Vellum::snoopVlHandle;
  Vellum::snoopVlHandle = nullptr;
}
BENCHMARK(ringWrite);

void textTraceOff(benchmark::State& state) {
  int64_t n = 0;
  auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    KIV_TRACE(benchHandle, 6, "never built " << n);
    benchmark::DoNotOptimize(++n);
  }
  Bench::result("text_trace_off_ns_per_stmt", nanosSince(start, n), "ns");
}
BENCHMARK(textTraceOff);

}  // namespace

BENCH_MAIN()
