// The flooder for a bare core: the whole VLAN is every multiplexer of the directory, the routers are
// the ports of the core's routers, rebuilt for each flood.
#include <gtest/gtest.h>

#include "glue/TestFlooder.h"
#include "tests/support/GlueLab.h"

namespace {

using namespace Bridging::IgmpSnooping;
using namespace TestSupport;
using Lomax::IpAddr;

TEST(TestFlooderTest, FloodsToEveryMultiplexerOrToTheCoresRouters) {
  GlueLab lab;
  lab.addPort("Ethernet1", 10);
  lab.addPort("Ethernet2");
  lab.addPort("Ethernet3");
  auto sm = lab.addVlan(10, {{"Ethernet1", false}, {"Ethernet2", true}, {"Ethernet3", true}});
  auto flooder = Kiv::make<IgmpShim::TestFlooder>("test", lab.dir, sm->coreSm());
  auto report = host("10.0.0.1").igmpV2Report(ipAddr("239.1.1.1"));
  auto flood = [&](IgmpSnoopingFloodType type, const char* from) {
    flooder->floodReqIs(
        Kiv::make<IgmpSnoopingFloodReq>(type, intfId(from), Lomax::emptyIntfId, report, pktTypeReport));
  };

  flood(floodTypeVlan, "Ethernet1");
  EXPECT_EQ(lab.pam("Ethernet1").tx().size(), 0u);
  ASSERT_EQ(lab.pam("Ethernet2").tx().size(), 1u);
  EXPECT_TRUE(lab.pam("Ethernet2").tx()[0].tagged);
  EXPECT_EQ(lab.pam("Ethernet3").tx().size(), 1u);
  lab.txClear();

  // No router known: a flood to the routers goes nowhere.
  flood(floodTypeRouter, "Ethernet1");
  EXPECT_EQ(flooder->routerIntfSize(), 0u);
  for (auto& p : lab.ports) EXPECT_TRUE(p.second.pam->tx().empty()) << p.first;
  // A querier behind Ethernet3 is a router there; the set is rebuilt on each flood.
  lab.rx("Ethernet3",
         host("10.0.0.254", 10).igmpQuery(Gmp::Igmp::IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr())));
  lab.txClear();
  flood(floodTypeMembers, "Ethernet1");
  EXPECT_EQ(flooder->routerIntf(intfId("Ethernet3")), 1u);
  EXPECT_EQ(lab.pam("Ethernet3").tx().size(), 1u);
  EXPECT_EQ(lab.pam("Ethernet2").tx().size(), 0u);
  // Never back to where the frame came from.
  flood(floodTypeRouter, "Ethernet3");
  EXPECT_EQ(lab.pam("Ethernet3").tx().size(), 1u);
  // The core's flooding through it reaches the router as well.
  sm->coreSm()->flooderIs(flooder);
  lab.txClear();
  lab.rx("Ethernet1", host("10.0.0.1").igmpV2Report(ipAddr("239.2.2.2")));
  EXPECT_EQ(lab.pam("Ethernet3").tx().size(), 1u);
  EXPECT_EQ(lab.pam("Ethernet2").tx().size(), 0u);
}

}  // namespace
