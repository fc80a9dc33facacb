// snoopctl against a real redis-server and an agent built in the test, serving its commands on a
// socket in a temporary directory: configuration reaches the agent, refused values write nothing,
// shows line up and their JSON parses.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "agent/AgentCreator.h"
#include "kernel/ActivityManager.h"
#include "net/IpToEthGroupMap.h"
#include "platform/AgentMountTable.h"
#include "platform/CommandSocket.h"
#include "platform/EpollPoller.h"
#include "platform/RedisStateDb.h"
#include "tests/support/Addr.h"
#include "tests/support/RedisServer.h"
#include "tests/support/RunUntil.h"
#include "tests/support/ToolRun.h"

namespace {

using namespace Bridging::IgmpSnooping;
using Lomax::IntfId;
using Lomax::IpAddr;
using TestSupport::toolRun;

constexpr auto ip = TestSupport::ipAddr;

// Whether text is one JSON document (checked by Python's parser when there is one).
bool jsonParses(const std::string& text, std::string& why) {
  if (system("python3 -c '' 2>/dev/null") != 0) return true;
  const std::string file =
      std::filesystem::temp_directory_path() / ("snoopctl-json-" + std::to_string(getpid()));
  std::ofstream(file) << text;
  const bool ok = system(("python3 -c 'import json,sys; json.load(open(sys.argv[1]))' " + file).c_str()) == 0;
  std::filesystem::remove(file);
  if (!ok) why = text;
  return ok;
}

class SnoopctlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!server.available()) GTEST_SKIP() << server.why();
    Platform::epollPollerInstall();
    char tmpl[] = "/tmp/snoopctlXXXXXX";
    dir = mkdtemp(tmpl);
    socket = dir + "/agent.sock";
    auto service = Kiv::make<Platform::CommandSocket>(socket);
    Agent::AgentCommandRequestDirSm::factoryIs([service](const Kiv::Ptr<Kiv::Dir>&) { return service; });
    db = Platform::stateDbOpen(server.address());
    mounts = Platform::AgentMountTable::mount(*db);
    ASSERT_TRUE(db->waitLoaded(10));
    bridgeIs();
    agent = IgmpSnoopingAgent::rootFactory("IgmpSnooping")->agentIs(mounts, "igmpsnoopd");
    populate();
    settle();
    ASSERT_TRUE(TestSupport::runUntil([&] { return agent->glueSm()->vlanSmInitialized(); }));
  }
  void TearDown() override {
    Agent::AgentCommandRequestDirSm::factoryIs(nullptr);
    agent = nullptr;
    if (!dir.empty()) std::filesystem::remove_all(dir);
  }

  // The bridge: VLAN 10 of Ethernet2, Ethernet4 and Ethernet7, VLAN 20 of Ethernet2, links up.
  void bridgeIs() {
    for (const char* port : {"Ethernet2", "Ethernet4", "Ethernet7"}) {
      mounts.bridgingConfig->switchIntfConfigIs(IntfId(port))->defaultVlanIs(Bridging::VlanIdOrNone(10));
      mounts.bridgingConfig->vlanConfigIs(Bridging::VlanId(10))->intfIs(IntfId(port))->taggedIs(false);
      mounts.ethIntfStatusDir->intfStatusIs(IntfId(port))->linkUpIs(true);
    }
    mounts.bridgingConfig->vlanConfigIs(Bridging::VlanId(20))->intfIs(IntfId("Ethernet2"))->taggedIs(true);
  }
  // VLAN 10 as the core left it before a restart: a learned group, a static one, a router and a
  // querier; VLAN 20 with nothing.
  void populate() {
    const Kiv::Seconds now = Kiv::System::currentTime();
    auto ctx = mounts.protocolStatus->contextStatusIs(Bridging::VlanId(10));
    ctx->confidentIs(true);
    auto m = ctx->groupIs(ip("239.1.1.1"))->intfIs(IntfId("Ethernet2"))->membershipIs(ip("10.0.0.2"));
    m->igmpVersionIs(Gmp::Igmp::igmpVersion2), m->firstReportIs(now), m->lastReportIs(now),
        m->expireIs(now + 260);
    ctx->groupIs(ip("239.1.1.3"))->intfIs(IntfId("Ethernet4"))->staticEntryIs(true);
    auto r = ctx->routerIs(ip("10.0.0.254"));
    r->intfIs(IntfId("Ethernet7")), r->routerTypeIs(routerTypePim), r->firstHeardIs(now), r->lastHeardIs(now);
    r->lifeIs(105), r->expireIs(now + 105);
    auto q = ctx->querierIs(ip("10.0.0.254"));
    q->intfIs(IntfId("Ethernet7")), q->lastHeardIs(now), q->expireIs(now + 255);
    ctx->querierVersionIs(Gmp::Igmp::igmpVersion3);
    mounts.protocolStatus->contextStatusIs(Bridging::VlanId(20));
  }
  void settle() {
    auto* redis = dynamic_cast<Platform::RedisStateDb*>(db.get());
    redis->flushNow();
    ASSERT_TRUE(TestSupport::runUntil([&] { return redis->idle(); }));
  }
  TestSupport::ToolResult snoopctl(std::vector<std::string> args) {
    args.insert(args.begin(), {"--state-db", server.address(), "--socket", socket});
    return toolRun("snoopctl", args);
  }
  std::string configKeys() { return server.command({"XLEN", "log|igmpsnooping/config"}); }

  TestSupport::RedisServer server;
  std::string dir, socket;
  std::unique_ptr<Platform::StateDb> db;
  IgmpSnoopingAgent::AgentMounts mounts;
  Kiv::Ptr<IgmpSnoopingAgent::AgentCreator> agent;
};

TEST_F(SnoopctlTest, ConfigurationReachesTheAgent) {
  for (const auto& args : std::vector<std::vector<std::string>>{
           {"set", "vlan", "10", "snooping", "off"},
           {"set", "vlan", "10", "immediate-leave", "on"},
           {"set", "vlan", "10", "max-groups", "100"},
           {"set", "vlan", "10", "static-group", "239.1.1.1", "port", "Ethernet1"},
           {"set", "vlan", "10", "router-port", "Ethernet5"},
           {"set", "robustness", "3"},
           {"set", "query-interval", "60"},
           {"set", "profile", "video", "permit", "239.1.0.0-239.1.255.255", "239.3.3.3"},
           {"set", "interface", "Ethernet1", "profile", "video"}}) {
    const auto r = snoopctl(args);
    EXPECT_EQ(r.status, 0) << args[1] << ": " << r.err;
  }
  auto config = mounts.config;
  ASSERT_TRUE(TestSupport::runUntil([&] {
    auto vc = config->vlanConfig(Bridging::VlanId(10));
    return vc && vc->routerIntf(IntfId("Ethernet5")) && config->intfConfig(IntfId("Ethernet1")) &&
           mounts.profileConfig->profile("video");
  })) << "the agent's read-only mounts follow what snoopctl writes";
  auto vc = config->vlanConfig(Bridging::VlanId(10));
  EXPECT_EQ(vc->enabled(), vlanStateDisabled);
  EXPECT_EQ(vc->immediateLeave(), immediateLeaveEnabled);
  EXPECT_EQ(vc->maxGroups(), 100);
  EXPECT_TRUE(vc->ipGroup(ip("239.1.1.1"))->intf(IntfId("Ethernet1")));
  EXPECT_EQ(config->robustness(), 3u);
  EXPECT_EQ(config->globalQuerierConfig()->queryInterval(), 60.0);
  EXPECT_EQ(config->intfConfig(IntfId("Ethernet1"))->profileName(), Kiv::String("video"));
  auto profile = mounts.profileConfig->profile("video");
  EXPECT_TRUE(profile->permits(ip("239.1.7.7")));
  EXPECT_FALSE(profile->permits(ip("239.2.0.1")));

  // Taking things away again.
  EXPECT_EQ(snoopctl({"set", "vlan", "10", "static-group", "239.1.1.1", "port", "Ethernet1", "off"}).status,
            0);
  EXPECT_EQ(snoopctl({"set", "vlan", "10", "router-port", "Ethernet5", "off"}).status, 0);
  EXPECT_EQ(snoopctl({"set", "vlan", "10", "max-groups", "none"}).status, 0);
  ASSERT_TRUE(TestSupport::runUntil(
      [&] { return !vc->routerIntf(IntfId("Ethernet5")) && !vc->ipGroup(ip("239.1.1.1")); }));
  EXPECT_EQ(vc->maxGroups(), 0xffff);
}

TEST_F(SnoopctlTest, RefusedValuesSayWhatIsRightAndWriteNothing) {
  ASSERT_EQ(snoopctl({"set", "robustness", "2"}).status, 0);
  const std::string before = configKeys();
  for (const auto& args : std::vector<std::vector<std::string>>{
           {"set", "vlan", "0", "snooping", "on"},
           {"set", "vlan", "4095", "snooping", "on"},
           {"set", "vlan", "ten", "snooping", "on"},
           {"set", "vlan", "10", "snooping", "yes"},
           {"set", "vlan", "10", "immediate-leave", "1"},
           {"set", "vlan", "10", "max-groups", "-1"},
           {"set", "vlan", "10", "max-groups", "65535"},
           {"set", "vlan", "10", "static-group", "10.1.1.1", "port", "Ethernet1"},
           {"set", "vlan", "10", "static-group", "224.0.0.5", "port", "Ethernet1"},
           {"set", "vlan", "10", "static-group", "239.1.1.256", "port", "Ethernet1"},
           {"set", "vlan", "10", "static-group", "239.1.1.1", "Ethernet1"},
           {"set", "vlan", "10", "static-group", "239.1.1.1", "port", "Eth|1"},
           {"set", "vlan", "10", "router-port", ""},
           {"set", "vlan", "10", "flood", "on"},
           {"set", "robustness", "0"},
           {"set", "robustness", "8"},
           {"set", "query-interval", "0"},
           {"set", "query-interval", "31745"},
           {"set", "query-interval", "1.5"},
           {"set", "profile", "video", "allow", "239.1.1.1"},
           {"set", "profile", "video", "permit", "239.2.0.0-239.1.0.0"},
           {"set", "profile", "video", "permit"},
           {"set", "interface", "Ethernet1", "profil", "video"},
           {"set", "colour", "blue"},
       }) {
    const auto r = snoopctl(args);
    std::string line;
    for (const auto& a : args) line += a + " ";
    EXPECT_EQ(r.status, 1) << line << r.err;
    EXPECT_NE(r.err.find("; "), std::string::npos) << line << ": wrong; right: " << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  }
  EXPECT_EQ(configKeys(), before);
}

TEST_F(SnoopctlTest, ShowsLineUpAndTheirJsonParses) {
  // A static membership stands only while configured.
  ASSERT_EQ(snoopctl({"set", "vlan", "10", "static-group", "239.1.1.3", "port", "Ethernet4"}).status, 0);
  ASSERT_TRUE(TestSupport::runUntil([&] {
    auto g = mounts.protocolStatus->contextStatus(Bridging::VlanId(10))->group(ip("239.1.1.3"));
    return g && g->intf(IntfId("Ethernet4")) && g->intf(IntfId("Ethernet4"))->staticEntry();
  }));
  const auto groups = snoopctl({"show", "groups"});
  ASSERT_EQ(groups.status, 0) << groups.err;
  EXPECT_EQ(groups.out,
            "VLAN  Group      Type     Confident  Ports\n"
            "10    239.1.1.1  Dynamic  yes        Et2\n"
            "10    239.1.1.3  User     yes        Et4\n");
  EXPECT_EQ(snoopctl({"show", "groups", "--vlan", "10", "-u"}).out,
            "VLAN  Group      Type  Confident  Ports\n"
            "10    239.1.1.3  User  yes        Et4\n");
  EXPECT_EQ(snoopctl({"show", "groups", "--vlan", "10", "-y", "--json"}).out,
            "[\n {\"vlan\": 10, \"group\": \"239.1.1.1\", \"type\": \"Dynamic\", \"confident\": \"yes\", "
            "\"ports\": [\"Et2\"]}\n]\n");

  const auto routers = snoopctl({"show", "routers"});
  EXPECT_EQ(routers.status, 0) << routers.err;
  EXPECT_NE(routers.out.find("10    10.0.0.254  Ethernet7  PIM"), std::string::npos) << routers.out;
  const auto vlan = snoopctl({"show", "vlan"});
  EXPECT_NE(vlan.out.find("\n10    on (default)  off (default)    none"), std::string::npos) << vlan.out;
  EXPECT_NE(vlan.out.find("\n20    on (default)"), std::string::npos) << vlan.out;

  for (const auto& args : std::vector<std::vector<std::string>>{{"show", "groups", "--json"},
                                                                {"show", "counters", "--json"},
                                                                {"show", "routers", "--json"},
                                                                {"show", "querier", "--json"},
                                                                {"show", "vlan", "--json"},
                                                                {"show", "vlan", "30", "--json"}}) {
    const auto r = snoopctl(args);
    EXPECT_EQ(r.status, 0) << args[1] << r.err;
    std::string why;
    EXPECT_TRUE(jsonParses(r.out, why)) << args[1] << ": " << why;
  }
  EXPECT_NE(snoopctl({"show", "querier", "--json"}).out.find("\"version\": \"v3\""), std::string::npos);
}

TEST_F(SnoopctlTest, HelpForEveryCommandAndClearFailures) {
  for (const auto& args : std::vector<std::vector<std::string>>{{"--help"},
                                                                {"show", "groups", "--help"},
                                                                {"show", "counters", "--help"},
                                                                {"show", "routers", "--help"},
                                                                {"show", "querier", "--help"},
                                                                {"show", "vlan", "--help"},
                                                                {"set", "--help"},
                                                                {"trace", "decode", "--help"}}) {
    const auto r = toolRun("snoopctl", args);
    EXPECT_EQ(r.status, 0) << args[0];
    EXPECT_EQ(r.out.rfind("usage: snoopctl", 0), 0u) << r.out;
  }
  const auto noAgent = toolRun("snoopctl", {"--socket", dir + "/none.sock", "show", "counters"});
  EXPECT_EQ(noAgent.status, 2);
  EXPECT_NE(noAgent.err.find("is igmpsnoopd running?"), std::string::npos) << noAgent.err;
  const auto noDb = toolRun("snoopctl", {"--state-db", "unix:" + dir + "/none.sock", "show", "vlan"});
  EXPECT_EQ(noDb.status, 2);
  EXPECT_NE(noDb.err.find("cannot reach the state database"), std::string::npos) << noDb.err;
  EXPECT_EQ(toolRun("snoopctl", {"trace", "decode", dir + "/none.vl"}).status, 1);
}

}  // namespace
