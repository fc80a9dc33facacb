// Packet access on a real bridge: hosts' frames arrive with their port and their tag, floods leave on
// exactly the ports asked for, tagged or not, our own frames never come back, and a burst of reports
// is delivered or counted as lost, never lost silently.
#include "platform/PacketAccess.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "net/FrameBuilder.h"
#include "tests/support/BridgeLab.h"
#include "tests/support/LoopWait.h"
#include "tests/support/RawPort.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lomax::IpAddr;
using Platform::PacketAccess;
using TestNet::RawPort;

Bytes bytesOf(const Kiv::Ptr<Lomax::Pkt>& p) { return Bytes(p->data(), p->data() + p->len()); }

Bytes report(IpAddr group, Bridging::VlanIdOrNone vlan = {}) {
  return bytesOf(
      Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0, 0x0001), IpAddr(10, 0, 0, 1), vlan).igmpV2Report(group));
}

Kiv::Ptr<Lomax::Pkt> pktOf(const Bytes& b) { return Lomax::globalPktManager().newPkt(b); }

class PacketAccessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!TestNet::NetNs::unavailable().empty()) GTEST_SKIP() << TestNet::NetNs::unavailable();
    lab_ = std::make_unique<TestNet::BridgeLab>(3);
    ASSERT_TRUE(lab_->ok());
    for (int i = 1; i <= 3; ++i) port_[i] = lab_->portIndex(i);
  }

  void pamMake(PacketAccess::Settings settings = {}) {
    TestNet::NetNs::Inside in(lab_->sw());
    pam_ = std::make_unique<PacketAccess>(settings, [this](std::span<const PacketAccess::RxFrame> frames) {
      for (const auto& f : frames) got_.emplace_back(f.ifindex, bytesOf(f.pkt));
    });
    for (int i = 1; i <= 3; ++i) pam_->wantedIntfIs(port_[i], true);
  }

  std::unique_ptr<RawPort> host(int i) {
    return std::make_unique<RawPort>(lab_->hosts(), "h" + std::to_string(i));
  }

  // What the packet access has counted as taken in or lost, which must add up to what was sent.
  uint64_t accounted() {
    const auto& c = pam_->counters();
    return c.rxFrames + c.ringDrops + c.rxOversize;
  }

  std::unique_ptr<TestNet::BridgeLab> lab_;
  int port_[4] = {};
  std::unique_ptr<PacketAccess> pam_;
  std::vector<std::pair<int, Bytes>> got_;
};

TEST_F(PacketAccessTest, FramesArriveWithTheirPortAndTheTagTheyCarried) {
  PacketAccess::Settings settings;
  settings.maxRxPktData = 1000;
  pamMake(settings);
  pam_->wantedIntfIs(port_[3], false);
  auto h1 = host(1), h2 = host(2), h3 = host(3);
  Bytes long_ = report(IpAddr(239, 1, 1, 9));
  long_.resize(1200);
  Bytes prioTagged = report(IpAddr(239, 1, 1, 4), Bridging::VlanIdOrNone(10));
  prioTagged[14] |= 0xa0;
  const std::vector<std::pair<int, Bytes>> expected = {
      {port_[1], report(IpAddr(239, 1, 1, 1))},
      {port_[2], report(IpAddr(239, 1, 1, 2), Bridging::VlanIdOrNone(10))},
      {port_[1], prioTagged},
      {port_[2], report(IpAddr(239, 1, 1, 3), Bridging::VlanIdOrNone(4094))},
  };
  ASSERT_TRUE(h3->send(report(IpAddr(239, 1, 1, 8))));
  ASSERT_TRUE(h1->send(long_));
  for (const auto& [ifindex, frame] : expected) ASSERT_TRUE((ifindex == port_[1] ? h1 : h2)->send(frame));
  ASSERT_TRUE(TestNet::turnUntil([&] { return got_.size() >= expected.size(); }));
  EXPECT_EQ(got_, expected);
  const auto& c = pam_->counters();
  EXPECT_EQ(c.rxFrames, expected.size());
  EXPECT_EQ(c.rxOversize, 1u);
  // p3's frame, and the bridge's copies of each report up to br0: frames of interfaces not wanted.
  EXPECT_GE(c.rxUnwanted, 1u);
}

TEST_F(PacketAccessTest, FloodsLeaveOnTheChosenPortsAndNeverComeBack) {
  pamMake();
  auto h1 = host(1), h2 = host(2), h3 = host(3);
  const Bytes frame = report(IpAddr(239, 2, 2, 2));
  ASSERT_TRUE(pam_->txPkt(port_[1], pktOf(frame)));
  ASSERT_TRUE(pam_->txPkt(port_[3], pktOf(frame), 0x6000 | 30));
  EXPECT_EQ(h1->recv(), frame);
  Bytes tagged = report(IpAddr(239, 2, 2, 2), Bridging::VlanIdOrNone(30));
  tagged[14] |= 0x60;
  EXPECT_EQ(h3->recv(), tagged);
  // Nothing reached h2 ahead of a frame sent to it afterwards.
  const Bytes mark = report(IpAddr(239, 2, 2, 3));
  ASSERT_TRUE(pam_->txPkt(port_[2], pktOf(mark)));
  EXPECT_EQ(h2->recv(), mark);
  EXPECT_EQ(pam_->counters().txFrames, 3u);

  // The loop has not run since: any of our own frames would be read ahead of h1's report.
  const Bytes fromHost = report(IpAddr(239, 2, 2, 4));
  ASSERT_TRUE(h1->send(fromHost));
  ASSERT_TRUE(TestNet::turnUntil([&] { return !got_.empty(); }));
  EXPECT_EQ(got_, (std::vector<std::pair<int, Bytes>>{{port_[1], fromHost}}));
}

TEST_F(PacketAccessTest, TheTransmitMarkLetsFramesThroughAnEgressFilter) {
  // On p2: IGMP out of the port is dropped unless the frame carries mark 0x5eed.
  ASSERT_TRUE(lab_->sw().exec("tc qdisc add dev p2 clsact") &&
              lab_->sw().exec("tc filter add dev p2 egress pref 10 bpf da bytecode "
                              "'8,40 0 0 12,21 0 5 2048,48 0 0 23,21 0 3 2,32 0 0 4294963220,21 1 0 24301,"
                              "6 0 0 2,6 0 0 4294967295'"));
  pamMake();
  auto h2 = host(2);
  const Bytes frame = report(IpAddr(239, 3, 3, 3));
  EXPECT_FALSE(pam_->txPkt(port_[2], pktOf(frame)));
  EXPECT_EQ(pam_->counters().txNoRoom, 1u);
  pam_->txMarkIs(0x5eed);
  ASSERT_TRUE(pam_->txPkt(port_[2], pktOf(frame)));
  EXPECT_EQ(h2->recv(), frame);
}

TEST_F(PacketAccessTest, ABurstOfReportsIsDeliveredOrCountedAsLost) {
  constexpr uint64_t burst = 100000;
  // IGMP kept from the bridge at p1's ingress, as on the agent's switch: otherwise the bridge hands
  // each report up to br0 as well, and the ring's drop counter, which can't tell interfaces apart,
  // counts those copies too.
  ASSERT_TRUE(
      lab_->sw().exec("tc qdisc add dev p1 clsact") &&
      lab_->sw().exec("tc filter add dev p1 ingress pref 10 bpf da bytecode "
                      "'7,40 0 0 12,21 0 4 2048,48 0 0 23,21 1 0 2,21 0 1 103,6 0 0 2,6 0 0 4294967295'"));
  pamMake();
  auto h1 = host(1);
  const Bytes frame = report(IpAddr(239, 4, 4, 4));

  // Sent while the loop reads: all of it accounted for, in frames or in the ring's drop counter.
  std::atomic<uint64_t> sent = 0;
  std::thread sender([&] { sent = h1->sendBurst(frame, burst); });
  const bool done = TestNet::turnUntil([&] { return sent == burst && accounted() >= burst; }, 60);
  sender.join();
  ASSERT_TRUE(done) << "accounted " << accounted() << " of " << sent;
  EXPECT_EQ(accounted(), burst);
  RecordProperty("ring_drops_while_reading", std::to_string(pam_->counters().ringDrops));

  // Sent while nothing reads, more than the ring holds: the loss shows in the counter.
  const uint64_t before = accounted();
  ASSERT_EQ(h1->sendBurst(frame, burst), burst);
  ASSERT_TRUE(TestNet::turnUntil([&] { return accounted() >= before + burst; }, 60))
      << "accounted " << accounted() - before << " of " << burst;
  EXPECT_EQ(accounted(), before + burst);
  EXPECT_GT(pam_->counters().ringDrops, 0u);
}

}  // namespace
