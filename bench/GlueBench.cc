// The VLAN glue at scale: version 2 reports as on the wire go into the port multiplexers, through the
// VLAN glue and the core, and their forwarding through the flooder into memory packet access; a
// million memberships over 32,768 groups, 4 access ports and 8 reporters per group and port, a router
// behind a trunk. Prints the join that adds a port to an Ethernet group and publishes it, the refresh,
// and the refresh of the same core fed directly (the core's own cost) measured in the same run.
// With IGMPSNOOP_GLUE_BENCH_REFRESHES=N only a population of 65,536 and N refreshes run: the
// profiling mode, for callgrind.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <span>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "tests/support/GlueLab.h"

namespace {

using namespace Bridging::IgmpSnooping;
using Lomax::IpAddr;

constexpr uint32_t groupCount = 32768;
constexpr uint32_t portCount = 4;
constexpr uint32_t reportersPerPort = 8;
constexpr uint32_t memberships = 1000000;
// The joins that each add a port to an Ethernet group: the first reporter of every group and port.
constexpr uint32_t portJoins = groupCount * portCount;
constexpr Kiv::Seconds reportGap = 50e-6;
constexpr uint32_t reportsPerTurn = 1024;
const char* const portNames[portCount] = {"Ethernet1", "Ethernet2", "Ethernet3", "Ethernet4"};

// Report i: its group cycles fastest, then the port, then the reporter of that group and port.
struct Report {
  uint32_t port;
  std::vector<uint8_t> bytes;
};
Report report(uint32_t i) {
  const uint32_t g = i % groupCount, p = (i / groupCount) % portCount, k = i / (groupCount * portCount);
  const IpAddr reporter =
      IpAddr::fromHost(0x0a000000 | (p + 1) << 16 | (g * reportersPerPort + k + 1) % 65536);
  auto pkt = Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0, 1), reporter)
                 .igmpV2Report(IpAddr::fromHost(0xef010000 + g));
  return {p, {pkt->data(), pkt->data() + pkt->len()}};
}

struct Frames {
  std::vector<Report> reports;
  template <class Order>
  Frames(uint32_t count, Order order) {
    reports.reserve(count);
    for (uint32_t i = 0; i < count; ++i) reports.push_back(report(order(i)));
  }
};
auto inOrder() {
  return [](uint32_t i) { return i; };
}
auto scattered(uint32_t n) {
  return [n](uint32_t i) { return static_cast<uint32_t>((uint64_t(i) * 999983u) % n); };
}

// A switch of one VLAN: four access ports and a trunk to the router.
struct Scene {
  Scene() : lab(1e6) {
    for (const char* p : portNames) lab.addPort(p, 10);
    lab.addPort("Ethernet5");
    lab.addVlan(10, {{"Ethernet1", false},
                     {"Ethernet2", false},
                     {"Ethernet3", false},
                     {"Ethernet4", false},
                     {"Ethernet5", true}});
    for (auto& p : lab.ports) p.second.pam->txRecordIs(false);
    lab.rx("Ethernet5", TestSupport::host("10.0.0.254", 10)
                            .igmpQuery(Gmp::Igmp::IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr())));
    KIV_ASSERT(lab.vlanSm(10)->coreStatus()->confident());
    for (const char* p : portNames) {
      pams.push_back(&lab.pam(p));
      intfs.push_back(TestSupport::intfId(p));
    }
  }
  Kiv::Ptr<Lomax::Pkt> pkt(const Report& r) { return Lomax::globalPktManager().newPkt(std::span(r.bytes)); }
  // Each report enters at its port's multiplexer, as one frame of the packet source.
  void rxGlue(const Report& r) {
    pams[r.port]->rxPktEnqueue(pkt(r));
    pams[r.port]->rxReady();
  }
  // The same report handed to the core as the glue hands it, with a flooder that drops.
  void rxCore(const Report& r) {
    Kiv::Ptr<Lomax::Pkt> p = pkt(r);
    p->beginOffsetIs(14);
    lab.vlanSm(10)->coreSm()->doRxPkt(intfs[r.port], std::move(p), dropping);
  }
  // Nanoseconds per report of the fastest of `slices` equal runs, the loop turning as time goes by.
  template <class Rx>
  double feed(const Frames& f, size_t from, size_t to, uint32_t slices, Rx rx) {
    const size_t per = (to - from) / slices;
    double best = 0;
    for (uint32_t s = 0; s < slices; ++s) {
      const size_t begin = from + s * per, end = s + 1 == slices ? to : begin + per;
      const auto t0 = std::chrono::steady_clock::now();
      for (size_t i = begin; i < end; ++i) {
        rx(f.reports[i]);
        if (i % reportsPerTurn == reportsPerTurn - 1) {
          Kiv::activityManager()->advanceBy(reportGap * reportsPerTurn);
        }
      }
      const double ns =
          std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count() /
          (end - begin);
      best = s == 0 ? ns : std::min(best, ns);
    }
    return best;
  }

  TestSupport::GlueLab lab;
  std::vector<Lomax::MemoryPam*> pams;
  std::vector<Lomax::IntfId> intfs;
  Kiv::Ptr<IgmpSnoopingFlooder> dropping = Kiv::make<IgmpSnoopingFlooder>("drop");
};

void scaleScenario() {
  const Frames joins(memberships, inOrder());
  const Frames refreshes(memberships, scattered(memberships));
  Scene b;
  auto glue = [&b](const Report& r) { b.rxGlue(r); };
  auto core = [&b](const Report& r) { b.rxCore(r); };
  const double joinNs = b.feed(joins, 0, portJoins, 1, glue);
  KIV_ASSERT(b.lab.vlanStatus(10)->ethGroupSize() == groupCount);
  Bench::result("glue_join_ns", joinNs, "ns");
  b.feed(joins, portJoins, memberships, 1, glue);
  // Glue and core alternate in slices, so that both meet the machine in the same moods.
  double glueNs = 0, coreNs = 0;
  constexpr uint32_t rounds = 4;
  for (uint32_t r = 0; r < rounds; ++r) {
    const size_t from = r * (memberships / rounds), to = from + memberships / rounds;
    const double g = b.feed(refreshes, from, to, 2, glue);
    const double c = b.feed(refreshes, from, to, 2, core);
    glueNs = r ? std::min(glueNs, g) : g;
    coreNs = r ? std::min(coreNs, c) : c;
  }
  Bench::result("glue_refresh_ns", glueNs, "ns");
  Bench::result("core_refresh_in_glue_bench_ns", coreNs, "ns");
  Bench::result("glue_over_core_refresh_ratio", glueNs / coreNs, "x");
}

void BM_GlueAtScale(benchmark::State& state) {
  for (auto _ : state) scaleScenario();
}

// The profiling mode; each kind of work in a function of its own, for callgrind's --toggle-collect.
[[gnu::noipa]] void glueJoins(Scene& b, const Frames& f) {
  b.feed(f, 0, f.reports.size(), 1, [&b](const Report& r) { b.rxGlue(r); });
}
[[gnu::noipa]] void glueRefreshes(Scene& b, const Frames& f) {
  b.feed(f, 0, f.reports.size(), 1, [&b](const Report& r) { b.rxGlue(r); });
}

void BM_GlueRefreshOnly(benchmark::State& state, uint32_t n) {
  constexpr uint32_t population = 65536;
  for (auto _ : state) {
    const Frames joins(population, inOrder());
    const Frames frames(n, [](uint32_t i) { return scattered(population)(i % population); });
    Scene b;
    glueJoins(b, joins);
    glueRefreshes(b, frames);
  }
}

const bool registered = [] {
  if (const char* n = std::getenv("IGMPSNOOP_GLUE_BENCH_REFRESHES")) {
    benchmark::RegisterBenchmark("BM_GlueRefreshOnly", BM_GlueRefreshOnly, uint32_t(std::atoi(n)))
        ->Iterations(1);
    return true;
  }
  benchmark::RegisterBenchmark("BM_GlueAtScale", BM_GlueAtScale)
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
  return true;
}();

}  // namespace

BENCH_MAIN()
