// Writable mounts when the server fails them: killed and restarted empty under writes, the agent
// runs on and Redis ends up holding exactly its state; garbage in Redis (a key of the wrong type,
// values and keys that do not parse, a huge collection, a missing generation) is a log and a skip
// or a rewrite, never a crash.
#include "platform/RedisWriter.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/EpollPoller.h"
#include "platform/RedisStateDb.h"
#include "tests/kernel/TestEntities.h"
#include "tests/support/EntityDump.h"
#include "tests/support/RecordingLogSink.h"
#include "tests/support/RedisServer.h"
#include "tests/support/RunUntil.h"

namespace {

using KivTest::Node;
using TestSupport::runTurn;
using TestSupport::runUntil;

Platform::MountOptions options(bool writable, bool ordered, std::vector<std::string> folded = {}) {
  Platform::MountOptions o;
  o.writable = writable;
  o.ordered = ordered;
  o.folded = std::move(folded);
  return o;
}

class RedisWriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!server.available()) GTEST_SKIP() << server.why();
    Platform::epollPollerInstall();
  }
  size_t logged(const char* name) const {
    return std::count_if(logs.entries.begin(), logs.entries.end(),
                         [&](const auto& e) { return e.name == name; });
  }
  // What a fresh image reads back from the server at path, writable or not.
  TestSupport::EntityDump readBack(const std::string& path, const Platform::MountOptions& o) {
    auto db = Platform::stateDbOpen(server.address());
    auto fresh = Kiv::make<Node>("fresh");
    db->mount(path, fresh, o);
    EXPECT_TRUE(db->waitLoaded(10)) << path;
    return TestSupport::entityDump(*fresh);
  }

  TestSupport::RedisServer server;
  TestSupport::RecordingLogSink logs;
};

TEST_F(RedisWriterTest, KilledAndRestartedEmptyUnderWritesRedisEndsWithTheAgentsState) {
  auto db = Platform::stateDbOpen(server.address());
  auto& redis = dynamic_cast<Platform::RedisStateDb&>(*db);
  auto ordered = Kiv::make<Node>("ordered");
  auto coalesced = Kiv::make<Node>("coalesced");
  db->mount("w/ordered", ordered, options(true, true));
  db->mount("w/coalesced", coalesced, options(true, false, {"Leaf"}));
  ASSERT_TRUE(db->waitLoaded(10));
  uint32_t t = 0;
  auto churn = [&](int turns) {
    for (int i = 0; i < turns; ++i, ++t) {
      ordered->countIs(t);
      ordered->leafIs(t % 100)->weightIs(t);
      coalesced->leafIs(t % 50)->weightIs(t);
      coalesced->leafIs(t % 50)->tagIs("t" + std::to_string(t % 3), t % 2);
      if (t % 7 == 0) ordered->leafDel((t + 50) % 100), coalesced->leafDel((t + 25) % 50);
      runTurn();
    }
  };
  churn(100);
  server.kill();
  churn(100);
  EXPECT_EQ(logged("STATEDB_UNREACHABLE"), 1u);
  server.start();
  ASSERT_TRUE(server.available());
  // Writes go on while the agent reconnects and writes everything back.
  for (int i = 0; i < 300 && logged("STATEDB_REWRITE") < 2; ++i) churn(1);
  churn(50);
  redis.flushNow();
  ASSERT_TRUE(runUntil([&] { return redis.idle(); }));
  EXPECT_EQ(logged("STATEDB_REWRITE"), 2u);
  EXPECT_EQ(logged("STATEDB_REACHABLE"), 1u);
  EXPECT_EQ(readBack("w/ordered", options(true, true)), TestSupport::entityDump(*ordered));
  EXPECT_EQ(readBack("w/coalesced", options(false, false, {"Leaf"})), TestSupport::entityDump(*coalesced));
  // Nothing else: one hash per ordered leaf and the root, the coalesced root, two metas, two streams.
  EXPECT_EQ(server.command({"DBSIZE"}), std::to_string(ordered->leafSize() + 1 + 1 + 4));
}

TEST_F(RedisWriterTest, GarbageIsLoggedAndSkippedNeverFatal) {
  for (const auto& cmd : std::vector<std::vector<std::string>>{
           {"HSET", "meta|g/node", "state", "ready", "gen", "5", "seq", "3", "schema", "1"},
           {"HSET", "g/node", "count", "7", "colour", "purple", "_seq", "3"},
           {"SET", "g/node|leaf=9", "a string"},
           {"HSET", "g/node|leaf=1", "weight", "4", "hits", "x"},
           {"HSET", "g/node|leaf=zz", "weight", "1"},
           {"HSET", "g/node|nosuch=1", "a", "b"},
           {"XADD", "log|g/node", "5-3", "_op", "set", "_k", "g/node|leaf=1", "weight", "four"},
       })
    server.command(cmd);
  // A huge collection, none of whose elements parse.
  std::vector<std::string> huge{"HSET", "g/node|leaf=2"};
  for (int i = 0; i < 50000; ++i) huge.insert(huge.end(), {"tag=x" + std::to_string(i), "maybe"});
  server.command(huge);

  for (bool writable : {false, true}) {
    auto db = Platform::stateDbOpen(server.address());
    auto node = Kiv::make<Node>("node");
    db->mount("g/node", node, options(writable, true));
    ASSERT_TRUE(db->waitLoaded(10));
    EXPECT_EQ(node->count(), 7u);
    ASSERT_TRUE(node->leaf(1));
    EXPECT_EQ(node->leaf(1)->weight(), 4u);
    ASSERT_TRUE(node->leaf(2));
    EXPECT_EQ(node->leaf(2)->tagSize(), 0u);
    EXPECT_FALSE(node->leaf(9));
    EXPECT_EQ(node->leafSize(), 2u);
  }
  std::vector<std::string> keys;
  for (const auto& e : logs.entries) {
    if (e.name == "STATEDB_BAD_DATA") keys.push_back(e.text.substr(0, e.text.find(" skipped")));
  }
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  EXPECT_EQ(
      keys,
      (std::vector<std::string>{
          "State database mount g/node: g/node", "State database mount g/node: g/node|leaf=1",
          "State database mount g/node: g/node|leaf=2", "State database mount g/node: g/node|leaf=9",
          "State database mount g/node: g/node|leaf=zz", "State database mount g/node: g/node|nosuch=1"}));

  // A generation that is missing: a reader waits, saying why; the writer writes its own state back
  // under a new generation, and the garbage goes with the old one.
  server.command({"HDEL", "meta|g/node", "gen"});
  logs.entries.clear();
  auto readerDb = Platform::stateDbOpen(server.address());
  auto replica = Kiv::make<Node>("replica");
  readerDb->mount("g/node", replica, options(false, true));
  ASSERT_TRUE(runUntil([&] { return logged("STATEDB_BAD_DATA") == 1; }));
  EXPECT_FALSE(readerDb->loaded());
  auto db = Platform::stateDbOpen(server.address());
  auto node = Kiv::make<Node>("node");
  db->mount("g/node", node, options(true, true));
  ASSERT_TRUE(db->waitLoaded(10));
  node->countIs(11);
  ASSERT_TRUE(runUntil([&] { return replica->count() == 11; }));
  EXPECT_EQ(logged("STATEDB_REWRITE"), 1u);
  EXPECT_EQ(server.command({"EXISTS", "g/node|leaf=zz", "g/node|leaf=9", "g/node|nosuch=1", "g/node|leaf=2"}),
            "0");
}

}  // namespace
