// Packet access against a plain socket: a thread blasts IGMP reports over a veth at a set rate, and on
// the other end either the agent's packet access (ring, bulk reads, pooled packets) or a bare recvfrom
// reader takes them in on the same loop. Each finds the highest offered rate it takes without loss;
// the two are measured at the same rates, alternately, in one run. Needs root for the namespace.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "bench/support/BenchSupport.h"
#include "kernel/ActivityManager.h"
#include "kernel/Clock.h"
#include "net/FrameBuilder.h"
#include "platform/EpollPoller.h"
#include "platform/PacketAccess.h"
#include "tests/support/NetNs.h"
#include "tests/support/RawPort.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Several times what the ring holds, so that a reader slower than the sender shows a loss.
constexpr uint64_t framesPerTrial = 200000;
constexpr uint64_t framesPerBatch = 32;

struct Trial {
  double offeredPerS;
  bool lossless;
};

class Rig {
 public:
  Rig() : ns_("pambench") {
    ok_ = ns_.ok() && ns_.ip("link add wire type veth peer name tap") && ns_.ip("link set wire up") &&
          ns_.ip("link set tap up");
    if (!ok_) return;
    tap_ = ns_.ifindex("tap");
    sender_ = std::make_unique<TestNet::RawPort>(ns_, "wire");
    auto pkt = Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0, 1), Lomax::IpAddr(10, 0, 0, 1))
                   .igmpV2Report(Lomax::IpAddr(239, 1, 1, 1));
    frame_.assign(pkt->data(), pkt->data() + pkt->len());
    Platform::epollPollerInstall();
  }
  bool ok() const { return ok_; }

  Trial pamTrial(double rate) {
    uint64_t got = 0;
    std::unique_ptr<Platform::PacketAccess> pam;
    {
      TestNet::NetNs::Inside in(ns_);
      pam = std::make_unique<Platform::PacketAccess>(
          Platform::PacketAccess::Settings{}, [&](std::span<const Platform::PacketAccess::RxFrame> frames) {
            for (const auto& f : frames) got += f.ifindex == tap_ && f.pkt->len() == frame_.size();
          });
    }
    pam->wantedIntfIs(tap_, true);
    const double offered = run(rate, got);
    return report("pam", rate, offered, got, got == framesPerTrial && pam->counters().ringDrops == 0);
  }

  Trial rawTrial(double rate) {
    int fd;
    {
      TestNet::NetNs::Inside in(ns_);
      fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    }
    // The same filter and the same receive buffer as the packet access's settings give it.
    Platform::PacketAccess::filterAttach(fd, IgmpShim::SocketFilter::program);
    const int rcvbuf = 8 << 20;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &rcvbuf, sizeof rcvbuf);
    sockaddr_ll addr{};
    addr.sll_family = AF_PACKET;
    addr.sll_protocol = htons(ETH_P_ALL);
    addr.sll_ifindex = tap_;
    bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    uint64_t got = 0;
    Kiv::activityManager()->fdIs(fd, Kiv::Poller::readable, [&](unsigned) {
      uint8_t buf[2048];
      sockaddr_ll from;
      socklen_t len = sizeof from;
      while (recvfrom(fd, buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&from), &len) > 0) {
        got += from.sll_ifindex == tap_;
        len = sizeof from;
      }
    });
    const double offered = run(rate, got);
    Kiv::activityManager()->fdDel(fd);
    close(fd);
    return report("raw", rate, offered, got, got == framesPerTrial);
  }

 private:
  static Trial report(const char* reader, double rate, double offered, uint64_t got, bool lossless) {
    std::fprintf(stderr, "%s: asked %.0f/s, offered %.0f/s, took %llu of %llu\n", reader, rate, offered,
                 static_cast<unsigned long long>(got), static_cast<unsigned long long>(framesPerTrial));
    return {offered, lossless};
  }

  // Sends the trial's frames at rate from a thread while the loop reads; returns the rate achieved.
  double run(double rate, const uint64_t& got) {
    std::atomic<bool> done = false;
    double offered = 0;
    std::thread sender([&] {
      const Kiv::Seconds start = Kiv::Clock::systemNow();
      for (uint64_t sent = 0; sent < framesPerTrial; sent += framesPerBatch) {
        const Kiv::Seconds due = start + static_cast<double>(sent) / rate;
        while (Kiv::Clock::systemNow() < due) {
        }
        sender_->sendBurst(frame_, framesPerBatch);
      }
      offered = static_cast<double>(framesPerTrial) / (Kiv::Clock::systemNow() - start);
      done = true;
    });
    // Until all is in, or nothing more has come for a while after the sender finished.
    Kiv::ActivityManager* am = Kiv::activityManager();
    Kiv::Clock::NotifieeConst wake;
    wake.notifierIs(am->clock());
    uint64_t seen = 0;
    Kiv::Seconds quietSince = am->clock()->now();
    while (got < framesPerTrial) {
      const Kiv::Seconds now = am->clock()->now();
      if (got != seen || !done) {
        seen = got;
        quietSince = now;
      } else if (now - quietSince > 0.2) {
        break;
      }
      wake.timeMinIs(now + 0.01);
      am->runOnce();
    }
    sender.join();
    return offered;
  }

  TestNet::NetNs ns_;
  bool ok_ = false;
  int tap_ = 0;
  std::unique_ptr<TestNet::RawPort> sender_;
  Bytes frame_;
};

// The highest offered rate one reader takes without loss: rates rise by a quarter until a loss,
// then a few halvings of the last step narrow it down.
class Search {
 public:
  explicit Search(std::function<Trial(double)> trial) : trial_(std::move(trial)) {}
  // Still climbing the rates.
  bool climbing() const { return !bad_ && !capped_; }
  void climb(double rate) {
    const Trial t = trial_(rate);
    if (!t.lossless) {
      bad_ = rate;
      return;
    }
    good_ = t.offeredPerS;
    // The sender can't go faster, and nothing was lost at its limit.
    capped_ = t.offeredPerS < rate * 0.9;
  }
  bool narrowing() const { return good_ && bad_ && halvings_ < 3; }
  void narrow() {
    const double mid = (good_ + bad_) / 2;
    const Trial t = trial_(mid);
    (t.lossless ? good_ : bad_) = t.lossless ? t.offeredPerS : mid;
    ++halvings_;
  }
  double good() const { return good_; }

 private:
  std::function<Trial(double)> trial_;
  double good_ = 0, bad_ = 0;
  bool capped_ = false;
  int halvings_ = 0;
};

void BM_PamVsRawSocket(benchmark::State& state) {
  for (auto _ : state) {
    if (!TestNet::NetNs::unavailable().empty()) {
      state.SkipWithError(("PamBench: " + TestNet::NetNs::unavailable()).c_str());
      return;
    }
    Rig rig;
    if (!rig.ok()) {
      state.SkipWithError("PamBench: could not build the veth rig");
      return;
    }
    // Both readers at each rate in turn, so that a change in the machine's load falls on both.
    Search raw([&](double r) { return rig.rawTrial(r); }), pam([&](double r) { return rig.pamTrial(r); });
    for (double rate = 50000; (raw.climbing() || pam.climbing()) && rate < 1e8; rate *= 1.25) {
      if (raw.climbing()) raw.climb(rate);
      if (pam.climbing()) pam.climb(rate);
    }
    while (raw.narrowing() || pam.narrowing()) {
      if (raw.narrowing()) raw.narrow();
      if (pam.narrowing()) pam.narrow();
    }
    Bench::result("pam_rx_frames_per_s", pam.good(), "frames/s");
    Bench::result("raw_socket_rx_frames_per_s", raw.good(), "frames/s");
    Bench::result("pam_rx_vs_raw_socket_ratio", raw.good() ? pam.good() / raw.good() : 0, "x");
  }
}

BENCHMARK(BM_PamVsRawSocket)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCH_MAIN()
