// Arm plus cancel of one timer with a million pending: the wheel against the clock's multimap, in
// one run so that the ratio holds on a noisy machine. And the membership refresh pattern: one of the
// million pending timers, picked at random, pushed later.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "kernel/TimerWheel.h"

namespace {

constexpr size_t pendingCount = 1000000;
constexpr size_t probeTimes = 4096;
constexpr Kiv::Seconds start = 1.7e9;

struct Setup {
  Setup() : clock(Kiv::make<Kiv::Clock>()) {
    clock->virtualTimeIs(start);
    wheel = Bez::TimerWheelIs(clock, 100, 108200, true, 1024);
    uint64_t seed = 42;
    auto spread = [&seed] {
      seed = seed * 6364136223846793005ull + 1442695040888963407ull;
      return start + static_cast<double>(seed >> 11) / static_cast<double>(1ull << 53) * 3 * 3600;
    };
    wheelTimers.reset(new Bez::TimerWheel::NotifieeConst[pendingCount]);
    clockTimers.reset(new Kiv::Clock::NotifieeConst[pendingCount]);
    for (size_t i = 0; i < pendingCount; ++i) {
      wheelTimers[i].notifierIs(wheel);
      wheelTimers[i].timeMinIs(spread());
      clockTimers[i].notifierIs(clock);
      clockTimers[i].timeMinIs(spread());
    }
    for (size_t i = 0; i < probeTimes; ++i) times.push_back(spread());
    wheelProbe.notifierIs(wheel);
    clockProbe.notifierIs(clock);
  }
  Kiv::Ptr<Kiv::Clock> clock;
  Kiv::Ptr<Bez::TimerWheel> wheel;
  std::unique_ptr<Bez::TimerWheel::NotifieeConst[]> wheelTimers;
  std::unique_ptr<Kiv::Clock::NotifieeConst[]> clockTimers;
  std::vector<Kiv::Seconds> times;
  Bez::TimerWheel::NotifieeConst wheelProbe;
  Kiv::Clock::NotifieeConst clockProbe;
};

Setup& setup() {
  static Setup s;
  return s;
}

double wheelNs = 0, multimapNs = 0;
uint64_t wheelAllocs = 0;

template <class Notifiee>
double armCancel(benchmark::State& state, Notifiee& n) {
  const std::vector<Kiv::Seconds>& times = setup().times;
  size_t i = 0;
  const auto t0 = std::chrono::steady_clock::now();
  for (auto _ : state) {
    n.timeMinIs(times[i++ & (probeTimes - 1)]);
    n.timeMinIs(Kiv::infinity);
  }
  const double ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count();
  return ns / static_cast<double>(state.iterations());
}

void BM_WheelArmCancel(benchmark::State& state) {
  Setup& s = setup();
  const uint64_t allocs = Bench::allocations();
  wheelNs = armCancel(state, s.wheelProbe);
  wheelAllocs = Bench::allocations() - allocs;
}
BENCHMARK(BM_WheelArmCancel);

void BM_MultimapArmCancel(benchmark::State& state) { multimapNs = armCancel(state, setup().clockProbe); }
BENCHMARK(BM_MultimapArmCancel);

double rearmNs = 0;

void BM_WheelRearmScattered(benchmark::State& state) {
  Setup& s = setup();
  uint64_t seed = 7;
  const auto t0 = std::chrono::steady_clock::now();
  for (auto _ : state) {
    seed = seed * 6364136223846793005ull + 1442695040888963407ull;
    Bez::TimerWheel::NotifieeConst& n = s.wheelTimers[(seed >> 33) % pendingCount];
    n.timeMinIs(n.timeMin() + 0.25);
  }
  const double ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count();
  rearmNs = ns / static_cast<double>(state.iterations());
}
BENCHMARK(BM_WheelRearmScattered);

void BM_Report(benchmark::State& state) {
  for (auto _ : state) {
  }
  static bool done = false;
  if (done) return;
  done = true;
  Bench::result("wheel_arm_cancel_ns", wheelNs, "ns");
  Bench::result("multimap_arm_cancel_ns", multimapNs, "ns");
  Bench::result("wheel_speedup", multimapNs / wheelNs, "x");
  Bench::result("wheel_arm_cancel_allocations", static_cast<double>(wheelAllocs), "count");
  Bench::result("wheel_rearm_scattered_ns", rearmNs, "ns");
}
BENCHMARK(BM_Report)->Iterations(1);

}  // namespace

BENCH_MAIN()
