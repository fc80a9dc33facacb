// The agent-wide glue on the virtual clock: a restart's bring-up of a full switch in bounded slices,
// orphaned status, VLANs and ports that come and go, snooping switched off and on globally, device
// interfaces appearing and vanishing, and counter update requests.
#include "glue/GlueSm.h"

#include <gtest/gtest.h>

#include <functional>
#include <utility>
#include <vector>

#include "net/FrameBuilder.h"
#include "tests/glue/GlueAgentHarness.h"

namespace {

using Bridging::VlanId;
using IgmpShim::GlueSm;
using TestGlue::port;

// Each VLAN's work costs virtual time: every look at the topology of a VLAN advances the clock, so
// the slices of a walk end as they would on a real clock.
class TimedGlueSm : public GlueSm {
 public:
  static constexpr Kiv::Seconds lookCost = 0.0002;
  using GlueSm::GlueSm;
  Kiv::Ptr<Topology::Library::Vlan::TopoVlan const> topoVlan(VlanId vlan) const override {
    Kiv::Clock& c = *services().timerWheel->clock();
    c.virtualTimeIs(c.now() + lookCost);
    ++looks;
    return GlueSm::topoVlan(vlan);
  }
  mutable uint64_t looks = 0;
};

class GlueSmTest : public ::testing::Test {
 protected:
  // Drives the clock by hand, one wake-up at a time, until done() holds, and gives the length of each
  // slice of a walk: a wake-up that moved the walk's position (bookmark, pass). A probe armed after
  // each slice must fire before the next one: the loop is served between slices. afterSlice runs
  // between slices.
  std::vector<Kiv::Seconds> slicesUntil(const std::function<bool()>& done,
                                        const std::function<std::pair<uint16_t, bool>()>& position,
                                        const std::function<void(size_t)>& afterSlice = {}) {
    Kiv::Clock& clock = *lab.clock;
    int probesFired = 0;
    struct Probe : Kiv::Clock::NotifieeConst {
      int* fired;
      explicit Probe(int* f) : fired(f) {}
      void onTime() override { ++*fired; }
    } served(&probesFired);
    served.notifierIs(lab.clock);
    std::vector<Kiv::Seconds> slices;
    int lastProbes = 0;
    while (!done()) {
      const Kiv::Seconds next = clock.nextTime();
      if (next == Kiv::infinity) {
        ADD_FAILURE() << "the walk stalled";
        break;
      }
      clock.virtualTimeIs(std::max(next, clock.now()));
      const auto before = position();
      const Kiv::Seconds start = clock.now();
      clock.doFireNext();
      if (position() == before && !done()) continue;
      slices.push_back(clock.now() - start);
      EXPECT_TRUE(slices.size() == 1 || probesFired > lastProbes)
          << "nothing served before slice " << slices.size();
      lastProbes = probesFired;
      served.timeMinIs(clock.now() + 0.01);
      if (afterSlice) afterSlice(slices.size());
    }
    return slices;
  }

  Kiv::VirtualTime virtualTime{1000};
  TestGlue::GlueAgentLab lab;
};

TEST_F(GlueSmTest, ARestartBringsUpAFullSwitchInBoundedSlicesWithTheLoopServedBetween) {
  lab.switchIs(1, 4094, 48);
  for (int v = 1; v <= 4094; ++v) lab.survivingStatusIs(v);
  lab.start<TimedGlueSm>();
  auto& sm = static_cast<TimedGlueSm&>(*lab.glueSm);
  EXPECT_TRUE(sm.initialized());
  EXPECT_EQ(sm.vlanSmSize(), 0u) << "waits for the topology library";

  // One VLAN's work: at most two looks at the topology for each of its ports.
  const Kiv::Seconds maxVlanCost = 2 * 48 * TimedGlueSm::lookCost;
  auto slices = slicesUntil([&] { return sm.vlanSmInitialized(); },
                            [&] { return std::pair(sm.vlanSmInitBookmark(), sm.smStateRebuilt()); },
                            [&](size_t n) {
                              // The VLAN the walk resumes at leaves the topology between two slices.
                              if (n == 5) lab.bridgingConfig->vlanConfigDel(VlanId(sm.vlanSmInitBookmark()));
                            });
  ASSERT_GT(slices.size(), 5u);
  // The first also holds the creation of every VLAN as the library reports them, which is not sliced.
  for (size_t i = 1; i < slices.size(); ++i) {
    EXPECT_LE(slices[i], GlueSm::vlanSmInitQuantum + maxVlanCost) << "slice " << i;
  }
  EXPECT_EQ(sm.vlanSmSize(), 4093u);
  EXPECT_TRUE(sm.smStateRebuilt());
  EXPECT_EQ(sm.vlanSmInitBookmark(), GlueSm::noBookmark);
  EXPECT_EQ(lab.coreStatusDir->contextStatusSize(), 4093u);
  for (auto& v : sm.vlanSmIter()) {
    ASSERT_TRUE((*v.value())->coreSm()) << "VLAN " << v.key() << " was passed over";
  }

  // Switching snooping off globally is a sliced walk of its own, bounded the same way.
  lab.config->vlanDefaultEnabledIs(false);
  EXPECT_NE(sm.stateUpdateBookmark(), GlueSm::noBookmark) << "the first slice ran in the setter";
  slices = slicesUntil([&] { return sm.stateUpdateBookmark() == GlueSm::noBookmark; },
                       [&] { return std::pair(sm.stateUpdateBookmark(), false); });
  ASSERT_GE(slices.size(), 1u);
  for (auto len : slices) EXPECT_LE(len, GlueSm::stateUpdateQuantum + maxVlanCost);
  EXPECT_EQ(lab.coreStatusDir->contextStatusSize(), 0u);
}

TEST_F(GlueSmTest, MembershipsThatSurvivedARestartAreKept) {
  lab.switchIs(10, 11, 2);
  for (int v : {10, 11}) {
    lab.survivingStatusIs(v);
    auto m = lab.coreStatusDir->contextStatus(VlanId(v))
                 ->groupIs(Lomax::IpAddr(239, 1, 1, 1))
                 ->intfIs(port(v - 9))
                 ->membershipIs(Lomax::IpAddr(10, 0, 0, 1));
    m->lastReportIs(lab.now() - 10);
    m->expireIs(lab.now() + 250);
  }
  lab.start();
  lab.turn();
  ASSERT_TRUE(lab.glueSm->vlanSmInitialized());
  for (int v : {10, 11}) {
    auto g = lab.coreStatusDir->contextStatus(VlanId(v))->group(Lomax::IpAddr(239, 1, 1, 1));
    ASSERT_TRUE(g) << v;
    EXPECT_TRUE(g->intf(port(v - 9))) << v;
  }
}

TEST_F(GlueSmTest, OrphansGoAtRestartAndVlansComeAndGoWithTheTopology) {
  lab.switchIs(10, 20, 4);
  for (int v : {10, 20, 30}) lab.survivingStatusIs(v);
  lab.bridgingConfig->vlanConfigDel(VlanId(15));
  lab.start();
  EXPECT_EQ(lab.ethDevPamManager->enables, 1);
  EXPECT_EQ(lab.ethDevPamManager->sockRcvBuf(), 8388608u);
  EXPECT_FALSE(lab.ethDevPamManager->perIntfSocket());
  EXPECT_EQ(lab.ethDevPamManager->filterProgram().size(), 29u);
  lab.turn();
  GlueSm& sm = *lab.glueSm;
  ASSERT_TRUE(sm.vlanSmInitialized());
  EXPECT_EQ(sm.vlanSmSize(), 10u);
  EXPECT_FALSE(lab.status->vlanStatus(VlanId(30)));
  EXPECT_FALSE(lab.coreStatusDir->contextStatus(VlanId(30)));
  EXPECT_FALSE(lab.coreConfigDir->contextConfig(VlanId(30)));
  EXPECT_TRUE(lab.coreStatusDir->contextStatus(VlanId(20)));
  EXPECT_TRUE(sm.vlanSm(VlanId(20))->coreSm());

  lab.bridgingConfig->vlanConfigIs(VlanId(15))->intfIs(port(1));
  lab.turn();
  ASSERT_TRUE(sm.vlanSm(VlanId(15)));
  EXPECT_TRUE(sm.vlanSm(VlanId(15))->coreSm());
  EXPECT_TRUE(lab.coreStatusDir->contextStatus(VlanId(15)));

  lab.bridgingConfig->vlanConfigDel(VlanId(20));
  lab.turn();
  EXPECT_FALSE(sm.vlanSm(VlanId(20)));
  EXPECT_FALSE(lab.status->vlanStatus(VlanId(20))) << "what it published is withdrawn";
  EXPECT_EQ(sm.vlanSmSize(), 10u);

  // Configuration of a VLAN that the topology lacks makes no machine.
  lab.config->vlanConfigIs(VlanId(99));
  lab.turn();
  EXPECT_FALSE(sm.vlanSm(VlanId(99)));
}

TEST_F(GlueSmTest, SnoopingSwitchedOffGloballyAndBackOn) {
  lab.switchIs(1, 3, 2);
  lab.start();
  lab.turn();
  GlueSm& sm = *lab.glueSm;
  ASSERT_TRUE(sm.vlanSmInitialized());
  for (int v = 1; v <= 3; ++v) EXPECT_TRUE(sm.vlanSm(VlanId(v))->coreSm());
  lab.config->vlanDefaultEnabledIs(false);
  for (int v = 1; v <= 3; ++v) {
    EXPECT_FALSE(sm.vlanSm(VlanId(v))->coreSm()) << v;
    EXPECT_FALSE(lab.coreStatusDir->contextStatus(VlanId(v))) << v;
  }
  EXPECT_EQ(sm.vlanSmSize(), 3u) << "the VLANs stay; only their cores go";
  lab.config->vlanDefaultEnabledIs(true);
  for (int v = 1; v <= 3; ++v) EXPECT_TRUE(sm.vlanSm(VlanId(v))->coreSm()) << v;
  EXPECT_EQ(sm.stateUpdateBookmark(), GlueSm::noBookmark);
}

TEST_F(GlueSmTest, VlanConfigurationAndForcedPortsReachTheVlans) {
  lab.switchIs(10, 11, 2);
  lab.config->intfConfigIs(port(2))->profileNameIs("early");
  lab.start();
  EXPECT_EQ(lab.coreConfigDir->intfConfig(port(2))->profileName(), Kiv::String("early"));
  // A change while the bring-up waits has no effect of its own: the bring-up reads the configuration.
  lab.config->vlanConfigIs(VlanId(11))->enabledIs(Bridging::IgmpSnooping::vlanStateDisabled);
  lab.turn();
  GlueSm& sm = *lab.glueSm;
  ASSERT_TRUE(sm.vlanSmInitialized());
  EXPECT_TRUE(sm.vlanSm(VlanId(10))->coreSm());
  EXPECT_FALSE(sm.vlanSm(VlanId(11))->coreSm());

  lab.config->vlanConfigIs(VlanId(10))->enabledIs(Bridging::IgmpSnooping::vlanStateDisabled);
  EXPECT_EQ(sm.vlanSm(VlanId(10))->igmpVlanConfig(), lab.config->vlanConfig(VlanId(10)));
  EXPECT_FALSE(sm.vlanSm(VlanId(10))->coreSm());
  lab.config->vlanConfigDel(VlanId(11));
  EXPECT_TRUE(sm.vlanSm(VlanId(11))->coreSm()) << "no configuration: snooping runs";

  // An interface's filter profile reaches the core's configuration, and goes with it.
  lab.config->intfConfigIs(port(1))->profileNameIs("edge");
  ASSERT_TRUE(lab.coreConfigDir->intfConfig(port(1)));
  EXPECT_EQ(lab.coreConfigDir->intfConfig(port(1))->profileName(), Kiv::String("edge"));
  lab.config->intfConfig(port(1))->profileNameIs("core");
  EXPECT_EQ(lab.coreConfigDir->intfConfig(port(1))->profileName(), Kiv::String("core"));
  lab.config->intfConfigDel(port(1));
  EXPECT_FALSE(lab.coreConfigDir->intfConfig(port(1)));
  EXPECT_FALSE(sm.intfSm(port(1)));

  lab.swForceConfig->forceEnabledPortsIs(port(1), true);
  EXPECT_TRUE(lab.topoVlanLib->forceEnabledPorts(port(1)));
  lab.swForceConfig->forceEnabledPortsDel(port(1));
  EXPECT_FALSE(lab.topoVlanLib->forceEnabledPorts(port(1)));
  EXPECT_EQ(lab.topoVlanLib->forceEnabledPortsSize(), 1u) << "written false, not removed";
}

TEST_F(GlueSmTest, APortLeavesAndJoinsAVlan) {
  lab.switchIs(10, 11, 2);
  lab.start();
  auto pam1 = lab.pamIs(1);
  auto pam2 = lab.pamIs(2);
  lab.turn();
  GlueSm& sm = *lab.glueSm;
  auto* mux2 = lab.glueVlanMultiplexerDir->multiplexer(port(2));
  ASSERT_TRUE(mux2);
  EXPECT_TRUE(mux2->vlanSm(VlanId(10)));
  EXPECT_TRUE(sm.vlanSm(VlanId(10))->coreSm()->enabledIntf(port(2)));

  lab.bridgingConfig->vlanConfig(VlanId(10))->intfDel(port(2));
  lab.turn();
  EXPECT_FALSE(mux2->vlanSm(VlanId(10)));
  EXPECT_TRUE(mux2->vlanSm(VlanId(11))) << "other VLANs keep the port";
  EXPECT_FALSE(sm.vlanSm(VlanId(10))->coreSm()->enabledIntf(port(2)));

  lab.bridgingConfig->vlanConfig(VlanId(10))->intfIs(port(2));
  lab.turn();
  EXPECT_TRUE(mux2->vlanSm(VlanId(10)));
  EXPECT_TRUE(sm.vlanSm(VlanId(10))->coreSm()->enabledIntf(port(2)));

  // The bridge's configuration of the port reaches its multiplexer through the VLAN manager.
  auto* gmux2 = dynamic_cast<IgmpShim::GlueVlanMultiplexer*>(mux2);
  ASSERT_TRUE(gmux2);
  EXPECT_EQ(gmux2->switchIntfConfig(), lab.bridgingConfig->switchIntfConfig(port(2)));
  lab.bridgingConfig->switchIntfConfigDel(port(2));
  auto replaced = lab.bridgingConfig->switchIntfConfigIs(port(2));
  EXPECT_EQ(gmux2->switchIntfConfig(), replaced);

  // A link that goes down blocks the port in its multiplexer.
  lab.linkIs(2, false);
  lab.turn();
  EXPECT_TRUE(mux2->blocked(VlanId(10)));
  lab.linkIs(2, true);
  lab.turn();
  EXPECT_FALSE(mux2->blocked(VlanId(10)));
}

TEST_F(GlueSmTest, ADeviceInterfaceAppearsAndDisappears) {
  // Port 3 is a bridge port outside VLAN 10 at first: a flood in the VLAN must find a multiplexer for
  // every port the VLAN has.
  lab.switchIs(10, 10, 3);
  lab.bridgingConfig->vlanConfig(VlanId(10))->intfDel(port(3));
  lab.start();
  auto pam1 = lab.pamIs(1);
  auto pam2 = lab.pamIs(2);
  lab.turn();
  GlueSm& sm = *lab.glueSm;
  EXPECT_FALSE(lab.glueVlanMultiplexerDir->multiplexer(port(3)));
  EXPECT_TRUE(lab.bridgeIntfDir->intfDesired(port(3))) << "a device that is a bridge port is wanted";

  // A querier is heard on port 1: from then on a port that appears is sent a spoofed query.
  pam1->rxPktEnqueue(Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0, 0x00fe), Lomax::IpAddr(10, 0, 0, 254))
                         .igmpQuery(Gmp::Igmp::IgmpQuery(Gmp::Igmp::igmpVersion2, 100, Lomax::IpAddr())));
  pam1->rxReady();
  ASSERT_TRUE(lab.coreStatusDir->contextStatus(VlanId(10))->querier());
  EXPECT_EQ(pam2->txCount(), 1u) << "the query is flooded in the VLAN";

  auto pam = lab.pamIs(3);
  auto* mux = lab.glueVlanMultiplexerDir->multiplexer(port(3));
  ASSERT_TRUE(mux);
  EXPECT_EQ(mux->innerPam(), pam);
  EXPECT_FALSE(mux->copyPktBeforeTx());
  EXPECT_TRUE(sm.vlanSm(VlanId(10))->coreSm()->intfQuerySpoofer(port(3)));
  EXPECT_TRUE(lab.counterDir->intfCounter(port(3).stringValue()));
  EXPECT_FALSE(mux->vlanSm(VlanId(10)));
  lab.bridgingConfig->vlanConfig(VlanId(10))->intfIs(port(3));
  lab.turn();
  EXPECT_TRUE(mux->vlanSm(VlanId(10))) << "the port joined the VLAN";

  lab.ethDevPamCollection->intfPamDel(port(3));
  EXPECT_FALSE(lab.glueVlanMultiplexerDir->multiplexer(port(3)));
  EXPECT_TRUE(sm.vlanSm(VlanId(10))->coreSm()) << "the VLAN runs on";
  EXPECT_FALSE(sm.vlanSm(VlanId(10))->coreSm()->intfQuerySpoofer(port(3)));
  // Port 3 is still in the topology: a flood of the VLAN goes out on the ports that can carry it.
  pam2->txClear();
  pam1->rxPktEnqueue(Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0, 0x00fe), Lomax::IpAddr(10, 0, 0, 254))
                         .igmpQuery(Gmp::Igmp::IgmpQuery(Gmp::Igmp::igmpVersion2, 100, Lomax::IpAddr())));
  pam1->rxReady();
  EXPECT_EQ(pam2->tx().size(), 1u);
}

TEST_F(GlueSmTest, ACounterUpdateRequestCopiesOnlyWhenNewer) {
  lab.start();
  lab.turn();
  lab.counterDir->intfCounterIs("Ethernet1")->inPktPimInc(5);
  lab.status->counterUpdateTimeIs(lab.now());
  lab.counterConfig->counterUpdateRequestTimeIs(lab.now() - 10);
  EXPECT_FALSE(lab.mountedCounterDir->intfCounter("Ethernet1")) << "an old request does nothing";

  Kiv::activityManager()->advanceBy(5);
  lab.counterConfig->counterUpdateRequestTimeIs(lab.now() - 1);
  ASSERT_TRUE(lab.mountedCounterDir->intfCounter("Ethernet1"));
  EXPECT_EQ(lab.mountedCounterDir->intfCounter("Ethernet1")->inPktPim(), 5u);
  EXPECT_EQ(lab.status->counterUpdateTime(), lab.now());
}

}  // namespace
