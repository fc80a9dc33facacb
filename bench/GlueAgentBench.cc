// The agent-wide glue on the real clock: a restart of a switch of 4,094 VLANs x 48 ports whose
// protocol status survived with 100,000 memberships spread over the VLANs. Prints the wall time of
// the whole bring-up (topology, both sliced passes, the cores rebuilt from status) and the number of
// slices it took.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>

#include "bench/support/BenchSupport.h"
#include "tests/glue/GlueAgentHarness.h"

namespace {

constexpr int vlans = 4094;
constexpr int ports = 48;
constexpr int memberships = 100000;

void survivingMembershipsIs(TestGlue::GlueAgentLab& lab, Kiv::Seconds now) {
  for (int i = 0; i < memberships; ++i) {
    const int vlan = 1 + i % vlans;
    const int n = i / vlans;
    auto cs = lab.coreStatusDir->contextStatusIs(Bridging::VlanId(static_cast<uint16_t>(vlan)));
    auto group =
        cs->groupIs(Lomax::IpAddr(239, 1, static_cast<uint8_t>(n / 8), static_cast<uint8_t>(1 + n % 8)));
    auto m = group->intfIs(TestGlue::port(1 + n % ports))
                 ->membershipIs(Lomax::IpAddr(10, static_cast<uint8_t>(vlan >> 8), static_cast<uint8_t>(vlan),
                                              static_cast<uint8_t>(1 + n % 200)));
    m->firstReportIs(now - 30);
    m->lastReportIs(now - 10);
    m->expireIs(now + 250);
  }
}

}  // namespace

int main() {
  TestGlue::GlueAgentLab lab;
  lab.switchIs(1, vlans, ports);
  for (int v = 1; v <= vlans; ++v) lab.survivingStatusIs(v);
  survivingMembershipsIs(lab, lab.now());

  const auto start = std::chrono::steady_clock::now();
  lab.start();
  IgmpShim::GlueSm& sm = *lab.glueSm;
  int slices = 0;
  uint16_t bookmark = sm.vlanSmInitBookmark();
  bool rebuilt = sm.smStateRebuilt();
  while (!sm.vlanSmInitialized()) {
    Kiv::activityManager()->runOnce();
    if (sm.vlanSmInitBookmark() != bookmark || sm.smStateRebuilt() != rebuilt || sm.vlanSmInitialized())
      ++slices;
    bookmark = sm.vlanSmInitBookmark();
    rebuilt = sm.smStateRebuilt();
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (sm.vlanSmSize() != static_cast<size_t>(vlans)) {
    std::fprintf(stderr, "only %zu VLANs came up\n", sm.vlanSmSize());
    return 1;
  }
  size_t kept = 0;
  for (auto& cs : lab.coreStatusDir->contextStatusIter()) {
    for (auto& g : cs->groupIter()) {
      for (auto& i : g->intfIter()) kept += i->membershipSize();
    }
  }
  if (kept != static_cast<size_t>(memberships)) {
    std::fprintf(stderr, "%zu of %d memberships survived the bring-up\n", kept, memberships);
    return 1;
  }
  Bench::result("restart_bringup_4094_vlans_s", seconds, "s");
  Bench::result("restart_bringup_slices", slices, "slices");
  Bench::printResults();
  return 0;
}
