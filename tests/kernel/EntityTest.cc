// Entities: compare-then-notify setters, delivery order and lifetime, the attach sweep, child
// creation rules, and the reflection table.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kernel/Exception.h"
#include "tests/kernel/TestEntities.h"

namespace {

using KivTest::Leaf;
using KivTest::Node;

// Records every stub call as text.
struct Recorder : Node::NotifieeConst {
  std::vector<std::string> calls;
  void onCount() override { calls.push_back("count"); }
  void onLabel() override { calls.push_back("label"); }
  void onBest() override { calls.push_back("best"); }
  void onLeaf(const uint32_t& k) override { calls.push_back("leaf " + std::to_string(k)); }
  void onLeafkivImmediate() override { calls.push_back("leaf*"); }
  void onSeen(const uint32_t& k) override { calls.push_back("seen " + std::to_string(k)); }
  void onSeenkivImmediate() override { calls.push_back("seen*"); }
};

TEST(EntityTest, EqualWritesNotifyNobodyAndChangesNotifyInsideTheSetter) {
  auto node = Kiv::make<Node>("n");
  auto rec = Kiv::make<Recorder>();
  rec->notifierIs(node);
  rec->calls.clear();

  node->countIs(0);
  node->labelIs("");
  EXPECT_TRUE(rec->calls.empty());
  node->countIs(3);
  ASSERT_EQ(rec->calls.size(), 1u);
  node->countIs(3);
  node->rxInc(2);
  node->rxInc(0);
  EXPECT_EQ(node->rx(), 2u);
  node->seenIs(7, 1.5);
  node->seenIs(7, 1.5);
  node->seenDel(8);
  node->seenDel(7);
  node->seenDelAll();
  EXPECT_EQ(rec->calls, (std::vector<std::string>{"count", "seen 7", "seen 7"}));
}

TEST(EntityTest, AttachSweepRunsKeylessStubsInDeclaredOrderOnce) {
  auto node = Kiv::make<Node>("n");
  node->countIs(1);
  node->leafIs(4);
  auto rec = Kiv::make<Recorder>();
  rec->notifierIs(node);
  EXPECT_EQ(rec->calls, (std::vector<std::string>{"count", "label", "best", "leaf*", "seen*"}));
  rec->calls.clear();
  rec->notifierIs(node);  // same notifier: nothing
  rec->notifierIs(nullptr);
  node->countIs(2);
  EXPECT_TRUE(rec->calls.empty());
}

// A reactor that declares its interest is reached only for the attributes whose stubs it overrides,
// keyed or not; a generic observer and an undeclared reactor still see everything.
TEST(EntityTest, DeclaredInterestPassesOverOtherAttributes) {
  constexpr uint64_t interest = Node::NotifieeConst::kivInterestOf<Recorder>();
  static_assert(interest == (1u << Node::kivAttr_count | 1u << Node::kivAttr_label |
                             1u << Node::kivAttr_best | 1u << Node::kivAttr_leaf | 1u << Node::kivAttr_seen));
  struct Generic : Node::NotifieeConst {
    std::vector<uint16_t> ids;
    void kivOnAttr(uint16_t id, const void*) override { ids.push_back(id); }
  };
  auto node = Kiv::make<Node>("n");
  auto rec = Kiv::make<Recorder>();
  rec->kivInterestIs(interest);
  rec->notifierIs(node);
  auto generic = Kiv::make<Generic>();
  generic->kivInterestIs(Node::NotifieeConst::kivInterestOf<Generic>());  // overrides no stub
  generic->notifierIs(node);
  auto plain = Kiv::make<Generic>();
  plain->notifierIs(node);
  rec->calls.clear();

  node->rxInc(1);
  node->expireIs(5.0);
  EXPECT_TRUE(rec->calls.empty());
  node->countIs(2);
  node->leafIs(3);
  EXPECT_EQ(rec->calls, (std::vector<std::string>{"count", "leaf 3"}));
  EXPECT_TRUE(generic->ids.empty());
  EXPECT_EQ(plain->ids, (std::vector<uint16_t>{Node::kivAttr_rx, Node::kivAttr_expire, Node::kivAttr_count,
                                               Node::kivAttr_leaf}));
}

TEST(EntityTest, ChildCollectionsCreateOnceAndNotifyPerKey) {
  auto node = Kiv::make<Node>("n");
  auto rec = Kiv::make<Recorder>();
  rec->notifierIs(node);
  rec->calls.clear();

  Kiv::Ptr<Leaf> a = node->leafIs(1);
  EXPECT_EQ(node->leafIs(1), a);
  EXPECT_EQ(a->parent(), node.ptr());
  EXPECT_EQ(a->id(), 1u);
  EXPECT_EQ(a->name().stdString(), "1");
  EXPECT_FALSE(node->leaf(2));
  node->leafIs(2);
  Kiv::Ptr<Leaf> gone = node->leafDel(1);
  EXPECT_EQ(gone, a);
  EXPECT_EQ(gone->parent(), nullptr);
  EXPECT_FALSE(node->leafDel(1));
  node->leafDelAll();
  EXPECT_EQ(rec->calls, (std::vector<std::string>{"leaf 1", "leaf 2", "leaf 1", "leaf*"}));
  EXPECT_EQ(node->leafSize(), 0u);
}

TEST(EntityTest, PointerChildIsKeptForSameArgumentsAndReplacedForOthers) {
  auto node = Kiv::make<Node>("n");
  auto rec = Kiv::make<Recorder>();
  rec->notifierIs(node);
  rec->calls.clear();
  auto b = node->bestIs(5u);
  EXPECT_EQ(node->bestIs(5u), b);
  auto c = node->bestIs(6u);
  EXPECT_NE(c, b);
  EXPECT_EQ(b->parent(), nullptr);
  EXPECT_EQ(node->bestDel(), c);
  EXPECT_FALSE(node->bestDel());
  EXPECT_EQ(rec->calls, (std::vector<std::string>{"best", "best", "best"}));
}

// A handler that detaches others, attaches new ones and drops the notifier's last reference.
struct Meddler : Node::NotifieeConst {
  std::vector<Kiv::Ptr<Recorder>>* victims = nullptr;
  Kiv::Ptr<Node>* owner = nullptr;
  int calls = 0;
  void onCount() override {
    if (!initialised) return;
    ++calls;
    for (auto& v : *victims) v->notifierIs(nullptr);
    auto late = Kiv::make<Recorder>();
    late->notifierIs(*owner);
    *owner = nullptr;  // the list's entity now lives only through the delivery in progress
  }
  bool initialised = false;
};

TEST(EntityTest, DeliverySurvivesHandlersThatRewireTheListOrDropTheNotifier) {
  auto node = Kiv::make<Node>("n");
  std::vector<Kiv::Ptr<Recorder>> victims{Kiv::make<Recorder>(), Kiv::make<Recorder>()};
  auto first = Kiv::make<Recorder>();
  first->notifierIs(node);
  auto meddler = Kiv::make<Meddler>();
  meddler->victims = &victims;
  meddler->owner = &node;
  meddler->notifierIs(node);
  meddler->initialised = true;
  for (auto& v : victims) v->notifierIs(node);
  for (auto& v : victims) v->calls.clear();
  first->calls.clear();

  Node* raw = node.ptr();
  raw->countIs(9);
  EXPECT_EQ(meddler->calls, 1);
  EXPECT_EQ(first->calls.size(), 1u);
  for (auto& v : victims) EXPECT_TRUE(v->calls.empty());
  // Only the notifiees' holds keep it now; dropping them ends it.
  EXPECT_EQ(raw->references(), 2u);
  first->notifierIs(nullptr);
  meddler->notifierIs(nullptr);
}

// A state machine with an embedded reactor: the zombie flag of the machine silences the reactor.
struct Machine : Kiv::PtrInterface {
  struct KivNode : Node::NotifieeConst {
    explicit KivNode(Machine* m) : Node::NotifieeConst(m) {}
    void onCount() override { static_cast<Machine*>(kivOwner())->handleCount(); }
  };
  Machine() : reactor(this) {}
  void handleCount() {
    ++handled;
    if (zombifyOnCall) kivMarkedForDeletionIs(true);
  }
  KivNode reactor;
  int handled = 0;
  bool zombifyOnCall = false;
};

TEST(EntityTest, ZombieReactorsNeverReachTheirMachine) {
  auto node = Kiv::make<Node>("n");
  // The first notifiee makes the second machine a zombie while the delivery is in progress.
  struct Killer : Node::NotifieeConst {
    Machine* target = nullptr;
    void onCount() override {
      if (target) target->kivMarkedForDeletionIs(true);
    }
  };
  auto killer = Kiv::make<Killer>();
  killer->notifierIs(node);
  auto m = Kiv::make<Machine>();
  auto m2 = Kiv::make<Machine>();
  m->reactor.notifierIs(node);  // the attach sweep: handleCount once
  m2->reactor.notifierIs(node);
  EXPECT_EQ(m->handled, 1);
  killer->target = m2.ptr();
  node->countIs(1);
  EXPECT_EQ(m->handled, 2);
  EXPECT_EQ(m2->handled, 1);
  m->kivMarkedForDeletionIs(true);
  node->countIs(2);
  EXPECT_EQ(m->handled, 2);
  // A zombie attached to a new notifier does not sweep either.
  auto other = Kiv::make<Node>("o");
  m->reactor.notifierIs(other);
  EXPECT_EQ(m->handled, 2);
}

TEST(EntityTest, MachineDestroyedByItsOwnHandlerFinishesSafely) {
  auto node = Kiv::make<Node>("n");
  struct Holder {
    Kiv::Ptr<Machine> m;
  } holder{Kiv::make<Machine>()};
  struct Dropper : Node::NotifieeConst {
    Holder* h = nullptr;
    void onCount() override {
      if (h) h->m = nullptr;
    }
  };
  holder.m->reactor.notifierIs(node);
  auto dropper = Kiv::make<Dropper>();
  dropper->notifierIs(node);
  dropper->h = &holder;
  node->countIs(5);  // the machine goes while the list is being visited
  EXPECT_FALSE(holder.m);
  node->countIs(6);
}

// What a handler throws goes to its notifiee's hook and the delivery goes on; with no hook the process
// ends with the exception's text and the handler's type, not a silent std::terminate.
struct Thrower : Node::NotifieeConst {
  void onCount() override { throw Kiv::RangeException("count out of range"); }
};

TEST(EntityTest, AHandlerThatThrowsReachesTheHookOrEndsTheProcessNamingItsSite) {
  auto node = Kiv::make<Node>("n");
  struct Caught : Thrower {
    std::vector<std::string> seen;
    void onNotificationException(std::exception_ptr e) override {
      try {
        std::rethrow_exception(e);
      } catch (const Kiv::Exception& x) {
        seen.push_back(x.what());
      }
    }
  };
  auto caught = Kiv::make<Caught>();
  caught->notifierIs(node);  // the attach sweep throws too
  ASSERT_EQ(caught->seen.size(), 1u);
  caught->seen.clear();
  auto rec = Kiv::make<Recorder>();
  rec->notifierIs(node);
  rec->calls.clear();
  node->countIs(1);
  EXPECT_EQ(caught->seen, std::vector<std::string>{"count out of range"});
  EXPECT_EQ(rec->calls, std::vector<std::string>{"count"});

  auto thrower = Kiv::make<Thrower>();
  EXPECT_DEATH(thrower->notifierIs(node),
               "Unhandled exception in notification handler .*Thrower: count out of range");
}

TEST(EntityTest, ReflectionReadsAndWritesEveryKind) {
  const Kiv::TypeInfo& t = Node::kivTypeInfo();
  EXPECT_STREQ(t.name, "Node");
  ASSERT_EQ(t.attrs.size(), 8u);
  auto node = Kiv::make<Node>("n");
  auto rec = Kiv::make<Recorder>();
  rec->notifierIs(node);
  rec->calls.clear();

  EXPECT_TRUE(t.attr("count")->textIs(*node, "42"));
  EXPECT_FALSE(t.attr("count")->textIs(*node, "-1"));
  EXPECT_EQ(node->count(), 42u);
  EXPECT_EQ(t.attr("expire")->text(*node), "inf");
  EXPECT_EQ(t.attr("colour")->kind, Kiv::AttrKind::scalar);
  EXPECT_EQ(t.attr("rx")->kind, Kiv::AttrKind::counter);
  EXPECT_TRUE(t.attr("leaf")->elementIs(*node, "3", ""));
  ASSERT_TRUE(node->leaf(3));
  Kiv::Entity* leaf = t.attr("leaf")->childAt(*node, "3");
  ASSERT_EQ(leaf, node->leaf(3).ptr());
  EXPECT_TRUE(leaf->typeInfo().attr("tag")->elementIs(*leaf, "x", "true"));
  EXPECT_TRUE(node->leaf(3)->tag("x"));
  EXPECT_TRUE(t.attr("seen")->elementIs(*node, "9", "2.5"));

  std::string binary;
  t.attr("label")->textIs(*node, "hello");
  t.attr("label")->binary(*node, binary);
  auto copy = Kiv::make<Node>("copy");
  std::string_view in(binary);
  EXPECT_TRUE(t.attr("label")->binaryIs(*copy, in));
  EXPECT_EQ(copy->label().stdString(), "hello");
  EXPECT_TRUE(in.empty());

  std::vector<std::string> seen;
  t.attr("seen")->forEach(*node, &seen,
                          [](void* ctx, const std::string& k, const std::string& v, const Kiv::Entity*) {
                            static_cast<std::vector<std::string>*>(ctx)->push_back(k + "=" + v);
                          });
  EXPECT_EQ(seen, (std::vector<std::string>{"9=2.5"}));
  EXPECT_EQ(rec->calls, (std::vector<std::string>{"count", "leaf 3", "seen 9", "label"}));
}

}  // namespace
