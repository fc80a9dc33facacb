// Read-only mounts following a writer in another process: every change seen, in the order it was
// made, including changes made while the reader was still loading its snapshot; the publishing order
// of flood and groups holds for a reader of the stream; and the writer's tree, reloaded by a fresh
// process image, equals what it wrote.
#include "platform/RedisReader.h"

#include <gtest/gtest.h>

#include <map>

#include "kernel/ActivityManager.h"
#include "model/Status.h"
#include "platform/EpollPoller.h"
#include "platform/RedisStateDb.h"
#include "tests/kernel/TestEntities.h"
#include "tests/support/EntityDump.h"
#include "tests/support/ProcessWriter.h"
#include "tests/support/RecordingLogSink.h"
#include "tests/support/RedisServer.h"
#include "tests/support/RunUntil.h"

namespace {

using KivTest::Leaf;
using KivTest::Node;
using TestSupport::runUntil;

constexpr uint32_t leaves = 20000;
constexpr uint32_t turns = 3000;

// Turn t of the writer: the root's count first, then two leaves take t as their weight; every 100th
// turn a leaf goes and a new one comes. The same on an unmounted tree gives what the reader must end with.
void turn(Node& root, uint32_t t) {
  root.countIs(t);
  root.leafIs(t * 7 % leaves)->weightIs(t);
  root.leafIs(t * 13 % leaves)->weightIs(t);
  if (t % 100 == 0) {
    root.leafDel(t * 3 % leaves);
    root.leafIs(leaves + t)->weightIs(t);
  }
}

Kiv::Ptr<Node> base() {
  auto root = Kiv::make<Node>("node");
  for (uint32_t i = 0; i < leaves; ++i) root->leafIs(i);
  return root;
}

Platform::MountOptions ordered(bool writable) {
  Platform::MountOptions o;
  o.writable = writable;
  return o;
}

// Flushes and waits for the writes to be answered, in the writer's process.
bool settle(Platform::StateDb& db) {
  auto& redis = dynamic_cast<Platform::RedisStateDb&>(db);
  redis.flushNow();
  return runUntil([&] { return redis.idle(); });
}

// What a reader sees of the node: violations of the writer's order as text.
struct Watch : Node::NotifieeConst {
  struct LeafWatch : Leaf::NotifieeConst {
    Watch* w = nullptr;
    uint32_t last = 0;
    void onWeight() override {
      const uint32_t weight = notifier()->weight();
      if (weight < last)
        w->bad.push_back("leaf " + std::to_string(notifier()->id()) + " went back to " +
                         std::to_string(weight));
      if (w->loaded && weight && weight != w->count)
        w->bad.push_back("leaf weight " + std::to_string(weight) + " seen at count " +
                         std::to_string(w->count));
      last = weight;
      ++w->seen;
    }
  };
  void onCount() override {
    const uint32_t c = notifier()->count();
    if (loaded && c != count + 1)
      bad.push_back("count " + std::to_string(c) + " after " + std::to_string(count));
    count = c;
  }
  void onLeaf(const uint32_t& k) override {
    Kiv::Ptr<Leaf const> leaf = notifier()->leaf(k);
    if (!leaf) {
      watches.erase(k);
      return;
    }
    auto& lw = watches[k];
    if (lw) return;
    lw = Kiv::make<LeafWatch>();
    lw->w = this;
    lw->notifierIs(leaf);
  }
  void onLeafkivImmediate() override {}
  bool loaded = false;
  uint32_t count = 0;
  size_t seen = 0;
  std::vector<std::string> bad;
  std::map<uint32_t, Kiv::Ptr<LeafWatch>> watches;
};

class RedisReaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!server.available()) GTEST_SKIP() << server.why();
  }
  TestSupport::RedisServer server;
};

TEST_F(RedisReaderTest, ReaderInAnotherProcessSeesEveryChangeInOrder) {
  TestSupport::ProcessWriter writer(server.address(), [](Platform::StateDb& db, const auto& step) {
    auto root = base();
    db.mount("proc/node", root, ordered(true));
    if (!db.waitLoaded(10) || !settle(db)) return false;
    for (uint32_t t = 1; t <= turns; ++t) {
      if (!step()) return false;
      turn(*root, t);
      if (!settle(db)) return false;
    }
    return true;
  });
  Platform::epollPollerInstall();
  ASSERT_TRUE(runUntil([&] { return server.command({"HGET", "meta|proc/node", "state"}) == "ready"; }));
  TestSupport::RecordingLogSink logs;
  auto db = Platform::stateDbOpen(server.address());
  auto replica = Kiv::make<Node>("node");
  auto watch = Kiv::make<Watch>();
  watch->notifierIs(replica);
  db->mount("proc/node", replica, ordered(false));
  // The writer changes things while the snapshot of its 20,000 records is being read.
  uint32_t sent = 0;
  while (!db->loaded() && sent < turns) {
    writer.go(10), sent += 10;
    Kiv::activityManager()->runOnce();
  }
  ASSERT_GT(sent, 0u);
  ASSERT_LT(sent, turns) << "the snapshot outlasted the writer";
  watch->loaded = true;
  writer.go(static_cast<int>(turns - sent));
  ASSERT_TRUE(runUntil([&] { return watch->count == turns; }, 60));
  EXPECT_EQ(writer.wait(), 0);
  EXPECT_EQ(watch->bad, std::vector<std::string>{});
  EXPECT_GT(watch->seen, 2 * (turns - sent) - 1);

  auto expected = base();
  for (uint32_t t = 1; t <= turns; ++t) turn(*expected, t);
  EXPECT_EQ(TestSupport::entityDump(*replica), TestSupport::entityDump(*expected));
  // The writer's process is gone: a fresh image reads its tree back as it left it.
  auto reloaded = Kiv::make<Node>("node");
  auto db2 = Platform::stateDbOpen(server.address());
  db2->mount("proc/node", reloaded, ordered(true));
  ASSERT_TRUE(db2->waitLoaded(10));
  EXPECT_EQ(TestSupport::entityDump(*reloaded), TestSupport::entityDump(*expected));
  EXPECT_TRUE(logs.entries.empty()) << logs.lines().front();
}

// The agent turns flood on before it takes groups away, and puts groups back before it turns flood
// off; a reader of the stream must never see it otherwise, whether the steps share a loop turn or not.
TEST_F(RedisReaderTest, StreamReaderNeverSeesAGroupGoWhileFloodIsOff) {
  using namespace Bridging::IgmpSnooping;
  constexpr int cycles = 200, groups = 20;
  auto mac = [](int g) { return Lomax::EthAddr(0x0100, 0x5e00, static_cast<uint16_t>(g)); };
  TestSupport::ProcessWriter writer(server.address(), [&](Platform::StateDb& db, const auto& step) {
    auto status = Kiv::make<Status>("status");
    auto v = status->vlanStatusIs(Bridging::VlanId(10));
    v->useVlanFloodsetIs(true);
    db.mount("proc/status", status, ordered(true));
    if (!db.waitLoaded(10) || !settle(db) || !step()) return false;
    for (int c = 0; c < cycles; ++c) {
      const bool sameTurn = c % 2;
      for (int g = 0; g < groups; ++g)
        v->ethGroupIs(mac(g + c))->groupIntfIs(Lomax::IntfId("Ethernet1"), true);
      if (!sameTurn && !settle(db)) return false;
      v->useVlanFloodsetIs(false);
      if (!settle(db)) return false;
      v->useVlanFloodsetIs(true);
      if (!sameTurn && !settle(db)) return false;
      v->ethGroupDelAll();
      if (!settle(db)) return false;
    }
    return true;
  });
  Platform::epollPollerInstall();
  ASSERT_TRUE(runUntil([&] { return server.command({"HGET", "meta|proc/status", "state"}) == "ready"; }));
  auto db = Platform::stateDbOpen(server.address());
  auto status = Kiv::make<Status>("status");
  db->mount("proc/status", status, ordered(false));
  ASSERT_TRUE(db->waitLoaded(10));
  ASSERT_TRUE(runUntil([&] { return status->vlanStatus(Bridging::VlanId(10)); }));
  struct Order : VlanStatus::NotifieeConst {
    int offs = 0, removals = 0;
    std::vector<std::string> bad;
    void onEthGroup(const Lomax::EthAddr& a) override {
      if (notifier()->ethGroup(a)) return;
      ++removals;
      if (!notifier()->useVlanFloodset()) bad.push_back("a group went while flood was off");
    }
    void onEthGroupkivImmediate() override {}
    void onUseVlanFloodset() override {
      if (notifier()->useVlanFloodset()) return;
      ++offs;
      if (notifier()->ethGroupSize() != groups) bad.push_back("flood went off with groups missing");
    }
  };
  auto order = Kiv::make<Order>();
  order->notifierIs(status->vlanStatus(Bridging::VlanId(10)));
  order->offs = order->removals = 0;
  order->bad.clear();
  writer.go();
  ASSERT_TRUE(runUntil([&] { return order->removals == cycles * groups; }, 60));
  EXPECT_EQ(writer.wait(), 0);
  EXPECT_EQ(order->offs, cycles);
  EXPECT_EQ(order->bad, std::vector<std::string>{});
}

// A tree nobody has written yet is an empty snapshot: loaded at once, so the agent's start does not
// wait on configuration that was never made; the writer that comes later is followed.
TEST_F(RedisReaderTest, ATreeNobodyWroteIsLoadedEmptyAndALaterWriterIsFollowed) {
  Platform::epollPollerInstall();
  auto db = Platform::stateDbOpen(server.address());
  auto replica = Kiv::make<Node>("node");
  replica->leafIs(1);
  db->mount("proc/empty", replica, ordered(false));
  ASSERT_TRUE(db->waitLoaded(10));
  EXPECT_EQ(replica->leafSize(), 0u) << "what the tree does not hold is gone";

  auto writerDb = Platform::stateDbOpen(server.address());
  auto root = Kiv::make<Node>("node");
  root->leafIs(5)->weightIs(3);
  writerDb->mount("proc/empty", root, ordered(true));
  ASSERT_TRUE(writerDb->waitLoaded(10));
  ASSERT_TRUE(settle(*writerDb));
  ASSERT_TRUE(runUntil([&] { return replica->leaf(5) && replica->leaf(5)->weight() == 3; }));
  root->leafIs(6);
  ASSERT_TRUE(settle(*writerDb));
  EXPECT_TRUE(runUntil([&] { return replica->leaf(6); }));
}

}  // namespace
