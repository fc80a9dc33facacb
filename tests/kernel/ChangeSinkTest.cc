// Tracked trees: a sink hears every change, link and unlink under its root, before any reactor;
// queued scalars are skipped; nothing outside the tree or left behind by it reaches the sink.
#include "kernel/ChangeSink.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/kernel/TestEntities.h"

namespace {

using KivTest::Leaf;
using KivTest::Node;

struct Log : Kiv::ChangeSink {
  std::vector<std::string> calls;
  std::string at(const Kiv::Entity& e) { return e.typeInfo().name + std::string(":") + e.name().stdString(); }
  void onChange(Kiv::Entity& e, uint16_t id, const void* key) override {
    const Kiv::AttrInfo& a = e.typeInfo().attrs[id];
    calls.push_back(at(e) + "." + a.name + (key ? "[" + a.keyText(key) + "]" : ""));
  }
  void onAttach(Kiv::Entity& e) override { calls.push_back("+" + at(e)); }
  void onDetach(Kiv::Entity& e) override {
    calls.push_back("-" + at(e) + (e.parent() ? " from " + at(*e.parent()) : ""));
  }
};

TEST(ChangeSinkTest, SinkHearsChangesLinksAndUnlinksOfItsTreeFirst) {
  Log log;
  auto root = Kiv::make<Node>("root");
  auto early = root->leafIs(1);
  early->tagIs("a", true);
  Kiv::changeSinkIs(*root, &log);
  EXPECT_EQ(Kiv::changeSinkOf(*early), &log);
  // A reactor that makes a change of its own: the sink hears the cause before the effect.
  struct Echo : Node::NotifieeConst {
    Node* node = nullptr;
    void onCount() override {
      if (node) node->labelIs("echo");
    }
  };
  auto echo = Kiv::make<Echo>();
  echo->notifierIs(root);
  echo->node = root.ptr();
  log.calls.clear();

  root->countIs(1);
  early->tagIs("b", true);
  auto late = root->leafIs(2);
  late->weightIs(5);
  root->bestIs(7u);
  root->leafDel(1);
  early->weightIs(9);  // no longer in the tree
  EXPECT_EQ(log.calls,
            (std::vector<std::string>{"Node:root.count", "Node:root.label", "Leaf:1.tag[b]", "+Leaf:2",
                                      "Node:root.leaf[2]", "Leaf:2.weight", "+Leaf:7", "Node:root.best",
                                      "-Leaf:1 from Node:root", "Node:root.leaf[1]"}));
  echo->notifierIs(nullptr);
}

TEST(ChangeSinkTest, QueuedScalarsAreSkippedButElementsAndWholeCollectionsAreNot) {
  Log log;
  auto root = Kiv::make<Node>("root");
  auto leaf = root->leafIs(1);
  Kiv::changeSinkIs(*root, &log);
  leaf->kivTrackIs(leaf->kivTrack() | Kiv::Entity::trackQueued);
  leaf->weightIs(1);
  leaf->hitsInc(1);
  leaf->tagIs("x", true);
  leaf->tagDelAll();
  EXPECT_EQ(log.calls, (std::vector<std::string>{"Leaf:1.tag[x]", "Leaf:1.tag"}));
}

TEST(ChangeSinkTest, StoppingLeavesTheTreeUntrackedAndOtherTreesAlone) {
  Log log, otherLog;
  auto root = Kiv::make<Node>("root");
  auto other = Kiv::make<Node>("other");
  auto leaf = root->leafIs(1);
  Kiv::changeSinkIs(*root, &log);
  Kiv::changeSinkIs(*other, &otherLog);
  other->countIs(1);
  Kiv::changeSinkIs(*root, nullptr);
  EXPECT_EQ(leaf->kivTrack(), 0);
  EXPECT_EQ(Kiv::changeSinkOf(*leaf), nullptr);
  leaf->weightIs(3);
  root->leafIs(2);
  EXPECT_TRUE(log.calls.empty());
  EXPECT_EQ(otherLog.calls, std::vector<std::string>{"Node:other.count"});
  Kiv::changeSinkIs(*other, nullptr);
}

}  // namespace
