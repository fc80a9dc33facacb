// Parse cost of membership reports: time per version 2 and version 3 report, and allocations per parse.
#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "net/FrameBuilder.h"
#include "net/IgmpV12Hdr.h"
#include "net/IgmpV3Report.h"
#include "net/IpHdr.h"
#include "net/PktVlanTag.h"

namespace {

using Lomax::IpAddr;

const Lomax::FrameBuilder builder(Lomax::EthAddr(0x0200, 0, 1), IpAddr(10, 0, 0, 1));

// Points the span at the IGMP message, as the receive path leaves it.
Kiv::Ptr<Lomax::Pkt> atIgmp(Kiv::Ptr<Lomax::Pkt> p) {
  Lomax::IpHdr ip = *Lomax::IpHdr::of(p->data() + Lomax::ethHeaderBytes, p->len() - Lomax::ethHeaderBytes);
  p->beginOffsetIs(static_cast<int16_t>(Lomax::ethHeaderBytes + ip.headerBytes()));
  p->endOffsetIs(static_cast<uint16_t>(p->len() - p->beginOffset() - ip.payloadLen()));
  return p;
}

Kiv::Ptr<Lomax::Pkt> v3Report() {
  static std::vector<std::vector<IpAddr>> sources(8);
  std::vector<Gmp::Igmp::IgmpGroupRecord> records;
  for (uint32_t i = 0; i < 8; ++i) {
    sources[i].clear();
    for (uint32_t s = 0; s < 4; ++s) sources[i].push_back(IpAddr::fromHost(0x0a000000 + 16 * i + s));
    records.emplace_back(Gmp::Igmp::recordTypeModeIsInclude, IpAddr::fromHost(0xef010100 + i),
                         Gmp::Igmp::SourceList(sources[i]));
  }
  return atIgmp(builder.igmpV3Report(records));
}

// Wall time per iteration of a benchmark's loop, from the first iteration to the last.
class PerIteration {
 public:
  PerIteration() : start_(std::chrono::steady_clock::now()) {}
  double ns(const benchmark::State& state) const {
    std::chrono::duration<double, std::nano> d = std::chrono::steady_clock::now() - start_;
    return state.iterations() ? d.count() / static_cast<double>(state.iterations()) : 0;
  }

 private:
  std::chrono::steady_clock::time_point start_;
};

// What the version 2 road reads: checksum, type, group, and the record made of them.
void BM_V2ReportParse(benchmark::State& state) {
  Kiv::Ptr<Lomax::Pkt> p = atIgmp(builder.igmpV2Report(IpAddr(239, 1, 2, 3)));
  PerIteration timer;
  for (auto _ : state) {
    auto common = Lomax::IgmpCommonHdr::of(p->offsetFront(), p->offsetBytes());
    bool ok = common && common->computedChecksum(p->offsetBytes()) == Lomax::zeroChecksum;
    auto v12 = Lomax::IgmpV12Hdr::of(p->offsetFront(), p->offsetBytes());
    Gmp::Igmp::IgmpGroupRecord record(Gmp::Igmp::recordTypeModeIsExclude, v12->group());
    benchmark::DoNotOptimize(ok);
    benchmark::DoNotOptimize(record);
  }
  Bench::result("v2_report_parse_ns", timer.ns(state), "ns");
}

void BM_V3ReportParse(benchmark::State& state) {
  Kiv::Ptr<Lomax::Pkt> p = v3Report();
  PerIteration timer;
  for (auto _ : state) {
    Gmp::Igmp::IgmpV3Report report = Gmp::Igmp::doIgmpV3MembershipReportParse(p);
    benchmark::DoNotOptimize(report.records().data());
  }
  Bench::result("v3_report_parse_ns", timer.ns(state), "ns");
  // Counted apart from the timed loop, so that reading the counter does not weigh on the time.
  uint64_t allocs = 0, parses = 1000;
  for (uint64_t i = 0; i < parses; ++i) {
    uint64_t before = Bench::allocations();
    Gmp::Igmp::IgmpV3Report report = Gmp::Igmp::doIgmpV3MembershipReportParse(p);
    allocs += Bench::allocations() - before;
    benchmark::DoNotOptimize(report.records().data());
  }
  Bench::result("v3_report_parse_allocs", static_cast<double>(allocs) / static_cast<double>(parses),
                "allocs");
}

void BM_V3ReportParseReused(benchmark::State& state) {
  Kiv::Ptr<Lomax::Pkt> p = v3Report();
  Gmp::Igmp::IgmpV3Report report;
  PerIteration timer;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Gmp::Igmp::doIgmpV3MembershipReportParse(p, report));
    benchmark::DoNotOptimize(report.records().data());
  }
  Bench::result("v3_report_parse_reused_ns", timer.ns(state), "ns");
  uint64_t allocs = 0, parses = 1000;
  for (uint64_t i = 0; i < parses; ++i) {
    uint64_t before = Bench::allocations();
    benchmark::DoNotOptimize(Gmp::Igmp::doIgmpV3MembershipReportParse(p, report));
    allocs += Bench::allocations() - before;
  }
  Bench::result("v3_report_parse_reused_allocs", static_cast<double>(allocs) / static_cast<double>(parses),
                "allocs");
}

BENCHMARK(BM_V2ReportParse);
BENCHMARK(BM_V3ReportParse);
BENCHMARK(BM_V3ReportParseReused);

}  // namespace

BENCH_MAIN()
