// Child state machines and directories: reuse with equal arguments, the name-in-use refusal, the
// zombie sweep down a tree, and directory entries.
#include <gtest/gtest.h>

#include "kernel/Dir.h"
#include "kernel/StateMachine.h"
#include "tests/kernel/TestEntities.h"

// A read-only directory hands out read-only entries.
static_assert(std::is_same_v<decltype(std::declval<const Kiv::Dir&>().entityRef(Kiv::Name("x"))),
                             Kiv::Ptr<Kiv::Entity const>>);
static_assert(std::is_same_v<decltype(std::declval<const Kiv::Dir&>().entityRefPath("x")),
                             Kiv::Ptr<Kiv::Entity const>>);

namespace {

struct Child : Kiv::StateMachine, Kiv::HashLink<Child> {
  Child(uint16_t vlan, Kiv::String topoVlan) : vlan_(vlan), topoVlan_(topoVlan) {}
  const uint16_t& kivKey() const { return vlan_; }
  void kivCheckParams(const Kiv::String& topoVlan) const { Kiv::checkParam("topoVlan", topoVlan_, topoVlan); }
  uint16_t vlan_;
  Kiv::String topoVlan_;
};

struct Parent : Kiv::StateMachine {
  Kiv::SmMap<uint16_t, Child> child;
  void kivZombieChildren(bool on) override { Kiv::smZombieAll(child, on); }
};

TEST(StateMachineTest, ChildIsReusedForEqualArgumentsAndRefusedForOthers) {
  auto p = Kiv::make<Parent>();
  auto a = Kiv::smIs(p->child, *p, uint16_t(10), Kiv::String("Vlan10"));
  EXPECT_EQ(Kiv::smIs(p->child, *p, uint16_t(10), Kiv::String("Vlan10")), a);
  try {
    Kiv::smIs(p->child, *p, uint16_t(10), Kiv::String("Vlan11"));
    FAIL();
  } catch (const Kiv::NameInUseException& e) {
    EXPECT_STREQ(
        e.what(),
        "Reinstantiating the pointer interface where constructor parameter attribute _topoVlan has a "
        "different value of Vlan11 than the current value of Vlan10 not allowed");
  }
}

TEST(StateMachineTest, ZombieFlagsRunDownTheTreeAndNewChildrenInheritThem) {
  auto p = Kiv::make<Parent>();
  auto a = Kiv::smIs(p->child, *p, uint16_t(1), Kiv::String("x"));
  p->kivDoZombieReactors(true);
  EXPECT_TRUE(a->kivMarkedForDeletion());
  auto b = Kiv::smIs(p->child, *p, uint16_t(2), Kiv::String("y"));
  EXPECT_TRUE(b->kivMarkedForDeletion());
  p->kivDoZombieReactors(false);
  EXPECT_FALSE(a->kivMarkedForDeletion());
  auto gone = Kiv::smDel(p->child, uint16_t(1));
  EXPECT_TRUE(gone->kivMarkedForDeletion());
  EXPECT_EQ(p->child.size(), 1u);
}

TEST(StateMachineTest, NullMutatorParameterText) {
  try {
    Kiv::throwNullMutatorParameter("floodControl", "IgmpShim::GlueSm::floodControl");
    FAIL();
  } catch (const Kiv::Exception& e) {
    EXPECT_STREQ(e.what(),
                 "null _floodControl parameter to mutator for IgmpShim::GlueSm::floodControl not allowed");
  }
}

TEST(DirTest, EntriesSubdirsAndPaths) {
  auto root = Kiv::make<Kiv::Dir>("root");
  auto sub = root->subdirIs("bridging");
  auto node = sub->entryIs<KivTest::Node>("status");
  EXPECT_EQ(sub->entryIs<KivTest::Node>("status"), node);
  EXPECT_THROW(sub->entryIs<Kiv::Dir>("status"), Kiv::NameInUseException);
  EXPECT_EQ(root->entityRefPath("bridging/status"), node);
  EXPECT_FALSE(root->entityRefPath("bridging/none"));
  EXPECT_EQ(node->parent(), sub.ptr());
  EXPECT_EQ(sub->entryDel("status"), node);
  EXPECT_EQ(node->parent(), nullptr);
  EXPECT_TRUE(Kiv::globalDir());
  EXPECT_EQ(Kiv::globalDir(), Kiv::globalDir());
}

}  // namespace
