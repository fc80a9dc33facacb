// The multiplexers with frames as on the wire: the VLAN a frame is delivered to, the frames dropped,
// the tagging of transmitted frames, blocked VLANs, and the receive loop's time limit.
#include <gtest/gtest.h>

#include "net/PktVlanTag.h"
#include "tests/support/GlueLab.h"

namespace {

using namespace TestSupport;
using Gmp::Igmp::IgmpQuery;

// VLAN 10 on Ethernet1 (access, untagged), Ethernet2 and Ethernet3 (trunks); VLAN 20 on Ethernet2 only.
class GlueVlanMultiplexerTest : public ::testing::Test {
 protected:
  GlueVlanMultiplexerTest() {
    lab.addPort("Ethernet1", 10);
    lab.addPort("Ethernet2");
    lab.addPort("Ethernet3");
    lab.addVlan(10, {{"Ethernet1", false}, {"Ethernet2", true}, {"Ethernet3", true}});
    lab.addVlan(20, {{"Ethernet2", true}});
  }
  uint32_t reports(const char* port) {
    return lab.counter(port) ? lab.counter(port)->inPktIgmpV2Report() : 0;
  }
  Kiv::Ptr<Lomax::Pkt> report(uint16_t vlan) {
    return host("10.0.0.1", vlan).igmpV2Report(ipAddr("239.1.1.1"));
  }

  GlueLab lab;
};

TEST_F(GlueVlanMultiplexerTest, FramesGoToTheVlanOfTheirTagOrOfThePort) {
  // Untagged on the access port: VLAN 10.
  lab.rx("Ethernet1", report(0));
  EXPECT_EQ(reports("Ethernet1"), 1u);
  // A tag of 0 is untagged.
  auto zeroTag = report(0);
  Lomax::insertPktVlanTag(zeroTag, Lomax::ethTypeVlan, 0);
  lab.rx("Ethernet1", zeroTag);
  EXPECT_EQ(reports("Ethernet1"), 2u);
  // Untagged on a trunk without a native VLAN: dropped before any VLAN sees it.
  lab.rx("Ethernet2", report(0));
  // Tagged 4095: out of range.
  auto tag4095 = report(0);
  Lomax::insertPktVlanTag(tag4095, Lomax::ethTypeVlan, 4095);
  lab.rx("Ethernet2", tag4095);
  // Tagged for a VLAN that the port is not in: no VLAN takes it.
  lab.rx("Ethernet3", report(20));
  lab.rx("Ethernet2", report(30));
  EXPECT_EQ(reports("Ethernet2"), 0u);
  EXPECT_EQ(reports("Ethernet3"), 0u);
  EXPECT_EQ(lab.counter("Ethernet2")->inPktUnknown() + lab.counter("Ethernet3")->inPktUnknown(), 0u);
  // Tagged frames of both VLANs of the trunk reach their VLANs, their tag removed.
  lab.rx("Ethernet2", report(10));
  EXPECT_EQ(reports("Ethernet2"), 1u);
  lab.rx("Ethernet2", report(20));
  EXPECT_EQ(reports("Ethernet2"), 2u);
  EXPECT_EQ(lab.vlanSm(20)->coreStatus()->groupSize(), 1u);
}

TEST_F(GlueVlanMultiplexerTest, TransmitTagsAsTheBridgeSaysAndNeedsAPortConfiguration) {
  auto* mux = lab.dir->multiplexer(intfId("Ethernet1"));
  auto frame = report(0);
  const std::vector<uint8_t> bytes(frame->data(), frame->data() + frame->len());
  mux->handleTxPkt(Bridging::VlanId(10), frame);
  ASSERT_EQ(lab.pam("Ethernet1").tx().size(), 1u);
  EXPECT_EQ(lab.pam("Ethernet1").tx()[0].bytes, bytes);
  lab.dir->multiplexer(intfId("Ethernet2"))->handleTxPkt(Bridging::VlanId(10), frame);
  ASSERT_EQ(lab.pam("Ethernet2").tx().size(), 1u);
  const auto& tagged = lab.pam("Ethernet2").tx()[0].bytes;
  ASSERT_EQ(tagged.size(), bytes.size() + 4);
  EXPECT_EQ(tagged[12], 0x81);
  EXPECT_EQ(tagged[15], 10);
  // The frame given is not changed by a transmit.
  EXPECT_EQ(std::vector<uint8_t>(frame->data(), frame->data() + frame->len()), bytes);
  // No egress tagging known for the port in the VLAN: nothing goes out.
  lab.bridgingConfig->vlanConfig(Bridging::VlanId(10))->intfDel(intfId("Ethernet3"));
  lab.dir->multiplexer(intfId("Ethernet3"))->handleTxPkt(Bridging::VlanId(10), frame);
  EXPECT_TRUE(lab.pam("Ethernet3").tx().empty());
  // Nor in a VLAN that the port does not serve.
  lab.dir->multiplexer(intfId("Ethernet1"))->handleTxPkt(Bridging::VlanId(20), frame);
  EXPECT_EQ(lab.pam("Ethernet1").tx().size(), 1u);
}

TEST_F(GlueVlanMultiplexerTest, ABlockedPortDropsBothWaysButTheFlooderStillCounts) {
  auto* mux = lab.dir->multiplexer(intfId("Ethernet2"));
  lab.topoPort(20, "Ethernet2")->blockedIs(true);
  EXPECT_TRUE(mux->blocked(Bridging::VlanId(20)));
  EXPECT_FALSE(mux->blocked(Bridging::VlanId(10)));
  lab.rx("Ethernet2", report(20));
  EXPECT_EQ(reports("Ethernet2"), 0u);
  // A query flooded in VLAN 10 reaches Ethernet2; in VLAN 20 it does not, though it is counted.
  lab.topoPort(10, "Ethernet2")->blockedIs(true);
  lab.topoPort(10, "Ethernet2")->blockedIs(true);
  lab.rx("Ethernet3", host("10.0.0.254", 10).igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 100, {})));
  EXPECT_TRUE(lab.pam("Ethernet2").tx().empty());
  EXPECT_EQ(lab.counter("Ethernet2")->outPktIgmpQuery(), 1u);
  EXPECT_EQ(lab.pam("Ethernet1").tx().size(), 1u);
  lab.topoPort(10, "Ethernet2")->blockedIs(false);
  EXPECT_FALSE(mux->blocked(Bridging::VlanId(10)));
  // Unblocking makes the port's query spoofer, which sends a query soon after.
  EXPECT_TRUE(lab.vlanSm(10)->coreSm()->intfQuerySpoofer(intfId("Ethernet2")));
  lab.advance(2.0);
  ASSERT_EQ(lab.pam("Ethernet2").tx().size(), 1u);
  EXPECT_TRUE(lab.pam("Ethernet2").tx()[0].tagged);
}

// Reading a frame costs 10 ms of virtual time, so that a long burst meets the loop's limit.
class SlowPam : public Lomax::MemoryPam {
 public:
  Kiv::Ptr<Lomax::Pkt> rxPkt() override {
    Kiv::activityManager()->virtualTimeIs(Kiv::System::currentTime() + 0.01);
    return MemoryPam::rxPkt();
  }
};

TEST_F(GlueVlanMultiplexerTest, TheReceiveLoopYieldsOnlyOnFramesOfUnservedVlans) {
  auto pam = Kiv::make<SlowPam>();
  Kiv::Ptr<IgmpShim::GlueVlanMultiplexer> mux =
      Kiv::make<IgmpShim::GlueVlanMultiplexer>(intfId("Ethernet4"), pam);
  lab.dir->multiplexerIs(mux);
  lab.vlanPortIs(10, "Ethernet4", true, true);
  for (int i = 0; i < 200; ++i) pam->rxPktEnqueue(report(30));
  pam->rxReady();
  // 0.5 s of 10 ms frames: the loop gave the thread back with frames left, and comes back for them.
  EXPECT_GE(pam->rxQueued(), 148u);
  EXPECT_LE(pam->rxQueued(), 151u);
  for (int turn = 0; turn < 4; ++turn) pam->rxReady();
  EXPECT_EQ(pam->rxQueued(), 0u);
  // Frames of a served VLAN are drained whatever the time they take.
  for (int i = 0; i < 200; ++i) pam->rxPktEnqueue(report(10));
  pam->rxReady();
  EXPECT_EQ(pam->rxQueued(), 0u);
  EXPECT_EQ(lab.counter("Ethernet4")->inPktIgmpV2Report(), 200u);
}

}  // namespace
