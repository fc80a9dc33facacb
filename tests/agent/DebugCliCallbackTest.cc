// The debug commands on a populated switch, compared byte for byte with the text the front end parses.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "agent/DebugCliCallback.h"
#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"
#include "net/IpToEthGroupMap.h"
#include "tests/support/Addr.h"

namespace {

using namespace Bridging::IgmpSnooping;
using IgmpSnoopingAgent::DebugCliCallback;
using IgmpSnoopingAgent::DebugCliSource;
using Lomax::IntfId;
using Lomax::IpAddr;

constexpr auto ip = TestSupport::ipAddr;

class DebugCliCallbackTest : public ::testing::Test {
 protected:
  static constexpr Kiv::Seconds now = 1000000.5;

  DebugCliCallbackTest() {
    context = protocolStatus->contextStatusIs(Bridging::VlanId(10));
    context->confidentIs(true);
    vlanStatus = status->vlanStatusIs(Bridging::VlanId(10));
    source.config = config;
    source.status = status;
    source.coreStatusDir = protocolStatus;
    // Both kinds on Ethernet1/Ethernet2, one learned group, one configured group.
    staticEntry("239.1.1.1", "Ethernet1");
    member("239.1.1.1", "Ethernet2", "10.0.0.2", Gmp::Igmp::igmpVersion2);
    member("239.1.1.2", "Ethernet3", "10.0.0.3", Gmp::Igmp::igmpVersion3);
    member("239.1.1.2", "Ethernet3", "10.0.0.13", Gmp::Igmp::igmpVersion3);
    staticEntry("239.1.1.3", "Ethernet4");
    context->groupIs(ip("239.1.1.9"));  // a group the VLAN has, without ports yet
  }

  void publish(const char* group, const char* port) {
    vlanStatus->ethGroupIs(IpToEthGroupMap(ip(group)))->groupIntfIs(IntfId(port), true);
  }
  void staticEntry(const char* group, const char* port) {
    context->groupIs(ip(group))->intfIs(IntfId(port))->staticEntryIs(true);
    publish(group, port);
  }
  Kiv::Ptr<IgmpMembership> member(const char* group, const char* port, const char* reporter,
                                  Gmp::Igmp::IgmpVersion version) {
    auto m = context->groupIs(ip(group))->intfIs(IntfId(port))->membershipIs(ip(reporter));
    m->igmpVersionIs(version);
    m->firstReportIs(now - 3725);  // 1h02m05 ago
    m->lastReportIs(now - 65);     // 1m05 ago
    m->expireIs(now - 65 + 260);   // 3m15 to go
    publish(group, port);
    return m;
  }

  // The command's output as the client reads it.
  std::string run(const char* command) {
    const int fd = memfd_create("debugcli", 0);
    const int reader = dup(fd);
    Kiv::make<DebugCliCallback>("igmpsnoopingdebug", "", source)->handleCommand(fd, command);
    EXPECT_EQ(write(fd, "", 0), -1) << "the callback closes the socket";
    std::string out(1 << 16, '\0');
    const ssize_t n = pread(reader, out.data(), out.size(), 0);
    close(reader);
    out.resize(n > 0 ? n : 0);
    return out;
  }

  Kiv::VirtualTime virtualTime{now};
  Kiv::Ptr<Config> config = Kiv::make<Config>("config");
  Kiv::Ptr<Status> status = Kiv::make<Status>("status");
  Kiv::Ptr<IgmpProtocolStatus> protocolStatus = Kiv::make<IgmpProtocolStatus>("protocolStatus");
  Kiv::Ptr<IgmpContextStatus> context;
  Kiv::Ptr<VlanStatus> vlanStatus;
  DebugCliSource source;
};

const char* const allGroups = "showGroups -v10 -g239.1.1.3 -g239.1.1.1 -g239.1.1.2 -g239.1.1.9 -g239.9.9.9";

TEST_F(DebugCliCallbackTest, RegularLinesShowStaticDynamicAndBothInAddressOrder) {
  EXPECT_EQ(run(allGroups),
            "10    239.1.1.1        D/U      -                      Et1, Et2\n"
            "10    239.1.1.2        Dynamic  -                      Et3\n"
            "10    239.1.1.3        User     -                      Et4\n");
  context->confidentIs(false);
  EXPECT_EQ(run("showGroups -v10 -g239.1.1.2"),
            "10    239.1.1.2        Dynamic  -                    * Et3\n");
}

TEST_F(DebugCliCallbackTest, FiltersKeepConfiguredOrLearnedGroupsAndPorts) {
  EXPECT_EQ(run("showGroups -v10 -u -g239.1.1.1 -g239.1.1.2 -g239.1.1.3"),
            "10    239.1.1.1        User     -                      Et1\n"
            "10    239.1.1.3        User     -                      Et4\n");
  EXPECT_EQ(run("showGroups -v10 -y -g239.1.1.1 -g239.1.1.2 -g239.1.1.3"),
            "10    239.1.1.1        Dynamic  -                      Et2\n"
            "10    239.1.1.2        Dynamic  -                      Et3\n");
  // A later filter replaces an earlier one; an option is found anywhere in its token.
  EXPECT_EQ(run("showGroups -v10 -u x-y -g239.1.1.3"), "");
  EXPECT_EQ(run("showGroups -v10 -iEthernet2 -g239.1.1.1 -g239.1.1.3"),
            "10    239.1.1.1        D/U      -                      Et2\n");
  EXPECT_EQ(run("showGroups -v10 -c -y -g239.1.1.1 -g239.1.1.2 -g239.1.1.3 -g239.9.9.9"), "yyn");
}

TEST_F(DebugCliCallbackTest, DetailLinesGiveEachMembershipAndStaticEntry) {
  config->vlanConfigIs(Bridging::VlanId(10))->routerIntfIs(IntfId("Ethernet8"), true);
  auto router = context->routerIs(ip("10.0.0.254"));
  router->intfIs(IntfId("Ethernet7"));
  router->firstHeardIs(now - 90061);  // 1d01h01m01 ago
  router->lastHeardIs(now - 30);
  router->expireIs(now + 95);
  EXPECT_EQ(run("showGroups -v10 -d -g239.1.1.1"),
            "10   239.1.1.1       0.0.0.0         -           -           -        -   -   Et1\n"
            "10   239.1.1.1       10.0.0.2        0d01h02m05  0d00h01m05  00h03m15 v2  0   Et2\n"
            "10   239.1.1.1       10.0.0.254      1d01h01m01  0d00h00m30  00h01m35 -   -  Et7\n"
            "10   239.1.1.1       0.0.0.0         -           -           -        -   - Et8\n");
  // Learned only: no static entry and no configured router.
  EXPECT_EQ(run("showGroups -v10 -d -y -iEthernet3 -g239.1.1.2"),
            "10   239.1.1.2       10.0.0.3        0d01h02m05  0d00h01m05  00h03m15 v3  0   Et3\n"
            "10   239.1.1.2       10.0.0.13       0d01h02m05  0d00h01m05  00h03m15 v3  0   Et3\n");
}

TEST_F(DebugCliCallbackTest, IncludeModeExpiryIsAnEstimateFromTheSources) {
  auto m = member("239.1.1.5", "Ethernet5", "10.0.0.5", Gmp::Igmp::igmpVersion3);
  m->filterModeIs(Gmp::Igmp::filterModeInclude);
  m->sourceIs(ip("1.1.1.1"))->sourceAgeIs(1);
  // robustness 2, one query without the source: one query interval (125 s) after the last report.
  EXPECT_EQ(run("showGroups -v10 -d -g239.1.1.5"),
            "10   239.1.1.5       10.0.0.5        0d01h02m05  0d00h01m05  ~00h01m00 v3  1   Et5\n");
}

TEST_F(DebugCliCallbackTest, ManyPortsWrapWithAnIndentOf52) {
  for (int i = 10; i < 20; ++i) staticEntry("239.2.2.2", ("Ethernet" + std::to_string(i)).c_str());
  EXPECT_EQ(run("showGroups -v10 -g239.2.2.2"),
            "10    239.2.2.2        User     -                      Et10, Et11, Et12, Et13, \n" +
                std::string(52, ' ') + "Et14, Et15, Et16, Et17, \n" + std::string(52, ' ') + "Et18, Et19\n");
}

TEST_F(DebugCliCallbackTest, PeerOnlyPortsPrintUnknownAndTheNoteOnce) {
  auto peer = Kiv::make<SyncStatus>("peer");
  auto peerVlan = peer->vlanStatusIs(Bridging::VlanId(10));
  peerVlan->ethGroupIs(IpToEthGroupMap(ip("239.1.1.2")))->groupIntfIs(IntfId("Ethernet6"), true);
  peerVlan->ethGroupIs(IpToEthGroupMap(ip("239.1.1.4")))->groupIntfIs(IntfId("Ethernet6"), true);
  source.peerStatus = peer;
  const std::string note = "\nunknown: Please run command on the mlag peer switch to get details.\n";
  EXPECT_EQ(run("showGroups -v10 -g239.1.1.2 -g239.1.1.4"),
            "10    239.1.1.2        Dynamic  -                      Et3, Et6\n"
            "10    239.1.1.4        Dynamic  -                      Et6\n" +
                note);
  EXPECT_EQ(run("showGroups -v10 -d -iEthernet6 -g239.1.1.4"),
            "10   239.1.1.4       unknown         -           -           -        -   -   Et6\n" + note);
}

TEST_F(DebugCliCallbackTest, NothingWithoutVlanGroupOrContext) {
  EXPECT_EQ(run("showGroups "), "");
  EXPECT_EQ(run("showGroups -v10"), "");
  EXPECT_EQ(run("showGroups -v11 -g239.1.1.1"), "");
  EXPECT_THROW(run("showGroups -v4095 -g239.1.1.1"), Kiv::RangeException);
  EXPECT_THROW(run("showGroups -v65546 -g239.1.1.1"), Kiv::RangeException);
  // An empty VLAN: a context without groups.
  protocolStatus->contextStatusIs(Bridging::VlanId(20));
  EXPECT_EQ(run("showGroups -v20 -g239.1.1.1"), "");
}

TEST_F(DebugCliCallbackTest, PacketAccessTable) {
  source.pamErrorCounters = [] {
    return std::vector<IgmpSnoopingAgent::PamErrorCounters>{{"Ethernet1", 1, 2, 3},
                                                            {"Ethernet10", 0, 0, 4000000000u}};
  };
  EXPECT_EQ(run("ethDevPamsCounters"),
            "  IntfName   rxErrors   txErrors    txDrops\n"
            " Ethernet1          1          2          3\n"
            "Ethernet10          0          0 4000000000\n");
}

TEST_F(DebugCliCallbackTest, UnknownCommandsEchoWithPercentPercentOnlyInterpreted) {
  EXPECT_EQ(run("hello"), "hello");
  EXPECT_EQ(run("%s%n%x%p"), "%s%n%x%p");
  EXPECT_EQ(run("100%% sure %d%%%s %"), "100% sure %d%%s %");
  EXPECT_EQ(run("%*.*s%99999999d%ls"), "%*.*s%99999999d%ls");
}

TEST(DebugCliCallbackSplitTest, KeepsEmptyStretchesAndDropsATrailingDelimiter) {
  std::vector<std::string> t;
  DebugCliCallback::split("showGroups  -v10 ", ' ', t);
  EXPECT_EQ(t, (std::vector<std::string>{"showGroups", "", "-v10"}));
  EXPECT_EQ(DebugCliCallback::doTimeDiff(100.9, 200.1, false), "-00h01m40");
  EXPECT_EQ(DebugCliCallback::doTimeDiff(Kiv::infinity, 1.0, false), "- ");
}

}  // namespace
