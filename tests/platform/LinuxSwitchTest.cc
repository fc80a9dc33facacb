// The switch that the glue sees, filled from Linux: the bridge's configuration from a bridge view,
// and on a real bridge the topology library's VLANs and ports following ports that come, go down and
// up, are renamed and leave.
#include <gtest/gtest.h>
#include <linux/if_bridge.h>

#include <algorithm>
#include <memory>

#include "glue/TopoLibSm.h"
#include "platform/LinuxBridgingConfig.h"
#include "platform/LinuxIntfStatus.h"
#include "tests/support/BridgeLab.h"
#include "tests/support/LoopWait.h"

namespace {

using Bridging::VlanId;
using Platform::BridgeTopology;

Lomax::IntfId intf(const std::string& n) { return Lomax::IntfId(Kiv::String(n)); }

TEST(LinuxBridgingConfigTest, ABridgeViewBecomesPortsWithPvidsAndVlansWithTagging) {
  Kiv::Ptr<Bridging::Config> config = Kiv::make<Bridging::Config>("bridgingConfig");
  Platform::LinuxBridgingConfig filler(config);
  BridgeTopology::View v;
  v.ports = {{11, "p1", true, 3, false, 1}, {12, "p2", true, 3, false, 10}, {13, "p3", true, 3, false, 0}};
  v.vlans = {{1, {{11, false}}}, {10, {{11, true}, {12, false}}}, {4095, {{12, true}}}};
  filler.viewIs(v);
  EXPECT_EQ(config->switchIntfConfig(intf("p1"))->defaultVlan().value(), 1);
  EXPECT_EQ(config->switchIntfConfig(intf("p2"))->defaultVlan().value(), 10);
  EXPECT_EQ(config->switchIntfConfig(intf("p3"))->defaultVlan().value(), 0) << "drops untagged frames";
  EXPECT_EQ(config->vlanConfigSize(), 2u) << "4095 is no VLAN the agent serves";
  auto v10 = config->vlanConfig(VlanId(10));
  ASSERT_TRUE(v10);
  EXPECT_TRUE(v10->intf(intf("p1"))->tagged());
  EXPECT_FALSE(v10->intf(intf("p2"))->tagged());

  // Changes are differences: VLAN 10's entity stays, p1 leaves it, VLAN 1 and p3 go.
  v.ports.pop_back();
  v.vlans = {{10, {{12, true}}}};
  filler.viewIs(v);
  EXPECT_EQ(config->vlanConfig(VlanId(10)), v10);
  EXPECT_EQ(v10->intfSize(), 1u);
  EXPECT_TRUE(v10->intf(intf("p2"))->tagged());
  EXPECT_FALSE(config->vlanConfig(VlanId(1)));
  EXPECT_FALSE(config->switchIntfConfig(intf("p3")));
}

TEST(LinuxIntfStatusTest, OnlyABlockingOrDisabledBridgePortDoesNotForward) {
  Platform::LinkWatcher::Link l;
  EXPECT_TRUE(Platform::LinuxIntfStatus::forwarding(l)) << "no bridge port";
  l.bridgePort = true;
  for (uint8_t stp : {BR_STATE_LISTENING, BR_STATE_LEARNING, BR_STATE_FORWARDING}) {
    l.stpState = stp;
    EXPECT_TRUE(Platform::LinuxIntfStatus::forwarding(l)) << int(stp);
  }
  for (uint8_t stp : {BR_STATE_DISABLED, BR_STATE_BLOCKING}) {
    l.stpState = stp;
    EXPECT_FALSE(Platform::LinuxIntfStatus::forwarding(l)) << int(stp);
  }
}

class LinuxSwitchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!TestNet::NetNs::unavailable().empty()) GTEST_SKIP() << TestNet::NetNs::unavailable();
    lab_ = std::make_unique<TestNet::BridgeLab>(2);
    ASSERT_TRUE(lab_->ok());
    TestNet::NetNs::Inside in(lab_->sw());
    watcher_.start();
    libSm_ = Kiv::make<Topology::Library::LibSm>(config_, ethIntfStatusDir_, libState_, vlanState_,
                                                 Kiv::ActivityManagerConfig::clock());
    // The library is complete only once the interfaces have been read.
    libSm_->sourcesReadyIs(false);
    status_ = std::make_unique<Platform::LinuxIntfStatus>(watcher_, ethIntfStatusDir_, deviceIntfStatusDir_,
                                                          [this] { libSm_->sourcesReadyIs(true); });
    topology_ = std::make_unique<BridgeTopology>(
        watcher_, "", [this](const BridgeTopology::View& v) { bridging_.viewIs(v); });
  }

  // The ports of VLAN 1, "!" behind a blocked one, sorted.
  std::vector<std::string> vlan1() const {
    std::vector<std::string> out;
    auto tv = vlanState_->topoVlan(VlanId(1));
    if (!tv) return {};
    for (auto& p : tv->portIter())
      out.push_back(p.key().stringValue().stdString() + (p->blocked() ? "!" : ""));
    std::sort(out.begin(), out.end());
    return out;
  }
  bool vlan1Becomes(std::vector<std::string> want) {
    return TestNet::turnUntil([&] { return vlan1() == want; });
  }

  std::unique_ptr<TestNet::BridgeLab> lab_;
  Platform::LinkWatcher watcher_;
  Kiv::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir_ =
      Kiv::make<Interface::EthIntfStatusDir>("ethIntfStatusDir");
  Kiv::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir_ =
      Kiv::make<Interface::DeviceIntfStatusDir>("disd");
  Kiv::Ptr<Bridging::Config> config_ = Kiv::make<Bridging::Config>("bridgingConfig");
  Platform::LinuxBridgingConfig bridging_{config_};
  Kiv::Ptr<Topology::Library::LibState> libState_ = Kiv::make<Topology::Library::LibState>("topoLibState");
  Kiv::Ptr<Topology::Library::Vlan::LibVlanState> vlanState_ =
      Kiv::Ptr<Topology::Library::Vlan::LibVlanState>(
          new Topology::Library::Vlan::LibVlanState("topoLibVlan"));
  std::unique_ptr<Platform::LinuxIntfStatus> status_;
  std::unique_ptr<BridgeTopology> topology_;
  Kiv::Ptr<Topology::Library::LibSm> libSm_;
};

TEST_F(LinuxSwitchTest, TheTopologyFollowsTheBridgesPorts) {
  ASSERT_TRUE(TestNet::turnUntil([&] { return libState_->initDone(); }));
  EXPECT_EQ(vlan1(), (std::vector<std::string>{"p1", "p2"})) << "complete when it says so";
  EXPECT_TRUE(deviceIntfStatusDir_->intf(intf("p1")));
  EXPECT_TRUE(deviceIntfStatusDir_->intf(intf("br0")));
  EXPECT_FALSE(deviceIntfStatusDir_->intf(intf("lo")));
  EXPECT_EQ(config_->switchIntfConfig(intf("p1"))->defaultVlan().value(), 1);
  EXPECT_FALSE(config_->switchIntfConfig(intf("br0"))) << "the bridge itself is no port";

  ASSERT_TRUE(lab_->portAdd(3));
  ASSERT_TRUE(vlan1Becomes({"p1", "p2", "p3"}));
  ASSERT_TRUE(lab_->sw().ip("link set p2 down"));
  ASSERT_TRUE(vlan1Becomes({"p1", "p2!", "p3"}));
  EXPECT_FALSE(ethIntfStatusDir_->intfStatus(intf("p2"))->linkUp());
  ASSERT_TRUE(lab_->sw().ip("link set p2 up"));
  ASSERT_TRUE(vlan1Becomes({"p1", "p2", "p3"}));

  ASSERT_TRUE(lab_->sw().ip("link set p1 down") && lab_->sw().ip("link set p1 name uplink") &&
              lab_->sw().ip("link set uplink up"));
  ASSERT_TRUE(vlan1Becomes({"p2", "p3", "uplink"}));
  EXPECT_FALSE(ethIntfStatusDir_->intfStatus(intf("p1")));
  EXPECT_FALSE(deviceIntfStatusDir_->intf(intf("p1")));

  ASSERT_TRUE(lab_->sw().ip("link set p3 nomaster"));
  ASSERT_TRUE(vlan1Becomes({"p2", "uplink"}));
  EXPECT_TRUE(deviceIntfStatusDir_->intf(intf("p3"))) << "still a device, no longer a port";
}

}  // namespace
