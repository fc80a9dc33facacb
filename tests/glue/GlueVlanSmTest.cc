// The VLAN glue driven with frames as on the wire through the port multiplexers: what is sent where,
// tagged or not, what is counted, what is published and in which order.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "glue/GlueIntfSm.h"
#include "glue/LocalIntfFilter.h"
#include "net/IpHdr.h"
#include "net/IpToEthGroupMap.h"
#include "net/NetU16.h"
#include "net/PktVlanTag.h"
#include "tests/support/GlueLab.h"
#include "tests/support/RecordingLogSink.h"

namespace {

using namespace Bridging::IgmpSnooping;
using namespace TestSupport;
using Gmp::Igmp::IgmpQuery;
using IgmpShim::GlueVlanSm;
using Lomax::IpAddr;

// An IPv4 frame of frameLen bytes, untagged, whose header gives totalLen; the checksum is right. A
// frame too short for the header holds as much of it as fits.
Kiv::Ptr<Lomax::Pkt> ipFrame(uint8_t protocol, const char* dst, uint16_t totalLen, uint16_t frameLen) {
  std::vector<uint8_t> bytes(std::max<size_t>(frameLen, 34));
  uint8_t* d = bytes.data();
  const uint8_t mac[6] = {0x01, 0x00, 0x5e, 0x01, 0x01, 0x01};
  std::copy(mac, mac + 6, d);
  d[12] = 0x08, d[13] = 0x00;
  d[14] = 0x45, d[22] = 1, d[23] = protocol;
  Lomax::IpHdr ip = *Lomax::IpHdr::of(d + 14, static_cast<uint32_t>(bytes.size() - 14));
  ip.totalLenIs(totalLen);
  ip.srcIs(ipAddr("10.0.0.9"));
  ip.dstIs(ipAddr(dst));
  ip.doChecksumUpdate();
  auto pkt = Lomax::globalPktManager().newPkt(frameLen);
  std::copy(d, d + frameLen, pkt->data());
  return pkt;
}

// The memory packet access of a hook's making: it claims or forbids what the test says.
struct TestFloodControl : IgmpSnooping::FloodControl {
  bool preProcessPkt(const Kiv::Ptr<Lomax::Pkt>&) override { return ++preProcessed, claim; }
  Lomax::IntfId additionalRouterIntf(Lomax::IntfId) override { return extra; }
  bool floodAllowed(const Kiv::Ptr<Lomax::Pkt>&, PktType type, Lomax::IntfId, Lomax::IntfId out) override {
    lastType = type;
    return out != forbidden;
  }
  bool claim = false;
  int preProcessed = 0;
  Lomax::IntfId extra;
  Lomax::IntfId forbidden;
  PktType lastType = floodCtrlOther;
};

// VLAN 10: Ethernet1 an access port (untagged), Ethernet2 a trunk, Ethernet3 a trunk to the router.
class GlueVlanSmTest : public ::testing::Test {
 protected:
  GlueVlanSmTest() {
    lab.addPort("Ethernet1", 10);
    lab.addPort("Ethernet2");
    lab.addPort("Ethernet3");
    lab.addVlan(10, {{"Ethernet1", false}, {"Ethernet2", true}, {"Ethernet3", true}});
  }
  void generalQuery() {
    lab.rx("Ethernet3", host("10.0.0.254", 10).igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr())));
  }
  void join(const char* port, const char* group, const char* from = "10.0.0.1") {
    lab.rx(port, host(from, port == std::string("Ethernet1") ? 0 : 10).igmpV2Report(ipAddr(group)));
  }
  void leave(const char* port, const char* group, const char* from = "10.0.0.1") {
    lab.rx(port, host(from, port == std::string("Ethernet1") ? 0 : 10).igmpV2Leave(ipAddr(group)));
  }
  GlueVlanSm* sm() { return lab.vlanSm(10); }
  Kiv::Ptr<VlanStatus> vs() { return lab.vlanStatus(10); }
  bool published(const char* group, const char* port) {
    auto g = vs() ? vs()->ethGroup(IpToEthGroupMap(ipAddr(group))) : nullptr;
    return g && g->groupIntf(intfId(port));
  }
  size_t sent(const char* port) { return lab.pam(port).tx().size(); }
  void expectInOrder(const PublishRecorder& rec) {
    for (const auto& v : rec.violations()) ADD_FAILURE() << v;
  }

  GlueLab lab;
};

TEST_F(GlueVlanSmTest, AReportIsPublishedAndForwardedToTheRouterTagged) {
  ASSERT_TRUE(sm()->coreSm());
  ASSERT_TRUE(vs());
  EXPECT_TRUE(vs()->useVlanFloodset());
  generalQuery();
  EXPECT_TRUE(sm()->coreStatus()->confident());
  EXPECT_EQ(sm()->state(), snoopingStateActive);
  EXPECT_FALSE(vs()->useVlanFloodset());
  // The query went to the other two ports: untagged on the access port, tagged on the trunk.
  ASSERT_EQ(sent("Ethernet1"), 1u);
  EXPECT_FALSE(lab.pam("Ethernet1").tx()[0].tagged);
  ASSERT_EQ(sent("Ethernet2"), 1u);
  EXPECT_TRUE(lab.pam("Ethernet2").tx()[0].tagged);
  EXPECT_EQ(sent("Ethernet3"), 0u);
  lab.txClear();
  join("Ethernet1", "239.1.1.1");
  EXPECT_TRUE(published("239.1.1.1", "Ethernet1"));
  EXPECT_TRUE(vs()->routerIntf(intfId("Ethernet3")));
  ASSERT_EQ(sent("Ethernet3"), 1u);
  EXPECT_TRUE(lab.pam("Ethernet3").tx()[0].tagged);
  EXPECT_EQ(sent("Ethernet2"), 0u);
  EXPECT_EQ(lab.counter("Ethernet1")->inPktIgmpV2Report(), 1u);
  EXPECT_EQ(lab.counter("Ethernet3")->outPktIgmpReport(), 1u);
}

TEST_F(GlueVlanSmTest, BadFramesAreCountedAndNeverReachTheCore) {
  auto* c = lab.counter("Ethernet1").ptr();
  lab.rx("Ethernet1", ipFrame(17, "239.1.1.1", 20, 33));
  EXPECT_EQ(c->inPktTooShort(), 1u);
  // 34 bytes with a header of total length 20 pass every check and reach dispatch.
  lab.rx("Ethernet1", ipFrame(17, "239.1.1.1", 20, 34));
  EXPECT_EQ(c->inPktUnknown(), 1u);
  lab.rx("Ethernet1", ipFrame(17, "239.1.1.1", 100, 14 + 90));
  EXPECT_EQ(c->inPktTooShort(), 2u);
  auto longHeader = ipFrame(17, "239.1.1.1", 20, 34);
  longHeader->data()[14] = 0x4f;
  lab.rx("Ethernet1", longHeader);
  EXPECT_EQ(c->inPktTooShort(), 3u);
  auto badSum = ipFrame(2, "239.1.1.1", 20, 60);
  badSum->data()[24] ^= 0xff;
  lab.rx("Ethernet1", badSum);
  EXPECT_EQ(c->inPktBadIpChecksum(), 1u);
  auto arp = ipFrame(2, "239.1.1.1", 20, 60);
  arp->data()[13] = 0x06;
  lab.rx("Ethernet1", arp);
  EXPECT_EQ(c->inPktNonIp(), 1u);
  // Only one tag is removed: a second one makes the frame not IP.
  auto doubleTagged = host("10.0.0.1", 10).igmpV2Report(ipAddr("239.1.1.1"));
  Lomax::insertPktVlanTag(doubleTagged, Bridging::VlanId(10));
  lab.rx("Ethernet2", doubleTagged);
  EXPECT_EQ(lab.counter("Ethernet2")->inPktNonIp(), 1u);
  EXPECT_EQ(sm()->coreStatus()->groupSize(), 0u);
  for (auto& p : lab.ports) EXPECT_TRUE(p.second.pam->tx().empty()) << p.first;
}

TEST_F(GlueVlanSmTest, OtherTrafficWithACoreFollowsTheHardwareFlags) {
  auto* c = lab.counter("Ethernet2").ptr();
  auto ospf = [] {
    auto f = ipFrame(89, "224.0.0.5", 20, 60);
    Lomax::insertPktVlanTag(f, Bridging::VlanId(10));
    return f;
  };
  lab.rx("Ethernet2", ospf());
  EXPECT_EQ(sent("Ethernet1") + sent("Ethernet3"), 0u);
  lab.hwConfig->swFloodLinkLocalWithCoreIs(true);
  lab.rx("Ethernet2", ospf());
  EXPECT_EQ(sent("Ethernet1"), 1u);
  EXPECT_EQ(sent("Ethernet3"), 1u);
  EXPECT_EQ(sent("Ethernet2"), 0u);
  EXPECT_EQ(c->inPktUnknown(), 0u);
  // Not link-local: counted, never flooded.
  auto udp = ipFrame(17, "239.1.1.1", 20, 60);
  Lomax::insertPktVlanTag(udp, Bridging::VlanId(10));
  lab.rx("Ethernet2", udp);
  EXPECT_EQ(c->inPktUnknown(), 1u);
  EXPECT_EQ(sent("Ethernet1"), 1u);
  // PIM goes to the core, which learns the router, and then to the whole VLAN.
  lab.hwConfig->swFloodPimWithCoreIs(true);
  lab.rx("Ethernet3", host("10.0.0.254", 10).pimV2Hello(105));
  EXPECT_EQ(lab.counter("Ethernet3")->inPktPim(), 1u);
  EXPECT_TRUE(sm()->routerInterface(intfId("Ethernet3")));
  EXPECT_EQ(sent("Ethernet1"), 2u);
  EXPECT_EQ(lab.counter("Ethernet1")->outPktOther(), 2u);
}

TEST_F(GlueVlanSmTest, WithoutACoreFramesAreCountedAsUnknownAndFloodedAsTheHardwareNeeds) {
  lab.vlanConfig(10)->enabledIs(vlanStateDisabled);
  EXPECT_FALSE(sm()->coreSm());
  EXPECT_FALSE(vs());
  EXPECT_FALSE(lab.protocolStatus->contextStatus(Bridging::VlanId(10)));
  join("Ethernet1", "239.1.1.1");
  EXPECT_EQ(lab.counter("Ethernet1")->inPktUnknown(), 1u);
  EXPECT_EQ(sent("Ethernet2") + sent("Ethernet3"), 0u);
  lab.hwConfig->swFloodIgmpNoCoreIs(true);
  join("Ethernet1", "239.1.1.1");
  EXPECT_EQ(lab.counter("Ethernet1")->inPktUnknown(), 2u);
  EXPECT_EQ(sent("Ethernet2"), 1u);
  EXPECT_EQ(sent("Ethernet3"), 1u);
  EXPECT_EQ(sent("Ethernet1"), 0u);
  // Everything of this branch leaves as "other".
  EXPECT_EQ(lab.counter("Ethernet2")->outPktOther(), 1u);
  EXPECT_EQ(lab.counter("Ethernet2")->outPktIgmpReport(), 0u);
  lab.rx("Ethernet3", host("10.0.0.254", 10).pimV2Hello(105));
  EXPECT_EQ(sent("Ethernet1"), 0u);
  lab.hwConfig->swFloodPimNoCoreIs(true);
  lab.rx("Ethernet3", host("10.0.0.254", 10).pimV2Hello(105));
  EXPECT_EQ(sent("Ethernet1"), 1u);
  // A port that may not receive drops silently.
  lab.topoPort(10, "Ethernet1")->allowedTrafficDirectionIs(Bridging::trafficDirectionTransmitOnly);
  join("Ethernet1", "239.1.1.1");
  EXPECT_EQ(lab.counter("Ethernet1")->inPktUnknown(), 2u);
  // Snooping comes back: a core, a status that floods until the core is confident.
  lab.vlanConfig(10)->enabledIs(vlanStateEnabled);
  ASSERT_TRUE(sm()->coreSm());
  ASSERT_TRUE(vs());
  EXPECT_TRUE(vs()->useVlanFloodset());
}

TEST_F(GlueVlanSmTest, HooksClaimPacketsAddRoutersAndForbidPorts) {
  auto hook = Kiv::make<TestFloodControl>();
  lab.glueSm->floodControlIs(intfId("Ethernet9"), hook);
  generalQuery();
  EXPECT_EQ(hook->preProcessed, 1);
  hook->claim = true;
  join("Ethernet1", "239.1.1.1");
  EXPECT_EQ(lab.counter("Ethernet1")->inPktIgmpV2Report(), 0u);
  EXPECT_EQ(sm()->coreStatus()->groupSize(), 0u);
  hook->claim = false;
  lab.txClear();
  // A report goes to the router and to the hook's extra port, but not where the hook forbids.
  lab.addPort("Ethernet4");
  hook->extra = intfId("Ethernet4");
  join("Ethernet1", "239.1.1.1");
  EXPECT_EQ(sent("Ethernet3"), 1u);
  EXPECT_EQ(sent("Ethernet4"), 0u);  // not in the VLAN: the multiplexer does not serve it
  lab.vlanPortIs(10, "Ethernet4", true, true);
  join("Ethernet1", "239.1.1.1");
  EXPECT_EQ(sent("Ethernet4"), 1u);
  hook->forbidden = intfId("Ethernet3");
  join("Ethernet1", "239.1.1.1");
  EXPECT_EQ(sent("Ethernet3"), 2u);
  EXPECT_EQ(lab.counter("Ethernet3")->outPktIgmpReport(), 2u);
  EXPECT_EQ(hook->lastType, IgmpSnooping::FloodControl::floodCtrlOther);
}

// 32 IP groups share one Ethernet group: a port stays in it until its last IP group leaves. Every
// write to the published state keeps flooding on before a group goes and groups on before it stops.
TEST_F(GlueVlanSmTest, EthernetGroupsAreReferenceCountedAndPublishedInOrder) {
  PublishRecorder rec(lab.status, Bridging::VlanId(10), [this] { return lab.wanted(10); });
  lab.vlanConfig(10)->immediateLeaveIs(immediateLeaveEnabled);
  generalQuery();
  std::vector<std::string> groups;
  for (int hi = 224; hi < 240; ++hi) {
    groups.push_back(std::to_string(hi) + ".1.1.1");
    groups.push_back(std::to_string(hi) + ".129.1.1");
  }
  for (auto& g : groups) join("Ethernet1", g.c_str());
  join("Ethernet2", "239.1.1.1", "10.0.0.2");
  const auto eth = IpToEthGroupMap(ipAddr("239.1.1.1"));
  ASSERT_EQ(vs()->ethGroupSize(), 1u);
  EXPECT_EQ(sm()->ethernetGroup(eth)->groupIntf(intfId("Ethernet1"))->intfAddrSize(), 32u);
  for (size_t i = 0; i + 1 < groups.size(); ++i) leave("Ethernet1", groups[i].c_str());
  EXPECT_TRUE(published("239.1.1.1", "Ethernet1"));
  leave("Ethernet1", groups.back().c_str());
  EXPECT_FALSE(published("239.1.1.1", "Ethernet1"));
  EXPECT_TRUE(published("239.1.1.1", "Ethernet2"));
  leave("Ethernet2", "239.1.1.1", "10.0.0.2");
  EXPECT_FALSE(vs()->ethGroup(eth));
  EXPECT_EQ(sm()->ethernetGroupSize(), 0u);
  EXPECT_FALSE(vs()->useVlanFloodset());
  expectInOrder(rec);
}

TEST_F(GlueVlanSmTest, ExpiryQuerierLossAndRestartKeepTheOrder) {
  PublishRecorder rec(lab.status, Bridging::VlanId(10), [this] { return lab.wanted(10); });
  join("Ethernet1", "239.1.1.1");
  // Not confident yet: the group is known locally but nothing is published.
  EXPECT_FALSE(published("239.1.1.1", "Ethernet1"));
  generalQuery();
  join("Ethernet1", "239.1.1.1");
  join("Ethernet2", "239.2.2.2", "10.0.0.2");
  EXPECT_TRUE(published("239.1.1.1", "Ethernet1"));
  EXPECT_TRUE(published("239.2.2.2", "Ethernet2"));
  // Expiry: the querier keeps querying, Ethernet2's host stops answering.
  for (int i = 0; i < 3; ++i) {
    lab.advance(100.0);
    generalQuery();
    join("Ethernet1", "239.1.1.1");
  }
  EXPECT_TRUE(published("239.1.1.1", "Ethernet1"));
  EXPECT_FALSE(published("239.2.2.2", "Ethernet2"));
  EXPECT_FALSE(vs()->useVlanFloodset());
  // Querier loss: confidence goes, flooding comes on, then the groups go.
  lab.advance(300.0);
  EXPECT_FALSE(sm()->coreStatus()->confident());
  EXPECT_TRUE(vs()->useVlanFloodset());
  EXPECT_EQ(vs()->ethGroupSize(), 0u);
  EXPECT_EQ(sm()->state(), snoopingStateFlooding);
  generalQuery();
  join("Ethernet1", "239.1.1.1");
  EXPECT_TRUE(published("239.1.1.1", "Ethernet1"));
  EXPECT_FALSE(vs()->useVlanFloodset());
  // Restart: a new glue finds the status confident and what was published; nothing changes while the
  // agent rebuilds, and the sweep after it finds everything in place.
  const size_t before = rec.writes();
  const auto snapshot = rec.last().groups;
  lab.glueSm->smStateRebuiltIs(false);
  Kiv::Ptr<GlueVlanSm> old(sm());
  old->kivDoZombieReactors(true);
  lab.glueSm->vlans.erase(Bridging::VlanId(10));
  for (auto& p : lab.ports) p.second.mux->vlanSmDel(Bridging::VlanId(10));
  old = nullptr;
  auto topo = lab.glueSm->topoVlan(Bridging::VlanId(10));
  auto fresh = IgmpShim::glueVlanSmFactory(
      topo, {}, lab.vlanConfig(10), vs(), lab.protocolConfig, lab.protocolStatus,
      lab.protocolStatus->contextStatus(Bridging::VlanId(10)), lab.counterDir, lab.glueSm.ptr());
  lab.glueSm->vlans.set(Bridging::VlanId(10), fresh);
  fresh->handleVlanIntf();
  EXPECT_EQ(rec.writes(), before);
  lab.glueSm->smStateRebuiltIs(true);
  fresh->handleSmStateInitialized();
  EXPECT_EQ(rec.last().groups, snapshot);
  EXPECT_FALSE(vs()->useVlanFloodset());
  join("Ethernet2", "239.3.3.3", "10.0.0.2");
  EXPECT_TRUE(published("239.3.3.3", "Ethernet2"));
  expectInOrder(rec);
}

TEST_F(GlueVlanSmTest, DisablingSnoopingWithdrawsThePublishedStateInOrder) {
  PublishRecorder rec(lab.status, Bridging::VlanId(10), [this] { return lab.wanted(10); });
  generalQuery();
  join("Ethernet1", "239.1.1.1");
  lab.vlanConfig(10)->enabledIs(vlanStateDisabled);
  EXPECT_FALSE(vs());
  EXPECT_EQ(sm()->state(), snoopingStateDefault);
  EXPECT_FALSE(lab.protocolConfig->contextConfig(Bridging::VlanId(10)));
  // The glue and its flooder stay; so do the ports' multiplexers.
  EXPECT_EQ(sm()->flooder()->enabledIntfSize(), 3u);
  lab.config->vlanDefaultEnabledIs(false);
  lab.vlanConfig(10)->enabledIs(vlanStateEnabled);
  EXPECT_FALSE(sm()->coreSm());
  lab.config->vlanDefaultEnabledIs(true);
  sm()->handleChangeToSnoopingState(Bridging::VlanId(10));
  ASSERT_TRUE(sm()->coreSm());
  generalQuery();
  join("Ethernet1", "239.1.1.1");
  EXPECT_TRUE(published("239.1.1.1", "Ethernet1"));
  expectInOrder(rec);
}

TEST_F(GlueVlanSmTest, StaticGroupsAndRoutersStandInTheStatusAsIfLearnt) {
  generalQuery();
  auto cfg = lab.vlanConfig(10);
  auto group = cfg->ipGroupIs(ipAddr("239.5.5.5"));
  group->intfIs(intfId("Ethernet2"), true);
  EXPECT_TRUE(published("239.5.5.5", "Ethernet2"));
  EXPECT_TRUE(sm()->coreStatus()->group(ipAddr("239.5.5.5"))->intf(intfId("Ethernet2"))->staticEntry());
  // A port that is not in the VLAN is not added, until it joins.
  lab.addPort("Ethernet4");
  group->intfIs(intfId("Ethernet4"), true);
  EXPECT_FALSE(published("239.5.5.5", "Ethernet4"));
  lab.vlanPortIs(10, "Ethernet4", true, true);
  EXPECT_TRUE(published("239.5.5.5", "Ethernet4"));
  // A host that also reports keeps the membership when the static entry goes.
  join("Ethernet2", "239.5.5.5", "10.0.0.2");
  group->intfDel(intfId("Ethernet2"));
  EXPECT_TRUE(published("239.5.5.5", "Ethernet2"));
  EXPECT_FALSE(sm()->coreStatus()->group(ipAddr("239.5.5.5"))->intf(intfId("Ethernet2"))->staticEntry());
  group->intfDel(intfId("Ethernet4"));
  EXPECT_FALSE(published("239.5.5.5", "Ethernet4"));
  // A static router port is a router 127.0.0.1 on it, published like a learnt one.
  cfg->routerIntfIs(intfId("Ethernet1"), true);
  EXPECT_TRUE(vs()->routerIntf(intfId("Ethernet1")));
  EXPECT_TRUE(sm()->routerInterface(intfId("Ethernet1"))->intfAddr(GlueVlanSm::staticRouterAddr));
  lab.txClear();
  join("Ethernet2", "239.6.6.6", "10.0.0.2");
  EXPECT_EQ(sent("Ethernet1"), 1u);
  EXPECT_EQ(sent("Ethernet3"), 1u);
  cfg->routerIntfDel(intfId("Ethernet1"));
  EXPECT_FALSE(vs()->routerIntf(intfId("Ethernet1")));
  EXPECT_FALSE(sm()->routerInterface(intfId("Ethernet1")));
}

TEST_F(GlueVlanSmTest, ConfigurationMadeBeforeTheCoreTakesEffectWhenItIsMade) {
  auto cfg = lab.vlanConfig(10);
  cfg->enabledIs(vlanStateDisabled);
  cfg->maxGroupsIs(5);
  cfg->immediateLeaveIs(immediateLeaveEnabled);
  cfg->ipGroupIs(ipAddr("239.7.7.7"))->intfIs(intfId("Ethernet1"), true);
  cfg->routerIntfIs(intfId("Ethernet2"), true);
  cfg->switchPortIs(intfId("Ethernet1"), true);
  cfg->switchPortIs(intfId("Ethernet9"), true);
  lab.config->robustnessIs(3);
  cfg->enabledIs(vlanStateEnabled);
  auto contextConfig = lab.protocolConfig->contextConfig(Bridging::VlanId(10));
  ASSERT_TRUE(contextConfig);
  EXPECT_EQ(contextConfig->maxGroups(), 5u);
  EXPECT_TRUE(contextConfig->immediateLeave());
  EXPECT_EQ(contextConfig->robustness(), 3u);
  EXPECT_EQ(sm()->coreStatus()->configuredRobustness(), 3u);
  EXPECT_TRUE(sm()->coreStatus()->group(ipAddr("239.7.7.7")));
  EXPECT_TRUE(sm()->coreStatus()->switchPort(intfId("Ethernet1")));
  // A configured port that does not exist is passed over.
  EXPECT_FALSE(sm()->coreStatus()->switchPort(intfId("Ethernet9")));
  generalQuery();
  EXPECT_TRUE(published("239.7.7.7", "Ethernet1"));
  EXPECT_TRUE(vs()->routerIntf(intfId("Ethernet2")));
  // The same settings made afterwards give the same.
  cfg->maxGroupsIs(7);
  EXPECT_EQ(contextConfig->maxGroups(), 7u);
  cfg->immediateLeaveIs(immediateLeaveDisabled);
  EXPECT_FALSE(contextConfig->immediateLeave());
}

TEST_F(GlueVlanSmTest, ReportFloodingTakesRouterPortsOutAndWarnsOfRealRouters) {
  RecordingLogSink logs;
  generalQuery();
  EXPECT_TRUE(vs()->routerIntf(intfId("Ethernet3")));
  // The VLAN's tri-state keeps its meaning: no choice of its own follows the global setting.
  lab.config->globalReportFloodingEnabledIs(true);
  sm()->handleReportFloodingEnabled();
  EXPECT_TRUE(sm()->coreStatus()->reportFloodingEnabled());
  lab.vlanConfig(10)->reportFloodingConfigIs(vlanStateDisabled);
  EXPECT_FALSE(sm()->coreStatus()->reportFloodingEnabled());
  EXPECT_TRUE(vs()->routerIntf(intfId("Ethernet3")));
  lab.config->globalReportFloodingEnabledIs(false);
  sm()->handleReportFloodingEnabled();
  lab.vlanConfig(10)->reportFloodingConfigIs(vlanStateEnabled);
  EXPECT_TRUE(sm()->coreStatus()->reportFloodingEnabled());
  EXPECT_FALSE(vs()->routerIntf(intfId("Ethernet3")));
  EXPECT_TRUE(logs.entries.empty());
  lab.rx("Ethernet2", host("10.0.0.253", 10).pimV2Hello(105));
  EXPECT_TRUE(sm()->routerInterface(intfId("Ethernet2")));
  EXPECT_FALSE(vs()->routerIntf(intfId("Ethernet2")));
  ASSERT_FALSE(logs.entries.empty());
  EXPECT_EQ(logs.entries.back().name, "IGMPSNOOPING_NOT_EXPECT_ROUTER");
  // Reports now go to the switch ports as well as to the routers.
  lab.vlanConfig(10)->switchPortIs(intfId("Ethernet1"), true);
  lab.txClear();
  lab.rx("Ethernet2", host("10.0.0.2", 10).igmpV2Report(ipAddr("239.1.1.1")));
  EXPECT_EQ(sent("Ethernet1"), 1u);
  EXPECT_EQ(sent("Ethernet3"), 1u);
  EXPECT_EQ(sent("Ethernet2"), 0u);
  lab.vlanConfig(10)->reportFloodingConfigIs(vlanStateDefault);
  EXPECT_FALSE(sm()->coreStatus()->reportFloodingEnabled());
  EXPECT_TRUE(vs()->routerIntf(intfId("Ethernet3")));
  // A value outside the three leaves the setting as it was.
  lab.vlanConfig(10)->reportFloodingConfigIs(static_cast<VlanState>(7));
  EXPECT_FALSE(sm()->coreStatus()->reportFloodingEnabled());
}

TEST_F(GlueVlanSmTest, PortsFollowTheTopologyAndTheirTrafficDirection) {
  auto* flooder = sm()->flooder().ptr();
  auto* core = sm()->coreSm().ptr();
  // A port that may not send stays in the core but leaves the flood set; back at both, it returns.
  lab.topoPort(10, "Ethernet2")->allowedTrafficDirectionIs(Bridging::trafficDirectionReceiveOnly);
  EXPECT_FALSE(flooder->enabledIntf(intfId("Ethernet2")));
  EXPECT_TRUE(core->enabledIntf(intfId("Ethernet2")));
  generalQuery();
  EXPECT_EQ(sent("Ethernet2"), 0u);
  lab.topoPort(10, "Ethernet2")->allowedTrafficDirectionIs(Bridging::trafficDirectionBoth);
  EXPECT_TRUE(flooder->enabledIntf(intfId("Ethernet2")));
  // A port that may not receive is flooded to, but what it sends is dropped without a trace.
  lab.topoPort(10, "Ethernet1")->allowedTrafficDirectionIs(Bridging::trafficDirectionTransmitOnly);
  EXPECT_TRUE(flooder->enabledIntf(intfId("Ethernet1")));
  join("Ethernet1", "239.1.1.1");
  EXPECT_EQ(lab.counter("Ethernet1")->inPktIgmpV2Report(), 0u);
  // A port that leaves the VLAN leaves the core, the flood set and its multiplexer's VLANs.
  join("Ethernet2", "239.1.1.1", "10.0.0.2");
  EXPECT_TRUE(published("239.1.1.1", "Ethernet2"));
  lab.vlanPortIs(10, "Ethernet2", false);
  EXPECT_FALSE(core->enabledIntf(intfId("Ethernet2")));
  EXPECT_FALSE(flooder->enabledIntf(intfId("Ethernet2")));
  EXPECT_FALSE(lab.dir->multiplexer(intfId("Ethernet2"))->vlanSm(Bridging::VlanId(10)));
  EXPECT_FALSE(published("239.1.1.1", "Ethernet2"));
  lab.vlanPortIs(10, "Ethernet2", true, true);
  EXPECT_TRUE(core->enabledIntf(intfId("Ethernet2")));
  EXPECT_TRUE(lab.dir->multiplexer(intfId("Ethernet2"))->vlanSm(Bridging::VlanId(10)));
}

TEST_F(GlueVlanSmTest, AGroupQueryReachesEachMemberAndRouterOnce) {
  generalQuery();
  join("Ethernet1", "239.1.1.1");
  join("Ethernet2", "239.1.1.1", "10.0.0.2");
  lab.vlanConfig(10)->routerIntfIs(intfId("Ethernet2"), true);
  lab.addPort("Ethernet4");
  lab.vlanPortIs(10, "Ethernet4", true, true);
  lab.txClear();
  lab.rx("Ethernet3",
         host("10.0.0.254", 10).igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 10, ipAddr("239.1.1.1"))));
  EXPECT_EQ(sent("Ethernet1"), 1u);
  EXPECT_EQ(sent("Ethernet2"), 1u);
  EXPECT_EQ(sent("Ethernet3"), 0u);
  EXPECT_EQ(sent("Ethernet4"), 0u);
  EXPECT_EQ(lab.counter("Ethernet2")->outPktIgmpQuery(), 2u);  // the general query, then this one
  // A query for a group without members still reaches the router ports.
  lab.txClear();
  lab.rx("Ethernet1",
         host("10.0.0.253").igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 10, ipAddr("239.9.9.9"))));
  EXPECT_EQ(sent("Ethernet2"), 1u);
  EXPECT_EQ(sent("Ethernet3"), 1u);
  EXPECT_EQ(sent("Ethernet4"), 0u);
}

// The switch's own querier sends its queries through its VlanPam and hears reports through it: to
// the VLAN it is a port, "Switch", that the core learns as a querier and floods reports to.
TEST_F(GlueVlanSmTest, TheL2QuerierTalksToTheVlanThroughTheSwitchInterface) {
  lab.bridgingConfig->bridgeMacAddrIs(Lomax::EthAddr(0x0200, 0x0000, 0x00aa));
  auto own = lab.vlanConfig(10)->vlanQuerierConfigIs("querier");
  own->enabledConfiguredIs(1);
  auto querier = lab.querierConfigDir->querierConfig("10");
  ASSERT_TRUE(querier);
  EXPECT_TRUE(querier->enabled());
  EXPECT_FALSE(querier->proxyMode());
  EXPECT_EQ(querier->macAddr(), Lomax::EthAddr(0x0200, 0x0000, 0x00aa));
  ASSERT_TRUE(querier->pam());
  EXPECT_EQ(querier->pam()->vlan(), Bridging::VlanId(10));
  const auto sw = Lomax::switchIntfId();
  EXPECT_TRUE(sm()->flooder()->enabledIntf(sw));
  EXPECT_TRUE(sm()->coreSm()->enabledIntf(sw));
  EXPECT_EQ(lab.switchMux->vlanSm(Bridging::VlanId(10)), sm());

  // Its general query reaches the core on the next turn and goes out of every port, tagged or not as
  // each port is configured; the VLAN becomes confident.
  querier->pam()->txPkt(host("10.0.0.250").igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr())),
                        Bridging::VlanId(10), true);
  EXPECT_EQ(sent("Ethernet1"), 0u);
  lab.advance(0.0);
  EXPECT_EQ(lab.counter("Switch")->inPktIgmpV2Query(), 1u);
  EXPECT_TRUE(sm()->coreStatus()->confident());
  ASSERT_EQ(sent("Ethernet1"), 1u);
  EXPECT_FALSE(lab.pam("Ethernet1").tx()[0].tagged);
  ASSERT_EQ(sent("Ethernet2"), 1u);
  EXPECT_TRUE(lab.pam("Ethernet2").tx()[0].tagged);
  EXPECT_TRUE(sm()->routerInterface(sw));
  // The pseudo-interface is no port of the bridge: it is never published as a router port.
  EXPECT_FALSE(vs()->routerIntf(sw));

  // A host's report goes to the querier, untagged as the querier reads it.
  join("Ethernet1", "239.1.1.1");
  EXPECT_TRUE(published("239.1.1.1", "Ethernet1"));
  EXPECT_EQ(lab.counter("Switch")->outPktIgmpReport(), 1u);
  lab.advance(0.0);
  auto heard = querier->pam()->rxPkt();
  ASSERT_TRUE(heard);
  EXPECT_EQ(Lomax::NetU16::read(heard->data() + 12), Lomax::ethTypeIp);
  EXPECT_EQ(heard->data()[14 + 24], 0x16);  // after an IP header with the router alert option
  EXPECT_FALSE(querier->pam()->rxPkt());

  // Switched off, the querier loses its configuration and the VLAN its pseudo-port.
  own->enabledConfiguredIs(2);
  EXPECT_FALSE(lab.querierConfigDir->querierConfig("10"));
  EXPECT_FALSE(sm()->flooder()->enabledIntf(sw));
  EXPECT_FALSE(sm()->coreSm()->enabledIntf(sw));
  EXPECT_FALSE(lab.switchMux->vlanSm(Bridging::VlanId(10)));
  EXPECT_EQ(lab.l2QuerierMultiplexer->vlanPamSize(), 0u);
}

TEST_F(GlueVlanSmTest, QuerierValuesAreTheVlansOwnOrTheGlobalOnes) {
  auto global = lab.config->globalQuerierConfig();
  global->enabledIs(true);
  global->ipAddrIs(ipAddr("10.0.0.100"));
  sm()->handleQuerierEnabled();
  auto querier = lab.querierConfigDir->querierConfig("10");
  ASSERT_TRUE(querier);
  EXPECT_EQ(querier->ipAddr(), ipAddr("10.0.0.100"));
  EXPECT_EQ(querier->queryInterval(), 125.0);
  EXPECT_EQ(querier->startupQueryInterval(), 31.25);
  auto own = lab.vlanConfig(10)->vlanQuerierConfigIs("querier");
  own->ipAddrConfiguredIs(ipAddr("10.0.0.101"));
  EXPECT_EQ(querier->ipAddr(), ipAddr("10.0.0.101"));
  // A query interval of the VLAN's own also sets the startup interval, unless that is its own too.
  own->queryIntervalConfiguredIs(100.0);
  EXPECT_EQ(querier->queryInterval(), 100.0);
  EXPECT_EQ(sm()->coreStatus()->configuredQueryInterval(), 100u);
  EXPECT_EQ(querier->startupQueryInterval(), 25.0);
  own->startupQueryIntervalConfiguredIs(10.0);
  EXPECT_EQ(querier->startupQueryInterval(), 10.0);
  own->querierVersionConfiguredIs(3);
  EXPECT_EQ(querier->querierVersion(), 3u);
  own->mtuConfiguredIs(1400);
  EXPECT_EQ(querier->mtu(), 1400u);
  // Counts fall back from the VLAN to the global value to the robustness.
  global->lastMemberQueryCountIs(0);
  global->startupQueryCountIs(0);
  lab.config->robustnessIs(4);
  sm()->handleRobustness();
  EXPECT_EQ(querier->robustness(), 4u);
  EXPECT_EQ(querier->lastMemberQueryCount(), 4u);
  EXPECT_EQ(querier->startupQueryCount(), 4u);
  own->lastMemberQueryCountConfiguredIs(5);
  EXPECT_EQ(querier->lastMemberQueryCount(), 5u);
  // The VLAN's own setting turns off a querier that the global one wants.
  own->enabledConfiguredIs(2);
  EXPECT_FALSE(lab.querierConfigDir->querierConfig("10"));
  own->enabledConfiguredIs(0);
  EXPECT_TRUE(lab.querierConfigDir->querierConfig("10"));
}

// Whether the querier or snooping came first, the querier gets its packet path with the core.
TEST_F(GlueVlanSmTest, TheQuerierGetsItsPacketPathWithTheCoreAndServesTheProxy) {
  lab.vlanConfig(10)->enabledIs(vlanStateDisabled);
  auto own = lab.vlanConfig(10)->vlanQuerierConfigIs("querier");
  own->enabledConfiguredIs(1);
  auto querier = lab.querierConfigDir->querierConfig("10");
  ASSERT_TRUE(querier);
  EXPECT_TRUE(querier->enabled());
  EXPECT_FALSE(querier->pam());
  EXPECT_TRUE(sm()->flooder()->enabledIntf(Lomax::switchIntfId()));
  lab.vlanConfig(10)->enabledIs(vlanStateEnabled);
  ASSERT_TRUE(querier->pam());
  EXPECT_TRUE(sm()->coreSm()->enabledIntf(Lomax::switchIntfId()));
  lab.vlanConfig(10)->enabledIs(vlanStateDisabled);
  EXPECT_FALSE(querier->pam());
  EXPECT_EQ(lab.l2QuerierMultiplexer->vlanPamSize(), 0u);
  lab.vlanConfig(10)->enabledIs(vlanStateEnabled);
  // The proxy needs a querier whatever the querier's own setting says.
  own->enabledConfiguredIs(2);
  EXPECT_FALSE(lab.querierConfigDir->querierConfig("10"));
  lab.glueSm->proxy = true;
  sm()->handleQuerierEnabled();
  sm()->handleProxyVlanConfig();
  querier = lab.querierConfigDir->querierConfig("10");
  ASSERT_TRUE(querier);
  EXPECT_TRUE(querier->enabled());
  EXPECT_TRUE(querier->proxyMode());
  EXPECT_TRUE(lab.protocolConfig->contextConfig(Bridging::VlanId(10))->proxyEnabled());
  EXPECT_TRUE(querier->pam());
  // A VLAN that leaves loses its querier's configuration first; the core's removal then takes the
  // packet path down and makes no new configuration.
  lab.querierConfigDir->querierConfigDel("10");
  sm()->handleCleanupCore();
  EXPECT_FALSE(lab.querierConfigDir->querierConfig("10"));
  EXPECT_FALSE(lab.switchMux->vlanSm(Bridging::VlanId(10)));
  EXPECT_FALSE(sm()->flooder()->enabledIntf(Lomax::switchIntfId()));
}

TEST(GlueIntfTest, ProfilesReachTheCoreAndPeerInterfacesGetNoPacketAccess) {
  auto config = Kiv::make<IntfConfig>(intfId("Ethernet1"));
  auto core = Kiv::make<IntfConfig>(intfId("Ethernet1"));
  config->profileNameIs("gold");
  auto sm = Kiv::make<IgmpShim::GlueIntfSm>(intfId("Ethernet1"), config, core);
  EXPECT_EQ(core->profileName(), Kiv::String("gold"));
  config->profileNameIs("silver");
  EXPECT_EQ(core->profileName(), Kiv::String("silver"));

  auto input = Kiv::make<Interface::PamDesiredIntfDir>("input");
  auto local = Kiv::make<Interface::PamDesiredIntfDir>("local");
  input->intfDesiredIs(intfId("Ethernet1"), true);
  auto filter = Kiv::make<IgmpShim::LocalIntfFilter>(input, local);
  EXPECT_TRUE(local->intfDesired(intfId("Ethernet1")));
  input->intfDesiredIs(intfId("PeerEthernet1"), true);
  EXPECT_FALSE(local->intfDesired(intfId("PeerEthernet1")));
  input->intfDesiredDel(intfId("Ethernet1"));
  EXPECT_FALSE(local->intfDesired(intfId("Ethernet1")));
}

}  // namespace
