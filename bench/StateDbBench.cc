// The state database on a redis-server of its own (Unix socket): membership refreshes absorbed by a
// coalesced mount, ordered changes written, a restart reload of a million memberships, the time
// until a reader in another process sees a change, and the bytes a membership takes in Redis.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "kernel/ActivityManager.h"
#include "model/IgmpContextStatus.h"
#include "model/Status.h"
#include "platform/EpollPoller.h"
#include "platform/RedisStateDb.h"
#include "tests/support/RedisServer.h"

namespace {

using namespace Bridging::IgmpSnooping;
using Lomax::IntfId;
using Lomax::IpAddr;
using Clock = std::chrono::steady_clock;

double since(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// One turn of the loop that does not wait for anything.
void turn() {
  Kiv::Clock::NotifieeConst now;
  now.notifierIs(Kiv::ActivityManagerConfig::clock());
  now.timeMinIs(Kiv::System::currentTime());
  Kiv::activityManager()->runOnce();
}

bool settle(Platform::StateDb& db, double seconds = 120) {
  auto& redis = dynamic_cast<Platform::RedisStateDb&>(db);
  redis.flushNow();
  const auto t0 = Clock::now();
  while (!redis.idle()) {
    if (since(t0) > seconds) return false;
    turn();
  }
  return true;
}

Platform::MountOptions statusOptions() {
  Platform::MountOptions o;
  o.writable = true;
  o.ordered = false;
  o.folded = {"IgmpIntfStatus"};
  return o;
}

// groups x 4 ports x 8 reporters version 2 memberships with times as the system clock gives them.
std::vector<Kiv::Ptr<IgmpMembership>> populate(IgmpContextStatus& s, uint32_t groups) {
  std::vector<Kiv::Ptr<IgmpMembership>> all;
  const Kiv::Seconds now = Kiv::System::currentTime();
  for (uint32_t g = 0; g < groups; ++g) {
    auto group = s.groupIs(IpAddr::fromHost(0xef000000 + g));
    for (uint32_t p = 0; p < 4; ++p) {
      auto intf = group->intfIs(IntfId(Kiv::format("Ethernet%u", p + 1)));
      for (uint32_t r = 0; r < 8; ++r) {
        auto m = intf->membershipIs(IpAddr::fromHost(0x0a000000 | (p + 1) << 16 | (g * 8 + r) % 60000));
        m->igmpVersionIs(Gmp::Igmp::igmpVersion2);
        const Kiv::Seconds t = now + (g * 32 + p * 8 + r) * 1e-6;
        m->firstReportIs(t);
        m->lastReportIs(t);
        m->expireIs(t + 260);
        all.push_back(m);
      }
    }
  }
  return all;
}

long long usedMemory(const TestSupport::RedisServer& server) {
  const std::string info = server.command({"INFO", "memory"});
  const size_t at = info.find("used_memory:");
  return at == std::string::npos ? 0 : std::atoll(info.c_str() + at + 12);
}

void coalescedAndReload(const TestSupport::RedisServer& server) {
  constexpr uint32_t groups = 31250;  // a million memberships
  const long long memory0 = usedMemory(server);
  {
    auto db = Platform::stateDbOpen(server.address());
    auto ps = Kiv::make<IgmpProtocolStatus>("protocolStatus");
    auto s = ps->contextStatusIs(Bridging::VlanId(10));
    auto members = populate(*s, groups);
    db->mount("bench/protocolStatus", ps, statusOptions());
    db->waitLoaded(60);
    if (!settle(*db)) return;
    Bench::result("statedb_bytes_per_membership", double(usedMemory(server) - memory0) / members.size(), "B");

    // Refreshes of the 100,000 memberships of the busiest groups in scattered order, the loop turning
    // every 1,024 of them as packets would let it: each membership is refreshed several times per
    // flush interval, and Redis gets the latest value once.
    constexpr uint32_t refreshes = 4000000, hot = 100000;
    const auto t0 = Clock::now();
    for (uint32_t i = 0; i < refreshes; ++i) {
      IgmpMembership& m = *members[(uint64_t(i) * 999983u) % hot];
      const Kiv::Seconds t = m.lastReport() + 1;
      m.lastReportIs(t);
      m.expireIs(t + 260);
      if (i % 1024 == 1023) turn();
    }
    if (!settle(*db)) return;
    Bench::result("statedb_coalesced_changes_per_s", refreshes / since(t0), "/s");
    Bench::result("statedb_flush_interval_ms",
                  dynamic_cast<Platform::RedisStateDb&>(*db).flushInterval() * 1e3, "ms");
  }
  auto db = Platform::stateDbOpen(server.address());
  auto ps = Kiv::make<IgmpProtocolStatus>("protocolStatus");
  const auto t0 = Clock::now();
  db->mount("bench/protocolStatus", ps, statusOptions());
  if (!db->waitLoaded(60)) return;
  const double seconds = since(t0);
  size_t count = 0;
  for (auto& g : ps->contextStatus(Bridging::VlanId(10))->groupIter())
    for (auto& i : g->intfIter()) count += i->membershipSize();
  if (count == groups * 32u) Bench::result("statedb_reload_1m_memberships_s", seconds, "s");
}

void ordered(const TestSupport::RedisServer& server) {
  auto db = Platform::stateDbOpen(server.address());
  auto st = Kiv::make<Status>("status");
  auto v = st->vlanStatusIs(Bridging::VlanId(10));
  Platform::MountOptions o;
  o.writable = true;
  db->mount("bench/status", st, o);
  db->waitLoaded(10);
  constexpr uint32_t turns = 20000, perTurn = 16;
  const auto t0 = Clock::now();
  for (uint32_t t = 0; t < turns; ++t) {
    for (uint32_t k = 0; k < perTurn; ++k) {
      auto g = v->ethGroupIs(Lomax::EthAddr(0x0100, 0x5e00, static_cast<uint16_t>((t * perTurn + k) % 4096)));
      g->groupIntfIs(IntfId("Ethernet1"), t / 256 % 2);  // each group comes round every 256 turns
    }
    turn();
  }
  if (settle(*db)) Bench::result("statedb_ordered_writes_per_s", turns * perTurn / since(t0), "/s");
}

// A reader in a child process stamps each change of counterUpdateTime (the writer's wall time when it
// made it) on arrival; the writer changes it 10,000 times a second.
void visible(const TestSupport::RedisServer& server) {
  int fds[2];
  if (pipe(fds) != 0) return;
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    Platform::epollPollerInstall();
    auto db = Platform::stateDbOpen(server.address());
    auto st = Kiv::make<Status>("status");
    struct Stamp : Status::NotifieeConst {
      std::vector<double> ms;
      void onCounterUpdateTime() override {
        const Kiv::Seconds t = notifier()->counterUpdateTime();
        if (t > 0) ms.push_back((Kiv::Clock::systemNow() - t) * 1e3);
      }
    };
    auto stamp = Kiv::make<Stamp>();
    stamp->notifierIs(st);
    db->mount("bench/visible", st, Platform::MountOptions{});
    db->waitLoaded(10);
    stamp->ms.clear();
    const auto t0 = Clock::now();
    while (since(t0) < 30 && (stamp->ms.empty() || st->counterUpdateTime() >= 0)) {
      turn();
      if (st->counterUpdateTime() < 0) break;
    }
    std::sort(stamp->ms.begin(), stamp->ms.end());
    double p99 = stamp->ms.empty() ? -1 : stamp->ms[stamp->ms.size() * 99 / 100];
    if (write(fds[1], &p99, sizeof p99) < 0) _exit(1);
    _exit(0);
  }
  close(fds[1]);
  Platform::epollPollerInstall();
  auto db = Platform::stateDbOpen(server.address());
  auto st = Kiv::make<Status>("status");
  Platform::MountOptions o;
  o.writable = true;
  db->mount("bench/visible", st, o);
  db->waitLoaded(10);
  settle(*db);
  // Give the reader time to load, then 2 s of changes at 10K/s, then the end mark.
  for (auto t0 = Clock::now(); since(t0) < 1;) turn();
  const auto t0 = Clock::now();
  for (uint32_t n = 0; n < 20000;) {
    if (since(t0) * 1e4 >= n) st->counterUpdateTimeIs(Kiv::Clock::systemNow()), ++n;
    turn();
  }
  settle(*db);
  for (auto t1 = Clock::now(); since(t1) < 0.5;) turn();
  st->counterUpdateTimeIs(-1);
  settle(*db);
  double p99 = -1;
  if (read(fds[0], &p99, sizeof p99) == sizeof p99 && p99 >= 0)
    Bench::result("statedb_visible_p99_ms", p99, "ms");
  waitpid(pid, nullptr, 0);
}

void BM_StateDb(benchmark::State& state) {
  for (auto _ : state) {
    TestSupport::RedisServer server;
    if (!server.available()) {
      state.SkipWithError(server.why().c_str());
      return;
    }
    Platform::epollPollerInstall();
    visible(server);
    ordered(server);
    coalescedAndReload(server);
  }
}

const bool registered = [] {
  benchmark::RegisterBenchmark("BM_StateDb", BM_StateDb)->Iterations(1)->Unit(benchmark::kMillisecond);
  return true;
}();

}  // namespace

BENCH_MAIN()
