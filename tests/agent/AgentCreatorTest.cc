// The agent built from its mounts: creation once, counters restored, the command service wired, and
// a restart of the agent image on state that survived in Redis.
#include "agent/AgentCreator.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "glue/MemoryPam.h"
#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"
#include "net/IpToEthGroupMap.h"
#include "platform/AgentMountTable.h"
#include "platform/EpollPoller.h"
#include "platform/RedisStateDb.h"
#include "tests/support/Addr.h"
#include "tests/support/RedisServer.h"
#include "tests/support/RunUntil.h"

namespace {

using namespace Bridging::IgmpSnooping;
using IgmpSnoopingAgent::AgentMounts;
using Lomax::IntfId;
using Lomax::IpAddr;
using Platform::AgentMountTable;

struct RecordingService : Agent::AgentCommandRequestDirSm {};

std::string run(Agent::AgentCommandCallback& cb, const char* command) {
  const int fd = memfd_create("cmd", 0);
  const int reader = dup(fd);
  cb.handleCommand(fd, command);
  std::string out(4096, '\0');
  const ssize_t n = pread(reader, out.data(), out.size(), 0);
  close(reader);
  out.resize(n > 0 ? n : 0);
  return out;
}

constexpr auto ip = TestSupport::ipAddr;

// A VLAN's state as the core and the glue leave it.
void populate(const AgentMounts& m, Kiv::Seconds now) {
  auto context = m.protocolStatus->contextStatusIs(Bridging::VlanId(10));
  context->confidentIs(true);
  auto membership =
      context->groupIs(ip("239.1.1.1"))->intfIs(IntfId("Ethernet2"))->membershipIs(ip("10.0.0.2"));
  membership->igmpVersionIs(Gmp::Igmp::igmpVersion2);
  membership->firstReportIs(now - 10), membership->lastReportIs(now - 10), membership->expireIs(now + 250);
  m.status->vlanStatusIs(Bridging::VlanId(10))
      ->ethGroupIs(IpToEthGroupMap(ip("239.1.1.1")))
      ->groupIntfIs(IntfId("Ethernet2"), true);
  m.counterDir->intfCounterIs("Ethernet2")->inPktIgmpV2ReportInc(7);
}

// The bridge of that VLAN: Ethernet2 an untagged member, its link up.
void bridgeIs(const AgentMounts& m) {
  m.bridgingConfig->switchIntfConfigIs(IntfId("Ethernet2"))->defaultVlanIs(Bridging::VlanIdOrNone(10));
  m.bridgingConfig->vlanConfigIs(Bridging::VlanId(10))->intfIs(IntfId("Ethernet2"))->taggedIs(false);
  m.ethIntfStatusDir->intfStatusIs(IntfId("Ethernet2"))->linkUpIs(true);
}

class AgentCreatorTest : public ::testing::Test {
 protected:
  ~AgentCreatorTest() override { Agent::AgentCommandRequestDirSm::factoryIs(nullptr); }
  Kiv::VirtualTime virtualTime{100000};
};

TEST_F(AgentCreatorTest, BuildsOnceRestoresCountersAndServesCommands) {
  Kiv::Ptr<RecordingService> service;
  Agent::AgentCommandRequestDirSm::factoryIs([&](const Kiv::Ptr<Kiv::Dir>&) {
    service = Kiv::make<RecordingService>();
    return service;
  });
  auto db = Platform::stateDbOpen("");
  const AgentMounts mounts = AgentMountTable::mount(*db);
  populate(mounts, 100000);

  auto root = IgmpSnoopingAgent::rootFactory("IgmpSnooping");
  auto agent = root->agentIs(mounts, "igmpsnoopd");
  EXPECT_EQ(agent->sysname(), Kiv::Name("IgmpSnoopingAgent"));
  EXPECT_EQ(agent->parent(), root.ptr());
  EXPECT_EQ(root->agentIs(mounts, "igmpsnoopd"), agent);
  AgentMounts other = mounts;
  other.hwConfig = Kiv::make<HwConfig>("other");
  EXPECT_THROW(root->agentIs(other, "igmpsnoopd"), Kiv::NameInUseException);

  // Counts of an earlier run are local before any VLAN counts; "Switch" is in both directories.
  auto local = agent->localCounterDir();
  ASSERT_TRUE(local->intfCounter("Ethernet2"));
  EXPECT_EQ(local->intfCounter("Ethernet2")->inPktIgmpV2Report(), 7u);
  EXPECT_TRUE(local->intfCounter("Switch"));
  EXPECT_TRUE(mounts.counterDir->intfCounter("Switch"));
  EXPECT_EQ(mounts.status->counterUpdateTime(), 100000.0);
  ASSERT_TRUE(agent->timerWheel());

  agent->handleConstructor();
  EXPECT_EQ(agent->localCounterDir(), local);

  ASSERT_TRUE(service);
  EXPECT_EQ(service->agentCommandCallback(), agent->debugCliCallback());
  EXPECT_EQ(run(*service->agentCommandCallback(), "showGroups -v10 -g239.1.1.1"),
            "10    239.1.1.1        Dynamic  -                      Et2\n");
  EXPECT_EQ(root->agentDel(), agent);
  EXPECT_EQ(agent->parent(), nullptr);
  EXPECT_FALSE(root->agent());
  agent = nullptr;
  EXPECT_FALSE(service->agentCommandCallback()) << "a service that outlives the agent must not reach it";
}

// The platform's services are made on the agent's own objects before the glue, which switches packet
// access on; the topology is not complete before the interfaces were read in full.
TEST_F(AgentCreatorTest, PlatformServicesServeTheGlueAndHoldTheTopologyUntilTheInterfacesAreRead) {
  struct Manager : Interface::EthDevPamManager {
    PamCounters intfPamCounters(Lomax::IntfId) const override { return {3, 2, 1}; }
    void handleEnabled() override {}
  };
  std::function<void()> synced;
  Kiv::Ptr<Interface::DeviceIntfStatusDir> devices;
  Kiv::Ptr<Manager> manager;
  IgmpSnoopingAgent::AgentPlatform platform;
  platform.intfStatusManagerFactory = [&](const Kiv::Ptr<Interface::DeviceIntfStatusDir>& dir,
                                          std::function<void()> s) {
    devices = dir;
    synced = std::move(s);
    return std::make_shared<int>(0);
  };
  platform.ethDevPamManagerFactory = [&](const Kiv::Ptr<Interface::PamDesiredIntfDir const>&,
                                         const Kiv::Ptr<Interface::EthDevPamCollection>&) {
    manager = Kiv::make<Manager>();
    return Kiv::Ptr<Interface::EthDevPamManager>(manager);
  };
  IgmpSnoopingAgent::AgentCreator::platformIs(platform);
  auto db = Platform::stateDbOpen("");
  const AgentMounts mounts = AgentMountTable::mount(*db);
  bridgeIs(mounts);
  auto root = IgmpSnoopingAgent::rootFactory("IgmpSnooping");
  auto agent = root->agentIs(mounts, "igmpsnoopd");
  IgmpSnoopingAgent::AgentCreator::platformIs({});

  EXPECT_EQ(devices, agent->deviceIntfStatusDir());
  ASSERT_TRUE(manager);
  EXPECT_EQ(agent->glueSm()->services().ethDevPamManager, manager);
  EXPECT_TRUE(manager->enabled()) << "the glue switches packet access on";
  Kiv::activityManager()->advanceBy(1);
  EXPECT_FALSE(agent->topoLibState()->initDone()) << "interfaces not read yet";
  EXPECT_FALSE(agent->glueSm()->vlanSm(Bridging::VlanId(10)));
  ASSERT_TRUE(synced);
  synced();
  Kiv::activityManager()->advanceBy(1);
  EXPECT_TRUE(agent->topoLibState()->initDone());
  EXPECT_TRUE(agent->glueSm()->vlanSm(Bridging::VlanId(10)));

  // The error counters are read per packet-access object through the glue's manager.
  agent->ethDevPamCollection()->intfPamIs(IntfId("Ethernet2"), Kiv::make<Lomax::MemoryPam>());
  const std::string counters = run(*agent->debugCliCallback(), "ethDevPamsCounters");
  EXPECT_NE(counters.find("Ethernet2"), std::string::npos) << counters;
  EXPECT_NE(counters.find("3"), std::string::npos) << counters;
  root->agentDel();
}

TEST(AgentCreatorRestartTest, ARestartedAgentShowsWhatSurvivedInRedis) {
  TestSupport::RedisServer server;
  if (!server.available()) GTEST_SKIP() << server.why();
  Platform::epollPollerInstall();
  const Kiv::Seconds now = Kiv::System::currentTime();
  const char* command = "showGroups -v10 -d -g239.1.1.1";
  std::string before;
  {
    auto db = Platform::stateDbOpen(server.address());
    const AgentMounts mounts = AgentMountTable::mount(*db);
    ASSERT_TRUE(db->waitLoaded(10)) << "configuration nobody wrote is an empty tree, loaded";
    bridgeIs(mounts);
    auto root = IgmpSnoopingAgent::rootFactory("IgmpSnooping");
    auto agent = root->agentIs(mounts, "igmpsnoopd");
    populate(mounts, now);
    before = run(*agent->debugCliCallback(), command);
    auto* redis = dynamic_cast<Platform::RedisStateDb*>(db.get());
    redis->flushNow();
    ASSERT_TRUE(TestSupport::runUntil([&] { return redis->idle(); }));
  }
  EXPECT_NE(before, "");
  auto db = Platform::stateDbOpen(server.address());
  const AgentMounts mounts = AgentMountTable::mount(*db);
  ASSERT_TRUE(db->waitLoaded(10));
  bridgeIs(mounts);
  auto agent = IgmpSnoopingAgent::rootFactory("IgmpSnooping")->agentIs(mounts, "igmpsnoopd");
  EXPECT_EQ(agent->localCounterDir()->intfCounter("Ethernet2")->inPktIgmpV2Report(), 7u);
  // The glue takes the VLAN up on the state that survived.
  ASSERT_TRUE(TestSupport::runUntil(
      [&] { return agent->glueSm()->vlanSmInitialized() && agent->glueSm()->vlanSm(Bridging::VlanId(10)); }));
  // Times are whole seconds apart from the first image's: the same text unless a second ticked.
  const std::string after = run(*agent->debugCliCallback(), command);
  EXPECT_EQ(after.substr(0, 40), before.substr(0, 40));
  EXPECT_EQ(after.size(), before.size());
}

}  // namespace
