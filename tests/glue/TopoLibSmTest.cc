// The topology computed from the bridge's configuration and the interface status: VLANs and ports
// appear, change and go one by one on a later turn of the loop, blocked while down or not forwarding.
#include "glue/TopoLibSm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kernel/ActivityManager.h"

namespace {

using Bridging::VlanId;
using Lomax::IntfId;
using Topology::Library::LibSm;
using Topology::Library::LibState;
using Topology::Library::Vlan::LibVlanState;
using Topology::Library::Vlan::TopoVlan;

IntfId intf(const std::string& n) { return IntfId(Kiv::String(n)); }

// Records the order in which the library reports its VLANs.
class VlanLog : public LibVlanState::NotifieeConst {
 public:
  void onTopoVlan(const VlanId& v) override { events.push_back(v.value()); }
  void onTopoVlankivImmediate() override { ++bulk; }
  std::vector<int> events;
  int bulk = 0;
};

class TopoLibSmTest : public ::testing::Test {
 protected:
  TopoLibSmTest() {
    log.notifierIs(vlanState);
    log.bulk = 0;
  }
  void turn() { Kiv::activityManager()->advanceBy(0); }
  void port(int vlan, const std::string& name, bool tagged = false) {
    config->switchIntfConfigIs(intf(name));
    config->vlanConfigIs(VlanId(vlan))->intfIs(intf(name))->taggedIs(tagged);
  }
  void link(const std::string& name, bool up, bool forwarding = true) {
    auto s = status->intfStatusIs(intf(name));
    s->linkUpIs(up);
    s->forwardingIs(forwarding);
  }
  // "p1" for a forwarding port, "p1!" for a blocked one, in key order.
  std::vector<std::string> ports(int vlan) {
    std::vector<std::string> out;
    auto tv = vlanState->topoVlan(VlanId(vlan));
    if (!tv) return {"none"};
    for (auto& p : tv->portIter())
      out.push_back(p.key().stringValue().stdString() + (p->blocked() ? "!" : ""));
    std::sort(out.begin(), out.end());
    return out;
  }

  Kiv::VirtualTime virtualTime{1000};
  Kiv::Ptr<Bridging::Config> config = Kiv::make<Bridging::Config>("bridgingConfig");
  Kiv::Ptr<Interface::EthIntfStatusDir> status = Kiv::make<Interface::EthIntfStatusDir>("ethIntfStatusDir");
  Kiv::Ptr<LibState> libState = Kiv::make<LibState>("topoLibState");
  Kiv::Ptr<LibVlanState> vlanState = Kiv::make<LibVlanState>("topoLibVlan");
  VlanLog log;
};

TEST_F(TopoLibSmTest, VlansAndPortsFollowConfigAndStatusOnALaterTurn) {
  port(1, "p1");
  port(1, "p2");
  port(10, "p1", true);
  port(10, "p3");
  link("p1", true);
  link("p2", false);
  Kiv::Ptr<LibSm> sm =
      Kiv::make<LibSm>(config, status, libState, vlanState, Kiv::ActivityManagerConfig::clock());
  EXPECT_FALSE(libState->initDone());
  EXPECT_EQ(vlanState->topoVlanSize(), 0u);
  turn();
  EXPECT_TRUE(libState->initDone());
  // p3 has no interface yet: no port. p2's link is down: blocked.
  EXPECT_EQ(ports(1), (std::vector<std::string>{"p1", "p2!"}));
  EXPECT_EQ(ports(10), (std::vector<std::string>{"p1"}));

  link("p3", true);
  link("p2", true);
  link("p1", true, false);
  EXPECT_EQ(ports(10), (std::vector<std::string>{"p1"})) << "nothing before the next turn";
  turn();
  EXPECT_EQ(ports(1), (std::vector<std::string>{"p1!", "p2"}));
  EXPECT_EQ(ports(10), (std::vector<std::string>{"p1!", "p3"}));

  // A port that stops being a switch port leaves every VLAN; a member that leaves one VLAN only that.
  config->switchIntfConfigDel(intf("p1"));
  config->vlanConfig(VlanId(1))->intfDel(intf("p2"));
  turn();
  EXPECT_EQ(ports(1), (std::vector<std::string>{}));
  EXPECT_EQ(ports(10), (std::vector<std::string>{"p3"}));
  status->intfStatusDel(intf("p3"));
  turn();
  EXPECT_EQ(ports(10), (std::vector<std::string>{}));

  config->vlanConfigDel(VlanId(10));
  port(20, "p2");
  turn();
  EXPECT_EQ(ports(10), (std::vector<std::string>{"none"}));
  EXPECT_EQ(ports(20), (std::vector<std::string>{"p2"}));
  EXPECT_EQ(log.events, (std::vector<int>{1, 10, 10, 20}));
  EXPECT_EQ(log.bulk, 0) << "the library reports its VLANs one by one";
}

TEST_F(TopoLibSmTest, InitialisationWaitsForThePlatformsSources) {
  Kiv::Ptr<LibSm> sm =
      Kiv::make<LibSm>(config, status, libState, vlanState, Kiv::ActivityManagerConfig::clock());
  sm->sourcesReadyIs(false);
  port(1, "p1");
  link("p1", true);
  turn();
  EXPECT_FALSE(libState->initDone());
  EXPECT_EQ(ports(1), (std::vector<std::string>{"p1"})) << "the topology is followed all the same";
  sm->sourcesReadyIs(true);
  turn();
  EXPECT_TRUE(libState->initDone());
}

TEST_F(TopoLibSmTest, AnEmptyConfigurationStillCompletesInitialisation) {
  Kiv::Ptr<LibSm> sm =
      Kiv::make<LibSm>(config, status, libState, vlanState, Kiv::ActivityManagerConfig::clock());
  turn();
  EXPECT_TRUE(libState->initDone());
  EXPECT_EQ(vlanState->topoVlanSize(), 0u);
}

}  // namespace
