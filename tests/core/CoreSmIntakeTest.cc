// The packet's road through the core: checks and counters of each message type, the flood each road
// makes, proxy suppression, and frames whose bytes lie.
#include <gtest/gtest.h>

#include "core/CorePeerSyncSm.h"
#include "kernel/RingDecoder.h"
#include "kernel/RingTrace.h"
#include "tests/core/CoreHarness.h"

namespace CoreTest {
namespace {

using Gmp::Igmp::IgmpGroupRecord;
using Gmp::Igmp::IgmpQuery;

class CoreSmIntakeTest : public ::testing::Test, public CoreHarness {
 protected:
  void SetUp() override { startCore(); }
  // A frame with its IGMP message cut or replaced: the IP length follows the new payload.
  Kiv::Ptr<Lomax::Pkt> withPayload(Kiv::Ptr<Lomax::Pkt> frame, std::vector<uint8_t> payload) {
    Lomax::IpHdr ipHdr = *Lomax::IpHdr::of(frame->data() + 14, frame->len() - 14u);
    std::vector<uint8_t> bytes(frame->data(), frame->data() + 14 + ipHdr.headerBytes());
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    Lomax::IpHdr out = *Lomax::IpHdr::of(bytes.data() + 14, static_cast<uint32_t>(bytes.size() - 14));
    out.totalLenIs(static_cast<uint16_t>(ipHdr.headerBytes() + payload.size()));
    out.doChecksumUpdate();
    return Lomax::globalPktManager().newPkt(bytes);
  }
  static std::vector<uint8_t> withChecksum(std::vector<uint8_t> msg) {
    msg[2] = msg[3] = 0;
    Lomax::IpChecksum c = Lomax::IpChecksum::of(msg.data(), msg.size());
    msg[2] = static_cast<uint8_t>(c.value() >> 8), msg[3] = static_cast<uint8_t>(c.value());
    return msg;
  }
};

TEST_F(CoreSmIntakeTest, ReportsCountBuildStateAndFloodToRouters) {
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  rx("Ethernet1", host("10.0.0.2").igmpV1Report(ip("239.1.1.1")));
  EXPECT_EQ(counter("Ethernet1")->inPktIgmpV2Report(), 1u);
  EXPECT_EQ(counter("Ethernet1")->inPktIgmpV1Report(), 1u);
  auto m = membership("239.1.1.1", "Ethernet1", "10.0.0.1");
  ASSERT_TRUE(m);
  EXPECT_EQ(m->filterMode(), Gmp::Igmp::filterModeExclude);
  EXPECT_EQ(m->igmpVersion(), Gmp::Igmp::igmpVersion2);
  EXPECT_EQ(m->lastReport(), start);
  EXPECT_EQ(membership("239.1.1.1", "Ethernet1", "10.0.0.2")->igmpVersion(), Gmp::Igmp::igmpVersion1);
  EXPECT_EQ(status->group(ip("239.1.1.1"))->intf(IntfId("Ethernet1"))->lowestVersion(),
            Gmp::Igmp::igmpVersion1);
  EXPECT_EQ(status->newIgmpReport(), 2u);
  ASSERT_EQ(floods(), 2u);
  EXPECT_EQ(lastFlood()->floodType(), floodTypeRouter);
  EXPECT_EQ(lastFlood()->pktType(), pktTypeReport);
  EXPECT_EQ(lastFlood()->incomingIntfId(), IntfId("Ethernet1"));
  EXPECT_FALSE(lastFlood()->outgoingIntfId());

  status->reportFloodingEnabledIs(true);
  rx("Ethernet2", host("10.0.0.3").igmpV2Leave(ip("239.1.1.1")));
  EXPECT_EQ(counter("Ethernet2")->inPktIgmpV2Leave(), 1u);
  EXPECT_EQ(lastFlood()->floodType(), floodTypeRouterAndSwitchPort);
  EXPECT_EQ(lastFlood()->pktType(), pktTypeLeave);

  // Counters replaced in the directory count from then on; the old ones no longer move.
  Kiv::Ptr<IgmpContextIntfCounter> old = counter("Ethernet1");
  counterDir->intfCounterDel(IntfId("Ethernet1").stringValue());
  counterDir->intfCounterIs(IntfId("Ethernet1").stringValue());
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  EXPECT_EQ(counter("Ethernet1")->inPktIgmpV2Report(), 1u);
  EXPECT_EQ(old->inPktIgmpV2Report(), 1u);
}

TEST_F(CoreSmIntakeTest, ShortAndCorruptMessagesAreCountedAndDroppedWithoutState) {
  auto frame = host("10.0.0.1").igmpV2Report(ip("239.1.1.1"));
  rx("Ethernet1", withPayload(frame, {0x16, 0, 0}));  // 3 bytes: too short for anything
  EXPECT_EQ(counter("Ethernet1")->inPktTooShort(), 1u);
  // 4 to 7 bytes pass the general test and the checksum, then fail in their road ...
  rx("Ethernet1", withPayload(frame, withChecksum({0x16, 0, 0, 0, 239, 1})));
  rx("Ethernet1", withPayload(frame, withChecksum({0x11, 0, 0, 0, 0})));
  EXPECT_EQ(counter("Ethernet1")->inPktTooShort(), 3u);
  // ... but an unknown type and an MRD termination have no length test.
  rx("Ethernet1", withPayload(frame, withChecksum({0x31, 0, 0, 0})));
  EXPECT_EQ(counter("Ethernet1")->inPktIgmpOther(), 1u);
  EXPECT_EQ(lastFlood()->floodType(), floodTypeVlan);
  EXPECT_EQ(lastFlood()->pktType(), pktTypeOther);
  size_t before = floods();
  auto bad = withPayload(frame, {0x16, 0, 0x12, 0x34, 239, 1, 1, 1});
  rx("Ethernet1", bad);
  EXPECT_EQ(counter("Ethernet1")->inPktBadIgmpChecksum(), 1u);
  // A v3 report whose record count lies about its bytes.
  rx("Ethernet1", withPayload(frame, withChecksum({0x22, 0, 0, 0, 0, 0, 0, 9, 1, 0, 0, 0, 239, 1, 1, 1})));
  EXPECT_EQ(counter("Ethernet1")->inPktIgmpV3Report(), 1u);
  EXPECT_EQ(counter("Ethernet1")->inPktTooShort(), 4u);
  EXPECT_EQ(floods(), before);
  EXPECT_EQ(status->groupSize(), 0u);
}

// No IP header a frame carries ends the process or is read beyond: each is dropped and counted.
TEST_F(CoreSmIntakeTest, BadIpHeadersAreCountedAndDroppedBeforeAnyFieldIsRead) {
  auto query = host("10.0.0.254").igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr()));
  const std::vector<uint8_t> good(query->data(), query->data() + query->len());
  auto frame = [&](std::vector<uint8_t> bytes, uint8_t versionAndIhl) {
    bytes[14] = versionAndIhl;
    return Lomax::globalPktManager().newPkt(bytes);
  };
  const size_t before = floods();
  rx("Ethernet3", frame(std::vector<uint8_t>(good.begin(), good.begin() + 14 + 30), 0x4f));  // 60 > 30
  rx("Ethernet3", frame(std::vector<uint8_t>(good.begin(), good.begin() + 14 + 12), 0x45));  // cut at 12
  // A header length of 1 or 2 words would put an 8-byte query with a good checksum inside the header.
  std::vector<uint8_t> shortIhl(good.begin(), good.begin() + 14 + 8);
  std::vector<uint8_t> message = withChecksum({0x11, 100, 0, 0, 0, 0, 0, 0});
  shortIhl.insert(shortIhl.end(), message.begin(), message.end());
  rx("Ethernet3", frame(shortIhl, 0x42));
  rx("Ethernet3", frame(shortIhl, 0x41));
  rx("Ethernet3", frame(shortIhl, 0x40));
  EXPECT_EQ(counter("Ethernet3")->inPktTooShort(), 5u);
  rx("Ethernet3", frame(good, 0x65));
  EXPECT_EQ(counter("Ethernet3")->inPktNonIp(), 1u);
  // An IP protocol that is neither IGMP nor PIM is counted and ignored.
  std::vector<uint8_t> udp = good;
  udp[14 + 9] = 17;
  rx("Ethernet3", frame(udp, 0x45));
  EXPECT_EQ(counter("Ethernet3")->inPktUnknown(), 1u);
  EXPECT_EQ(counter("Ethernet3")->inPktIgmpV2Query(), 0u);
  EXPECT_FALSE(status->querier());
  EXPECT_EQ(floods(), before);
}

TEST_F(CoreSmIntakeTest, PaddingBehindAReportIsCutBeforeTheChecksum) {
  auto frame = host("10.0.0.1").igmpV2Report(ip("239.1.1.1"));
  std::vector<uint8_t> bytes(frame->data(), frame->data() + frame->len());
  bytes.resize(bytes.size() + 30, 0xee);  // trailing garbage that no checksum covers
  rx("Ethernet1", Lomax::globalPktManager().newPkt(bytes));
  EXPECT_EQ(counter("Ethernet1")->inPktBadIgmpChecksum(), 0u);
  EXPECT_TRUE(membership("239.1.1.1", "Ethernet1", "10.0.0.1"));
}

TEST_F(CoreSmIntakeTest, QueriesByVersionFloodAndElect) {
  auto router = host("10.0.0.254");
  rx("Ethernet3", router.igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion1, 0, IpAddr())));
  rx("Ethernet3", router.igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr())));
  IgmpQuery v3(Gmp::Igmp::igmpVersion3, 100, IpAddr());
  v3.robustnessIs(3);
  v3.queryIntervalCodeIs(60);
  rx("Ethernet3", router.igmpQuery(v3));
  EXPECT_EQ(counter("Ethernet3")->inPktIgmpV1Query(), 1u);
  EXPECT_EQ(counter("Ethernet3")->inPktIgmpV2Query(), 1u);
  EXPECT_EQ(counter("Ethernet3")->inPktIgmpV3Query(), 1u);
  ASSERT_TRUE(status->querier());
  EXPECT_EQ(status->querier()->addr(), ip("10.0.0.254"));
  EXPECT_EQ(status->querierVersion(), Gmp::Igmp::igmpVersion3);
  EXPECT_EQ(status->lastQueryRobustness(), 3u);
  EXPECT_EQ(status->robustness(), 3u);
  EXPECT_EQ(status->queryInterval(), 60u);
  ASSERT_TRUE(status->router(ip("10.0.0.254")));
  EXPECT_EQ(status->router(ip("10.0.0.254"))->routerType(), routerTypeQuery);
  EXPECT_FALSE(status->latestQuery().empty());
  EXPECT_EQ(lastFlood()->floodType(), floodTypeVlan);
  EXPECT_EQ(lastFlood()->pktType(), pktTypeQuery);
  EXPECT_TRUE(status->confident());

  // A group-specific query goes to the group's members only.
  rx("Ethernet3", router.igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 10, ip("239.2.2.2"))));
  EXPECT_EQ(lastFlood()->floodType(), floodTypeMembers);
  EXPECT_EQ(lastFlood()->optionalGroupAddress(), ip("239.2.2.2"));
}

// Only a general query is kept for the replay: a group-specific one that was not taken is flooded to
// the VLAN, as a general one is, but not stored.
TEST_F(CoreSmIntakeTest, OnlyAGeneralQueryIsStoredForTheReplay) {
  IgmpQuery specific(Gmp::Igmp::igmpVersion3, 100, ip("239.2.2.2"));
  specific.suppressRouterSideProcessingIs(true);
  rx("Ethernet3", host("10.0.0.254").igmpQuery(specific));
  EXPECT_EQ(lastFlood()->floodType(), floodTypeVlan);
  EXPECT_TRUE(status->latestQuery().empty());
  auto general = host("10.0.0.254").igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr()));
  rx("Ethernet3", general);
  EXPECT_EQ(status->latestQuery(), general->stringValue());
}

// The largest maxGroups is no limit: a VLAN that holds that many groups still takes one more.
TEST_F(CoreSmIntakeTest, MaxGroupsAtItsLargestIsNoLimit) {
  contextConfig->maxGroupsIs(0xffff);
  for (uint32_t i = 0; i < 0xffff; ++i) status->groupIs(IpAddr::fromHost(0xe8000000 + i));
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  EXPECT_TRUE(membership("239.1.1.1", "Ethernet1", "10.0.0.1"));
  EXPECT_FALSE(status->groupLimitExceeded());
}

TEST_F(CoreSmIntakeTest, QueryFromZeroAddressAgesAndFloodsButElectsNothing) {
  rx("Ethernet3", host("0.0.0.0").igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr())));
  EXPECT_FALSE(status->querier());
  EXPECT_EQ(status->routerSize(), 0u);
  EXPECT_EQ(lastFlood()->floodType(), floodTypeVlan);
  EXPECT_EQ(status->queryResponseInterval(), 10.0);
  // A twelve-byte query with code 0 is a version 1 query.
  auto frame = host("0.0.0.0").igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion1, 0, IpAddr()));
  rx("Ethernet3", withPayload(frame, withChecksum({0x11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})));
  EXPECT_EQ(counter("Ethernet3")->inPktIgmpV1Query(), 1u);
  EXPECT_EQ(counter("Ethernet3")->inPktIgmpV2Query(), 1u);
}

TEST_F(CoreSmIntakeTest, RouterMessagesLearnRoutersAndFloodToTheVlan) {
  rx("Ethernet3", host("10.0.0.100").pimV2Hello(105));
  EXPECT_EQ(counter("Ethernet3")->inPktPim(), 1u);
  EXPECT_EQ(status->router(ip("10.0.0.100"))->routerType(), routerTypePim);
  EXPECT_EQ(status->router(ip("10.0.0.100"))->expire(), start + 105.0);
  size_t before = floods();
  EXPECT_EQ(floods(), before);  // PIM is forwarded by the VLAN glue, not the core

  rx("Ethernet2", host("10.0.0.101").dvmrpProbe(7));
  EXPECT_EQ(counter("Ethernet2")->inPktDvmrp(), 1u);
  EXPECT_EQ(status->router(ip("10.0.0.101"))->life(), 35.0);
  EXPECT_EQ(lastFlood()->floodType(), floodTypeVlan);

  rx("Ethernet2", host("10.0.0.102").mrdAdvertisement(20, 125, 2));
  EXPECT_DOUBLE_EQ(status->router(ip("10.0.0.102"))->life(), 20 * 3.025);
  rx("Ethernet2", host("10.0.0.103").mrdAdvertisement(0, 125, 2));
  EXPECT_EQ(status->router(ip("10.0.0.103"))->life(), 0.0);
  EXPECT_EQ(counter("Ethernet2")->inPktMrd(), 2u);
  // A termination from a router known by PIM changes nothing: PIM is the stronger source.
  rx("Ethernet3", host("10.0.0.100").mrdTermination());
  EXPECT_EQ(status->router(ip("10.0.0.100"))->routerType(), routerTypePim);
  EXPECT_EQ(status->router(ip("10.0.0.100"))->expire(), start + 105.0);

  auto pim = host("10.0.0.105").pimV2Hello(105);
  pim->data()[14 + 20 + 2] ^= 0xff;  // break the PIM checksum
  rx("Ethernet3", pim);
  EXPECT_EQ(counter("Ethernet3")->inPktBadPimChecksum(), 1u);
  EXPECT_FALSE(status->router(ip("10.0.0.105")));
}

TEST_F(CoreSmIntakeTest, ProxySuppressesFrontPortsButNotTheSwitch) {
  contextConfig->proxyEnabledIs(true);
  core->enabledIntfIs(Lomax::switchIntfId(), true);
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  EXPECT_TRUE(membership("239.1.1.1", "Ethernet1", "10.0.0.1"));
  EXPECT_EQ(floods(), 0u);
  rx("Switch", host("10.0.0.9").igmpV2Report(ip("239.1.1.1")));
  EXPECT_EQ(floods(), 1u);
  // Queries from ports leave memberships alone and are not forwarded.
  rx("Ethernet3", host("10.0.0.254").igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 10, ip("239.1.1.1"))));
  EXPECT_EQ(membership("239.1.1.1", "Ethernet1", "10.0.0.1")->state(), membershipStateMember);
  EXPECT_EQ(floods(), 1u);
}

TEST_F(CoreSmIntakeTest, TheFirstCoreOpensTheRingTraceAndEveryCoreWritesToIt) {
  Vellum::RingTrace* ring = Vellum::snoopVlHandle;
  ASSERT_NE(ring, nullptr);
  CoreHarness second;
  second.startCore();
  EXPECT_EQ(Vellum::snoopVlHandle, ring);
  rx("Ethernet2", host("10.9.9.9").igmpV2Report(ip("239.9.9.9")));
  Vellum::RingDecoder d({reinterpret_cast<const char*>(ring->bytes()), ring->size()});
  ASSERT_TRUE(d.ok()) << d.error();
  bool began = false;
  for (const Vellum::RingMessage& m : d.messages()) {
    began =
        began || m.text ==
                     "Membership of group 239.9.9.9 by reporter 10.9.9.9 on interface Ethernet2 on Vlan 10 "
                     "began.";
  }
  EXPECT_TRUE(began);
}

TEST_F(CoreSmIntakeTest, InvariantBreachesAbort) {
  EXPECT_DEATH(core->doRxPkt(IntfId("Ethernet9"), host("10.0.0.1").igmpV2Report(ip("239.1.1.1")), flooder),
               "enabledIntf\\( intf \\)");
  EXPECT_DEATH(core->doRxPkt(IntfId("Ethernet1"), nullptr, flooder), "pkt");
}

}  // namespace
}  // namespace CoreTest

namespace CoreTest {
namespace {

using Gmp::Igmp::IgmpQuery;

struct PeerLink : ::IgmpSnooping::MlagInfo {
  bool isMlagIntf(IntfId) const override { return false; }
  IntfId peerLinkIntf() const override { return IntfId("Port-Channel100"); }
};

TEST_F(CoreSmIntakeTest, ThePeerLinkCarriesNothingIntoTheState) {
  core->enabledIntfIs(IntfId("Port-Channel100"), true);
  auto sync = Kiv::make<CorePeerSyncSm>();
  sync->mlagInfoIs(Kiv::make<PeerLink>());
  core->syncSmIs(sync);
  rx("Port-Channel100", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  EXPECT_EQ(status->groupSize(), 0u);
  EXPECT_EQ(lastFlood()->pktType(), pktTypeReport);  // a report still travels
  rx("Port-Channel100", host("10.0.0.1").igmpV2Leave(ip("239.1.1.1")));
  EXPECT_EQ(counter("Port-Channel100")->inPktIgmpV2Leave(), 1u);
  EXPECT_EQ(lastFlood()->pktType(), pktTypeOther);
  rx("Port-Channel100", host("10.0.0.100").pimV2Hello(105));
  EXPECT_EQ(status->routerSize(), 0u);
}

TEST_F(CoreSmIntakeTest, TheSuppressFlagIsHonouredOnlyWithTheProxy) {
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  IgmpQuery specific(Gmp::Igmp::igmpVersion3, 10, ip("239.1.1.1"));
  specific.suppressRouterSideProcessingIs(true);
  IgmpQuery general(Gmp::Igmp::igmpVersion3, 100, IpAddr());
  general.suppressRouterSideProcessingIs(true);
  rx("Ethernet3", host("10.0.0.254").igmpQuery(specific));
  EXPECT_EQ(membership("239.1.1.1", "Ethernet1", "10.0.0.1")->state(), membershipStateMember);
  EXPECT_EQ(lastFlood()->floodType(), floodTypeVlan);
  rx("Ethernet3", host("10.0.0.254").igmpQuery(general));
  EXPECT_FALSE(status->confident());  // no aging, no confidence

  contextConfig->proxyEnabledIs(true);
  core->enabledIntfIs(Lomax::switchIntfId(), true);
  rx("Switch", host("10.0.0.254").igmpQuery(general));
  EXPECT_TRUE(status->confident());
}

}  // namespace
}  // namespace CoreTest
