// The bridge's set-up on a real bridge: its options, IGMP kept from the bridge's own snooping but not
// from a tap, its queries kept off the wire while the agent's marked frames pass, ports that join
// later, and one log and no data plane when tc is missing.
#include "platform/BridgeSetup.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <memory>
#include <optional>

#include "net/FrameBuilder.h"
#include "tests/support/BridgeLab.h"
#include "tests/support/LoopWait.h"
#include "tests/support/RawPort.h"
#include "tests/support/RecordingLogSink.h"

namespace {

using Lomax::IpAddr;
using Platform::BridgeSetup;
using TestNet::RawPort;
using Bytes = std::vector<uint8_t>;

Bytes bytesOf(const Kiv::Ptr<Lomax::Pkt>& p) { return Bytes(p->data(), p->data() + p->len()); }

bool isIgmp(const Bytes& f) { return f.size() >= 34 && f[12] == 0x08 && f[13] == 0 && f[23] == 2; }

int igmpFrames(RawPort& port, double seconds = 0.2) {
  int n = 0;
  while (auto f = port.recv(seconds)) n += isIgmp(*f) ? 1 : 0;
  return n;
}

class BridgeSetupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!TestNet::NetNs::unavailable().empty()) GTEST_SKIP() << TestNet::NetNs::unavailable();
    lab_ = std::make_unique<TestNet::BridgeLab>(2);
    ASSERT_TRUE(lab_->ok());
    inside_.emplace(lab_->sw());
    links_.start();
    ASSERT_TRUE(TestNet::turnUntil([&] { return links_.synced(); }));
  }
  void TearDown() override {
    setup_.reset();
    inside_.reset();
  }

  std::unique_ptr<TestNet::BridgeLab> lab_;
  std::optional<TestNet::NetNs::Inside> inside_;
  Platform::LinkWatcher links_;
  std::unique_ptr<BridgeSetup> setup_;
};

TEST_F(BridgeSetupTest, TheBridgeSnoopsNothingItselfAndOnlyMarkedIgmpLeavesIt) {
  std::vector<BridgeSetup::State> heard;
  setup_ = std::make_unique<BridgeSetup>(links_, BridgeSetup::Settings{"", 5000, "tc"},
                                         [&](BridgeSetup::State s) { heard.push_back(s); });
  ASSERT_EQ(setup_->state(), BridgeSetup::State::ready);
  EXPECT_EQ(heard, std::vector<BridgeSetup::State>{BridgeSetup::State::ready});
  EXPECT_EQ(setup_->hashMax(), 8192u);
  for (const char* option : {"mcast_snooping 1", "mcast_router 0", "mcast_querier 1", "mcast_hash_max 8192",
                             "mcast_query_response_interval 100"})
    EXPECT_TRUE(lab_->sw().exec(std::string("ip -d link show br0 | grep -q '") + option + "'")) << option;

  RawPort h1(lab_->hosts(), "h1"), h2(lab_->hosts(), "h2");
  RawPort tap(lab_->sw(), "p1");
  // A host's report: the switch's tap sees it, the bridge neither learns nor forwards it.
  const Bytes report = bytesOf(Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0, 1), IpAddr(10, 0, 0, 1))
                                   .igmpV2Report(IpAddr(239, 1, 1, 1)));
  ASSERT_TRUE(h1.send(report));
  EXPECT_EQ(igmpFrames(tap), 1);
  EXPECT_EQ(igmpFrames(h2), 0);
  EXPECT_TRUE(lab_->sw().exec("test -z \"$(bridge mdb show)\""));

  // The bridge's querier has sent queries since it was switched on; none reached a host. IGMP
  // sent with the mark does.
  // IGMP the agent forwards, say a report towards a router port.
  const Bytes forwarded = bytesOf(Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0, 9), IpAddr(10, 0, 0, 9))
                                      .igmpV2Report(IpAddr(239, 1, 1, 2)));
  RawPort agent(lab_->sw(), "p2");
  EXPECT_FALSE(agent.send(forwarded));  // the egress filter drops it: ENOBUFS
  const uint32_t mark = BridgeSetup::txMark;
  ASSERT_EQ(setsockopt(agent.fd(), SOL_SOCKET, SO_MARK, &mark, sizeof mark), 0);
  EXPECT_TRUE(agent.send(forwarded));
  EXPECT_EQ(igmpFrames(h2), 1);
  EXPECT_EQ(igmpFrames(h1), 0);

  // A port that joins later gets its filters.
  ASSERT_TRUE(lab_->portAdd(3));
  ASSERT_TRUE(TestNet::turnUntil([&] {
    const auto* l = links_.linkByName("p3");
    return l && l->master == lab_->bridgeIndex();
  }));
  EXPECT_TRUE(lab_->sw().exec("tc filter show dev p3 ingress | grep -q 'bpf.*direct-action'"));
  EXPECT_TRUE(lab_->sw().exec("tc filter show dev p3 egress | grep -q 'bpf.*direct-action'"));
  EXPECT_EQ(setup_->state(), BridgeSetup::State::ready);
}

TEST_F(BridgeSetupTest, WithoutTcOneLogAndNoDataPlane) {
  TestSupport::RecordingLogSink logs;
  std::vector<BridgeSetup::State> heard;
  setup_ = std::make_unique<BridgeSetup>(links_, BridgeSetup::Settings{"br0", 100, "/nonexistent/tc"},
                                         [&](BridgeSetup::State s) { heard.push_back(s); });
  EXPECT_EQ(setup_->state(), BridgeSetup::State::failed);
  EXPECT_EQ(heard, std::vector<BridgeSetup::State>{BridgeSetup::State::failed});
  ASSERT_TRUE(lab_->portAdd(3));
  ASSERT_TRUE(TestNet::turnUntil([&] { return links_.linkByName("p3") != nullptr; }));
  ASSERT_EQ(logs.lines().size(), 1u);
  EXPECT_EQ(
      logs.lines()[0].rfind("%DATAPLANE_UNAVAILABLE: Bridge br0 cannot be set up as the data plane: ", 0), 0u)
      << logs.lines()[0];
}

TEST(BridgeSetupSizeTest, TheHashHasRoomForTheGroupsAllowed) {
  EXPECT_EQ(BridgeSetup::hashMaxFor(0), 4096u);
  EXPECT_EQ(BridgeSetup::hashMaxFor(3000), 4096u);
  EXPECT_EQ(BridgeSetup::hashMaxFor(4000), 8192u);
  EXPECT_EQ(BridgeSetup::hashMaxFor(0xffff), 131072u);
}

}  // namespace
