// The switch a Linux bridge makes: ports and VLANs from interface tables with and without VLAN
// filtering, and a real bridge followed as ports come, go, go down, are renamed and are blocked by STP.
#include "platform/BridgeTopology.h"

#include <gtest/gtest.h>
#include <linux/if_bridge.h>

#include <memory>

#include "tests/support/BridgeLab.h"
#include "tests/support/LoopWait.h"

namespace {

using Platform::BridgeTopology;
using Platform::LinkWatcher;
using Member = BridgeTopology::Member;
using Vlan = BridgeTopology::Vlan;

LinkWatcher::Link link(int ifindex, std::string kind, int master, uint8_t stp = BR_STATE_FORWARDING) {
  LinkWatcher::Link l;
  l.ifindex = ifindex;
  l.name = "if" + std::to_string(ifindex);
  l.kind = std::move(kind);
  l.adminUp = l.operUp = true;
  l.master = master;
  l.bridgePort = master != 0;
  l.stpState = master ? stp : 0;
  return l;
}

TEST(BridgeTopologyViewTest, WithoutVlanFilteringEveryPortIsAnUntaggedMemberOfVlan1) {
  LinkWatcher::Table t;
  t[10] = link(10, "bridge", 0);
  t[11] = link(11, "veth", 10);
  t[12] = link(12, "veth", 10, BR_STATE_BLOCKING);
  t[13] = link(13, "veth", 10, BR_STATE_DISABLED);
  t[14] = link(14, "veth", 10, BR_STATE_LISTENING);
  t[20] = link(20, "bridge", 0);
  t[21] = link(21, "veth", 20);
  t[22] = link(22, "veth", 0);
  const BridgeTopology::View v = BridgeTopology::viewOf(t, 10);
  EXPECT_EQ(v.bridgeName, "if10");
  ASSERT_EQ(v.ports.size(), 4u);
  std::vector<bool> blocked;
  for (const auto& p : v.ports) {
    blocked.push_back(p.blocked);
    EXPECT_EQ(p.pvid, 1);
  }
  EXPECT_EQ(blocked, (std::vector<bool>{false, true, true, false}));
  EXPECT_EQ(v.vlans, (std::vector<Vlan>{{1, {{11, false}, {12, false}, {13, false}, {14, false}}}}));
  EXPECT_EQ(BridgeTopology::viewOf(t, 99), BridgeTopology::View{});
}

TEST(BridgeTopologyViewTest, WithVlanFilteringTheBridgesTableGivesMembersTaggingAndPvids) {
  LinkWatcher::Table t;
  t[10] = link(10, "bridge", 0);
  t[10].vlanFiltering = true;
  t[10].vlans = {{1, true, true}};
  t[11] = link(11, "veth", 10);
  t[11].vlans = {{1, true, true}, {10, false, false}, {20, false, false}};
  t[12] = link(12, "veth", 10);
  t[12].vlans = {{10, true, true}};
  t[13] = link(13, "veth", 10);
  const BridgeTopology::View v = BridgeTopology::viewOf(t, 10);
  EXPECT_TRUE(v.vlanFiltering);
  ASSERT_EQ(v.ports.size(), 3u);
  EXPECT_EQ(v.ports[0].pvid, 1);
  EXPECT_EQ(v.ports[1].pvid, 10);
  // A port in no VLAN is still a port, without a PVID.
  EXPECT_EQ(v.ports[2].pvid, 0);
  EXPECT_EQ(v.vlans,
            (std::vector<Vlan>{{1, {{11, false}}}, {10, {{11, true}, {12, false}}}, {20, {{11, true}}}}));
}

class BridgeTopologyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!TestNet::NetNs::unavailable().empty()) GTEST_SKIP() << TestNet::NetNs::unavailable();
    lab_ = std::make_unique<TestNet::BridgeLab>(2);
    ASSERT_TRUE(lab_->ok());
    TestNet::NetNs::Inside in(lab_->sw());
    watcher_.start();
  }

  std::unique_ptr<BridgeTopology> topologyMake(const std::string& name) {
    return std::make_unique<BridgeTopology>(watcher_, name,
                                            [this](const BridgeTopology::View&) { ++views_; });
  }

  // Waits until the view's port named name satisfies pred.
  bool portBecomes(const BridgeTopology& topo, const std::string& name,
                   const std::function<bool(const BridgeTopology::Port&)>& pred) {
    return TestNet::turnUntil([&] {
      for (const auto& p : topo.view().ports) {
        if (p.name == name) return pred(p);
      }
      return false;
    });
  }

  static std::vector<std::string> portNames(const BridgeTopology& topo) {
    std::vector<std::string> names;
    for (const auto& p : topo.view().ports) names.push_back(p.name);
    return names;
  }

  std::unique_ptr<TestNet::BridgeLab> lab_;
  LinkWatcher watcher_;
  int views_ = 0;
};

TEST_F(BridgeTopologyTest, PortsAreFollowedThroughAddRemoveDownUpAndRename) {
  auto topo = topologyMake("");
  ASSERT_TRUE(TestNet::turnUntil([&] { return topo->view().ports.size() == 2; }));
  EXPECT_EQ(topo->view().bridge, lab_->bridgeIndex());
  EXPECT_FALSE(topo->view().vlanFiltering);
  const int p1 = lab_->portIndex(1), p2 = lab_->portIndex(2);
  EXPECT_EQ(topo->view().vlans, (std::vector<Vlan>{{1, {{p1, false}, {p2, false}}}}));
  // Interfaces outside the bridge change nothing, and nobody is told (once the ports have settled:
  // their carrier can come up after they are first seen).
  ASSERT_TRUE(TestNet::turnUntil([&] {
    for (const auto& p : topo->view().ports) {
      if (!p.operUp || p.blocked) return false;
    }
    return true;
  }));
  const int views = views_;
  ASSERT_TRUE(lab_->sw().ip("link add u1 type veth peer name u2") && lab_->sw().ip("link set u1 up"));
  ASSERT_TRUE(
      TestNet::turnUntil([&] { return watcher_.linkByName("u1") && watcher_.linkByName("u1")->adminUp; }));
  EXPECT_EQ(views_, views);

  ASSERT_TRUE(lab_->portAdd(3));
  ASSERT_TRUE(TestNet::turnUntil([&] {
    return portNames(*topo) == std::vector<std::string>{"p1", "p2", "p3"};
  }));
  EXPECT_EQ(topo->view().vlans.at(0).members.size(), 3u);

  ASSERT_TRUE(lab_->sw().ip("link set p2 down"));
  ASSERT_TRUE(portBecomes(*topo, "p2", [](auto& p) { return p.blocked && !p.operUp; }));
  ASSERT_TRUE(lab_->sw().ip("link set p2 up"));
  ASSERT_TRUE(portBecomes(*topo, "p2", [](auto& p) { return !p.blocked && p.operUp; }));

  ASSERT_TRUE(lab_->sw().ip("link set p1 down") && lab_->sw().ip("link set p1 name uplink") &&
              lab_->sw().ip("link set uplink up"));
  ASSERT_TRUE(portBecomes(*topo, "uplink", [](auto& p) { return !p.blocked; }));
  EXPECT_EQ(topo->view().ports.at(0).ifindex, p1);

  ASSERT_TRUE(lab_->sw().ip("link set p3 nomaster"));
  ASSERT_TRUE(TestNet::turnUntil([&] {
    return portNames(*topo) == std::vector<std::string>{"uplink", "p2"};
  }));
  EXPECT_EQ(topo->view().vlans, (std::vector<Vlan>{{1, {{p1, false}, {p2, false}}}}));
}

TEST_F(BridgeTopologyTest, APortThatStpBlocksIsBlocked) {
  auto topo = topologyMake("br0");
  // A loop through the bridge: STP must block one end of it.
  ASSERT_TRUE(lab_->sw().ip("link set br0 type bridge stp_state 1 hello_time 100 forward_delay 200") &&
              lab_->sw().ip("link add x1 type veth peer name x2") &&
              lab_->sw().ip("link set x1 master br0") && lab_->sw().ip("link set x2 master br0") &&
              lab_->sw().ip("link set x1 up") && lab_->sw().ip("link set x2 up"));
  ASSERT_TRUE(TestNet::turnUntil(
      [&] {
        for (const auto& p : topo->view().ports) {
          if (p.stpState == BR_STATE_BLOCKING) return p.blocked && (p.name == "x1" || p.name == "x2");
        }
        return false;
      },
      10));
}

TEST_F(BridgeTopologyTest, ServesTheNamedBridgeOrElseTheOnlyOne) {
  ASSERT_TRUE(lab_->sw().ip("link add br1 type bridge"));
  ASSERT_TRUE(TestNet::turnUntil([&] { return watcher_.synced() && watcher_.linkByName("br1"); }));
  auto any = topologyMake("");
  auto named = topologyMake("br1");
  EXPECT_EQ(any->view().bridge, 0) << "two bridges and no name: none is served";
  EXPECT_EQ(named->view().bridgeName, "br1");

  ASSERT_TRUE(lab_->sw().ip("link del br1"));
  ASSERT_TRUE(TestNet::turnUntil([&] { return any->view().bridge != 0 && named->view().bridge == 0; }));
  EXPECT_EQ(any->view().bridgeName, "br0");
  EXPECT_EQ(any->view().ports.size(), 2u);
  // Once chosen, the bridge is kept through a rename.
  ASSERT_TRUE(lab_->sw().ip("link set br0 down") && lab_->sw().ip("link set br0 name core"));
  ASSERT_TRUE(TestNet::turnUntil([&] { return any->view().bridgeName == "core"; }));
}

}  // namespace
