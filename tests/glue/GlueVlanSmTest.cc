// The VLAN glue driven with frames as on the wire through the port multiplexers: what is sent where,
// tagged or not, what is counted, and what is published.
#include <gtest/gtest.h>

#include "net/FrameBuilder.h"
#include "net/IpToEthGroupMap.h"
#include "tests/support/GlueLab.h"

namespace {

using namespace Bridging::IgmpSnooping;
using IgmpShim::GlueVlanSm;
using Lomax::IntfId;
using Lomax::IpAddr;

IpAddr ip(const char* text) {
  IpAddr a;
  IpAddr::parse(text, a);
  return a;
}
IntfId intf(const char* name) { return IntfId(Kiv::String(name)); }

Lomax::FrameBuilder host(const char* addr, uint16_t vlan = 0) {
  return Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0x0000, 0x0001), ip(addr),
                             vlan ? Bridging::VlanIdOrNone(vlan) : Bridging::VlanIdOrNone());
}

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
    lab.rx("Ethernet3",
           host("10.0.0.254", 10).igmpQuery(Gmp::Igmp::IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr())));
  }
  GlueVlanSm* sm() { return lab.vlanSm(10); }

  TestSupport::GlueLab lab;
};

TEST_F(GlueVlanSmTest, AReportIsPublishedAndForwardedToTheRouterTagged) {
  ASSERT_TRUE(sm()->coreSm());
  auto vs = lab.vlanStatus(10);
  ASSERT_TRUE(vs);
  EXPECT_TRUE(vs->useVlanFloodset());
  generalQuery();
  EXPECT_TRUE(sm()->coreStatus()->confident());
  EXPECT_FALSE(vs->useVlanFloodset());
  // The query went to the other two ports: untagged on the access port, tagged on the trunk.
  ASSERT_EQ(lab.pam("Ethernet1").tx().size(), 1u);
  EXPECT_FALSE(lab.pam("Ethernet1").tx()[0].tagged);
  ASSERT_EQ(lab.pam("Ethernet2").tx().size(), 1u);
  EXPECT_TRUE(lab.pam("Ethernet2").tx()[0].tagged);
  EXPECT_TRUE(lab.pam("Ethernet3").tx().empty());
  lab.txClear();
  lab.rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  auto eg = vs->ethGroup(IpToEthGroupMap(ip("239.1.1.1")));
  ASSERT_TRUE(eg);
  EXPECT_TRUE(eg->groupIntf(intf("Ethernet1")));
  EXPECT_TRUE(vs->routerIntf(intf("Ethernet3")));
  ASSERT_EQ(lab.pam("Ethernet3").tx().size(), 1u);
  EXPECT_TRUE(lab.pam("Ethernet3").tx()[0].tagged);
  EXPECT_EQ(lab.counter("Ethernet1")->inPktIgmpV2Report(), 1u);
  EXPECT_EQ(lab.counter("Ethernet3")->outPktIgmpReport(), 1u);
}

}  // namespace
