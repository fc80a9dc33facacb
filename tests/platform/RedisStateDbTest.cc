// The state database against a real redis-server: the whole model written out and read back by a
// writable mount (restart) and a read-only one, changes of every kind replicated, and the layout
// as a person reads it with redis-cli.
#include "platform/RedisStateDb.h"

#include <gtest/gtest.h>

#include "kernel/ActivityManager.h"
#include "kernel/Dir.h"
#include "model/IgmpContextStatus.h"
#include "model/Status.h"
#include "platform/EpollPoller.h"
#include "tests/support/EntityDump.h"
#include "tests/support/ModelSample.h"
#include "tests/support/RecordingLogSink.h"
#include "tests/support/RedisServer.h"
#include "tests/support/RunUntil.h"

namespace {

using namespace Bridging::IgmpSnooping;
using Lomax::IntfId;
using Lomax::IpAddr;
using Platform::MountOptions;
using TestSupport::runUntil;

// Where the sample's roots are mounted, and how: status and counters coalesced as the agent mounts
// them, memberships folded into their group's hash.
MountOptions optionsFor(const Kiv::Entity& root, bool writable) {
  MountOptions o;
  o.writable = writable;
  const std::string type = root.typeInfo().name;
  o.ordered = type != "IgmpProtocolStatus" && type != "IgmpCounterDir";
  if (type == "IgmpProtocolStatus") o.folded = {"IgmpIntfStatus"};
  return o;
}

class RedisStateDbTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!server.available()) GTEST_SKIP() << server.why();
    Platform::epollPollerInstall();
  }
  std::unique_ptr<Platform::StateDb> open() { return Platform::stateDbOpen(server.address()); }
  // Mounts each root at "test/<name>".
  void mountAll(Platform::StateDb& db, const std::vector<Kiv::Ptr<Kiv::Entity>>& roots, bool writable) {
    for (const auto& r : roots) db.mount("test/" + r->name().stdString(), r, optionsFor(*r, writable));
    ASSERT_TRUE(db.waitLoaded(10));
  }
  void settle(Platform::StateDb& db) {
    auto* redis = dynamic_cast<Platform::RedisStateDb*>(&db);
    redis->flushNow();
    ASSERT_TRUE(runUntil([&] { return redis->idle(); }));
  }
  // A fresh image of the roots, read back by a writable mount (a restart) and by a read-only one.
  void expectReadBackEqual(const std::vector<Kiv::Ptr<Kiv::Entity>>& roots) {
    for (bool writable : {true, false}) {
      auto db = open();
      auto fresh = TestSupport::modelRoots();
      mountAll(*db, fresh, writable);
      for (size_t i = 0; i < roots.size(); ++i) {
        EXPECT_EQ(TestSupport::entityDump(*fresh[i]), TestSupport::entityDump(*roots[i]))
            << roots[i]->typeInfo().name << (writable ? " reloaded" : " read");
      }
    }
  }

  TestSupport::RedisServer server;
  TestSupport::RecordingLogSink logs;
};

TEST_F(RedisStateDbTest, WholeModelRoundTripsThroughRedis) {
  auto roots = TestSupport::modelSample();
  {
    auto db = open();
    mountAll(*db, roots, true);
    settle(*db);
  }
  expectReadBackEqual(roots);
  // As a person reads it: one hash per (VLAN, group), a field per membership.
  EXPECT_EQ(server.command({"HGET", "test/protocolStatus|10|group=232.1.1.1", "Ethernet1|10.0.0.2"}),
            "0,0,0,0,1732350000.1234567,0");
  EXPECT_EQ(server.command({"HGET", "test/protocolStatus|10|group=232.1.1.1", "Ethernet1|10.0.0.1|1.1.1.1"}),
            "2");
  EXPECT_EQ(server.command({"HGET", "test/status|10", "useVlanFloodset"}), "true");
  EXPECT_EQ(server.command({"HGET", "meta|test/status", "state"}), "ready");
  EXPECT_TRUE(logs.entries.empty()) << logs.lines().front();
}

TEST_F(RedisStateDbTest, ChangesOfEveryKindReplicate) {
  auto roots = TestSupport::modelSample();
  auto db = open();
  mountAll(*db, roots, true);
  auto* ps = static_cast<IgmpProtocolStatus*>(roots[5].ptr());
  auto* st = static_cast<Status*>(roots[6].ptr());
  auto s = ps->contextStatus(Bridging::VlanId(10));
  // Scalars, a refresh, elements added and removed, folded and record children made and deleted.
  auto m = s->group(IpAddr(232, 1, 1, 1))->intf(IntfId("Ethernet1"))->membership(IpAddr(10, 0, 0, 1));
  m->lastReportIs(m->lastReport() + 1);
  m->sourceDel(IpAddr(1, 1, 1, 2));
  s->group(IpAddr(232, 1, 1, 1))->intf(IntfId("Ethernet1"))->oldIntfDelAll();
  s->groupDel(IpAddr(239, 1, 1, 1));
  s->groupIs(IpAddr(239, 3, 3, 3))
      ->intfIs(IntfId("Ethernet8"))
      ->membershipIs(IpAddr(10, 8, 0, 1))
      ->expireIs(9);
  s->querierIs(IpAddr(10, 0, 0, 99));
  s->routerDel(IpAddr(10, 0, 0, 253));
  s->newIgmpReportInc(1);
  s->switchPortIs(IntfId("Ethernet10"), true);
  ps->contextStatusDel(Bridging::VlanId(4094));
  auto v = st->vlanStatus(Bridging::VlanId(10));
  v->ethGroupIs(Lomax::EthAddr(0x0100, 0x5e03, 0x0303))->groupIntfIs(IntfId("Ethernet4"), true);
  v->ethGroupDel(Lomax::EthAddr(0x0100, 0x5e01, 0x0101));
  v->useVlanFloodsetIs(false);
  st->vlanStatusIs(Bridging::VlanId(30));
  settle(*db);
  db.reset();
  expectReadBackEqual(roots);
  EXPECT_EQ(server.command({"EXISTS", "test/protocolStatus|4094"}), "0");
}

// A server that may evict the agent's keys is named in a log; without a server the trees live in the
// process, at their paths.
TEST_F(RedisStateDbTest, EvictingServerIsLoggedAndTheInProcessStoreNeedsNone) {
  server.command({"CONFIG", "SET", "maxmemory-policy", "allkeys-lru"});
  auto db = open();
  db->mount("test/evict", Kiv::make<Status>("status"), MountOptions{});
  ASSERT_TRUE(runUntil([&] { return !logs.entries.empty(); }));
  EXPECT_EQ(logs.entries.front().name, "STATEDB_EVICTION_POLICY");
  EXPECT_NE(logs.entries.front().text.find("allkeys-lru"), std::string::npos);

  auto local = Platform::stateDbOpen("");
  auto status = Kiv::make<Status>("status");
  EXPECT_EQ(local->mount("test/local/status", status, MountOptions{}), status);
  EXPECT_TRUE(local->loaded());
  EXPECT_EQ(Kiv::globalDir()->entityRefPath("test/local/status"), status);
}

}  // namespace
