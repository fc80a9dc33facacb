// The bridge data plane on a real bridge: how fast the writer programs entries while 100,000 joins
// arrive (written to the published state a thousand per loop turn, as the glue would), and how long
// from a join written to the published state until the member's host receives the group's stream.
// Needs root for the namespaces.
#include <benchmark/benchmark.h>
#include <poll.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "kernel/ActivityManager.h"
#include "kernel/Clock.h"
#include "net/FrameBuilder.h"
#include "net/IpToEthGroupMap.h"
#include "platform/BridgeDataplane.h"
#include "platform/BridgeSetup.h"
#include "tests/support/BridgeLab.h"
#include "tests/support/LoopWait.h"
#include "tests/support/RawPort.h"

namespace {

using Bridging::VlanId;
using Bridging::IgmpSnooping::IgmpProtocolStatus;
using Bridging::IgmpSnooping::IpToEthGroupMap;
using Bridging::IgmpSnooping::Status;
using Lomax::IntfId;
using Lomax::IpAddr;
using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t joins = 100000;
constexpr uint32_t joinsPerTurn = 1000;
constexpr int ports = 4;
constexpr int latencySamples = 200;

double since(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// The process's CPU time, the kernel's work for its netlink requests included: on a shared machine it
// moves far less than the wall clock.
double cpuSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

Bytes datagram(IpAddr g) {
  auto p = Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0, 4), IpAddr(10, 7, 0, 4)).udpDatagram(g, 9, 16);
  return Bytes(p->data(), p->data() + p->len());
}

class Rig {
 public:
  Rig() : lab_(ports) {
    if (!lab_.ok()) return;
    inside_.emplace(lab_.sw());
    links_.start();
    if (!TestNet::turnUntil([&] { return links_.synced(); })) return;
    setup_ =
        std::make_unique<Platform::BridgeSetup>(links_, Platform::BridgeSetup::Settings{"br0", joins, "tc"});
    if (setup_->state() != Platform::BridgeSetup::State::ready) return;
    status_ = Kiv::make<Status>("status");
    protocol_ = Kiv::make<IgmpProtocolStatus>("protocol");
    core_ = protocol_->contextStatusIs(VlanId(1));
    vlan_ = status_->vlanStatusIs(VlanId(1));
    writer_ = std::make_unique<Platform::BridgeDataplane>(
        links_, Platform::BridgeDataplane::Settings{"br0", 1, setup_->hashMax()}, status_, protocol_);
    ok_ = TestNet::turnUntil([&] { return writer_->converged(); });
  }
  ~Rig() {
    writer_.reset();
    setup_.reset();
    inside_.reset();
  }
  bool ok() const { return ok_; }

  static IntfId port(int i) { return IntfId(Kiv::String("p" + std::to_string(i))); }
  void join(IpAddr g, int p) {
    core_->groupIs(g)->intfIs(port(p));
    vlan_->ethGroupIs(IpToEthGroupMap(g))->groupIntfIs(port(p), true);
  }
  void leave(IpAddr g, int p) {
    core_->groupDel(g);
    vlan_->ethGroupDel(IpToEthGroupMap(g));
    (void)p;
  }
  bool settle() {
    return spinUntil([&] { return writer_->converged(); }, 120);
  }

  // Entries per second while the joins arrive, then while they all leave.
  void entriesPerSecond() {
    const uint64_t added0 = writer_->counters().entriesAdded;
    const double cpu0 = cpuSeconds();
    auto t0 = Clock::now();
    for (uint32_t i = 0; i < joins; ++i) {
      join(group(i), 1 + static_cast<int>(i % ports));
      if ((i + 1) % joinsPerTurn == 0) oneTurn();
    }
    if (!settle()) return;
    const double addSeconds = since(t0);
    const double addCpu = cpuSeconds() - cpu0;
    const uint64_t added = writer_->counters().entriesAdded - added0;
    t0 = Clock::now();
    for (uint32_t i = 0; i < joins; ++i) {
      leave(group(i), 1 + static_cast<int>(i % ports));
      if ((i + 1) % joinsPerTurn == 0) oneTurn();
    }
    if (!settle()) return;
    Bench::result("dataplane_entries_per_s", static_cast<double>(added) / addSeconds, "entries/s");
    Bench::result("dataplane_entries_per_cpu_s", static_cast<double>(added) / addCpu, "entries/s");
    Bench::result("dataplane_removals_per_s", joins / since(t0), "entries/s");
    Bench::result("dataplane_failures", static_cast<double>(writer_->counters().failures), "requests");
  }

  // From the join written to the published state until the member's host has the group's stream.
  void joinToForwarding() {
    TestNet::RawPort sender(lab_.hosts(), "h4"), member(lab_.hosts(), "h1");
    if (!querierCounts(sender, member)) return;
    std::atomic<uint32_t> current{0};
    std::atomic<bool> stop{false};
    // A frame every 100 us: the measurement's resolution.
    std::thread source([&] {
      const timespec gap{0, 100000};
      while (!stop) {
        sender.send(datagram(IpAddr::fromHost(current.load())));
        nanosleep(&gap, nullptr);
      }
    });
    std::vector<double> ms;
    for (int s = 0; s < latencySamples; ++s) {
      const IpAddr g(239, 200, static_cast<uint8_t>(s >> 8), static_cast<uint8_t>(s));
      current = g.value();
      drain(member, 0.002);
      const auto t0 = Clock::now();
      join(g, 1);
      settle();
      if (!arrives(member, g, 1.0)) break;
      ms.push_back(since(t0) * 1000);
      leave(g, 1);
      settle();
    }
    stop = true;
    source.join();
    if (ms.size() != latencySamples) return;
    std::sort(ms.begin(), ms.end());
    Bench::result("dataplane_join_to_forwarding_p50_ms", ms[ms.size() / 2], "ms");
    Bench::result("dataplane_join_to_forwarding_p99_ms", ms[ms.size() * 99 / 100], "ms");
  }

 private:
  static IpAddr group(uint32_t i) { return IpAddr::fromHost(0xef000000u + 0x10000u + i); }
  // One turn of the loop that does not wait: the harness's own waits would be what is measured.
  static void oneTurn() {
    Kiv::Clock::NotifieeConst wake;
    wake.notifierIs(Kiv::activityManager()->clock());
    wake.timeMinIs(Kiv::activityManager()->clock()->now());
    Kiv::activityManager()->runOnce();
  }
  template <class Pred>
  static bool spinUntil(Pred done, double seconds) {
    const auto t0 = Clock::now();
    while (!done()) {
      if (since(t0) > seconds) return false;
      oneTurn();
    }
    return true;
  }

  static void drain(TestNet::RawPort& p, double seconds) {
    while (p.recv(seconds)) {
    }
  }
  static bool arrives(TestNet::RawPort& p, IpAddr g, double seconds) {
    const auto t0 = Clock::now();
    while (since(t0) < seconds) {
      auto f = p.recv(seconds);
      if (f && f->size() >= 34 && std::equal(f->begin() + 30, f->begin() + 34, datagram(g).begin() + 30))
        return true;
    }
    return false;
  }
  // Until the bridge's querier counts, a group nobody joined still reaches h1.
  static bool querierCounts(TestNet::RawPort& sender, TestNet::RawPort& member) {
    for (int tries = 0; tries < 100; ++tries) {
      sender.send(datagram(IpAddr(239, 255, 0, 1)));
      if (!member.recv(0.05)) return true;
      drain(member, 0.01);
    }
    return false;
  }

  TestNet::BridgeLab lab_;
  std::optional<TestNet::NetNs::Inside> inside_;
  Platform::LinkWatcher links_;
  std::unique_ptr<Platform::BridgeSetup> setup_;
  std::unique_ptr<Platform::BridgeDataplane> writer_;
  Kiv::Ptr<Status> status_;
  Kiv::Ptr<IgmpProtocolStatus> protocol_;
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpContextStatus> core_;
  Kiv::Ptr<Bridging::IgmpSnooping::VlanStatus> vlan_;
  bool ok_ = false;
};

void BM_Dataplane(benchmark::State& state) {
  for (auto _ : state) {
    if (!TestNet::NetNs::unavailable().empty()) {
      state.SkipWithError(TestNet::NetNs::unavailable().c_str());
      return;
    }
    Rig rig;
    if (!rig.ok()) {
      state.SkipWithError("DataplaneBench: could not set up the bridge");
      return;
    }
    rig.entriesPerSecond();
    rig.joinToForwarding();
  }
}

BENCHMARK(BM_Dataplane)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCH_MAIN()
