// The agent-wide glue on a real Linux bridge: interface status, the bridge's configuration and the
// topology from rtnetlink, packet access through the socket, and a host's report reaching its VLAN's
// core through its port's multiplexer.
#include <gtest/gtest.h>

#include <memory>

#include "net/FrameBuilder.h"
#include "platform/LinuxBridgingConfig.h"
#include "platform/LinuxEthDevPamManager.h"
#include "platform/LinuxIntfStatus.h"
#include "tests/glue/GlueAgentHarness.h"
#include "tests/support/BridgeLab.h"
#include "tests/support/LoopWait.h"
#include "tests/support/RawPort.h"

namespace {

using Bridging::VlanId;
using Lomax::IpAddr;

Lomax::IntfId intf(const std::string& n) { return Lomax::IntfId(Kiv::String(n)); }

class LinuxGlueAgentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!TestNet::NetNs::unavailable().empty()) GTEST_SKIP() << TestNet::NetNs::unavailable();
    bridgeLab_ = std::make_unique<TestNet::BridgeLab>(2);
    ASSERT_TRUE(bridgeLab_->ok());
    TestNet::NetNs::Inside in(bridgeLab_->sw());
    watcher_.start();
    // Status that survived a restart: VLAN 1 with a member on p1, and a VLAN the bridge no longer has.
    lab_.survivingStatusIs(1);
    lab_.survivingStatusIs(99);
    auto m = lab_.coreStatusDir->contextStatus(VlanId(1))
                 ->groupIs(IpAddr(239, 9, 9, 9))
                 ->intfIs(intf("p1"))
                 ->membershipIs(IpAddr(10, 0, 0, 9));
    m->lastReportIs(lab_.now() - 10);
    m->expireIs(lab_.now() + 250);
    manager_ = Kiv::Ptr<Platform::LinuxEthDevPamManager>(
        new Platform::LinuxEthDevPamManager(watcher_, lab_.pamDesiredIntfDir, lab_.ethDevPamCollection));
    auto services = lab_.services();
    services.ethDevPamManager = manager_;
    lab_.start(services);
    lab_.topoLibSm->sourcesReadyIs(false);
    status_ =
        std::make_unique<Platform::LinuxIntfStatus>(watcher_, lab_.ethIntfStatusDir, lab_.deviceIntfStatusDir,
                                                    [this] { lab_.topoLibSm->sourcesReadyIs(true); });
    topology_ = std::make_unique<Platform::BridgeTopology>(
        watcher_, "", [this](const Platform::BridgeTopology::View& v) { bridging_.viewIs(v); });
  }
  // The manager watches the links: it goes, with the glue that holds it, before the watcher.
  void TearDown() override {
    lab_.glueSm = nullptr;
    manager_ = nullptr;
  }

  TestGlue::GlueAgentLab lab_;
  std::unique_ptr<TestNet::BridgeLab> bridgeLab_;
  Platform::LinkWatcher watcher_;
  Platform::LinuxBridgingConfig bridging_{lab_.bridgingConfig};
  std::unique_ptr<Platform::LinuxIntfStatus> status_;
  std::unique_ptr<Platform::BridgeTopology> topology_;
  Kiv::Ptr<Platform::LinuxEthDevPamManager> manager_;
};

TEST_F(LinuxGlueAgentTest, AHostsReportReachesTheCoreOfItsVlan) {
  IgmpShim::GlueSm& sm = *lab_.glueSm;
  ASSERT_TRUE(TestNet::turnUntil([&] {
    return sm.vlanSmInitialized() && sm.vlanSm(VlanId(1)) &&
           lab_.glueVlanMultiplexerDir->multiplexer(intf("p1")) &&
           lab_.glueVlanMultiplexerDir->multiplexer(intf("p2"));
  }));
  EXPECT_FALSE(lab_.glueVlanMultiplexerDir->multiplexer(intf("br0"))) << "the bridge itself is no port";
  EXPECT_FALSE(lab_.coreStatusDir->contextStatus(VlanId(99))) << "orphan";
  ASSERT_TRUE(lab_.coreStatusDir->contextStatus(VlanId(1))->group(IpAddr(239, 9, 9, 9)));
  EXPECT_TRUE(lab_.coreStatusDir->contextStatus(VlanId(1))->group(IpAddr(239, 9, 9, 9))->intf(intf("p1")))
      << "the restored member stays";
  EXPECT_TRUE(manager_->packetAccess());

  TestNet::RawPort h1(bridgeLab_->hosts(), "h1");
  const IpAddr group(239, 1, 1, 1);
  auto frame =
      Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0, 0x0001), IpAddr(10, 0, 0, 1), {}).igmpV2Report(group);
  ASSERT_TRUE(h1.send(std::span<const uint8_t>(frame->data(), frame->len())));
  auto joined = [&] {
    auto cs = lab_.coreStatusDir->contextStatus(VlanId(1));
    auto g = cs ? cs->group(group) : nullptr;
    return g && g->intf(intf("p1"));
  };
  ASSERT_TRUE(TestNet::turnUntil(joined));
  EXPECT_GE(lab_.counterDir->intfCounter("p1")->inPktIgmpV2Report(), 1u);

  // The port leaves the bridge: its multiplexer goes with its packet access.
  ASSERT_TRUE(bridgeLab_->sw().ip("link set p2 nomaster"));
  ASSERT_TRUE(TestNet::turnUntil([&] { return !lab_.glueVlanMultiplexerDir->multiplexer(intf("p2")); }));
  EXPECT_FALSE(lab_.topoVlanLib->topoVlan(VlanId(1))->port(intf("p2")));
}

}  // namespace
