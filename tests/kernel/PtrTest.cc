// Reference counting and shared strings.
#include <gtest/gtest.h>

#include "kernel/Ptr.h"
#include "kernel/String.h"

namespace {

struct Counted : Kiv::PtrInterface {
  explicit Counted(int* gone) : gone_(gone) {}
  ~Counted() override { ++*gone_; }
  int* gone_;
};

// Taking a raw pointer is spelled out: `this` passed to a function that takes a Ptr, inside a
// constructor, would otherwise destroy the object when the call returns.
static_assert(!std::is_convertible_v<Counted*, Kiv::Ptr<Counted>>);
static_assert(std::is_constructible_v<Kiv::Ptr<Counted>, Counted*>);

TEST(PtrTest, CountsAndDestroysAtZero) {
  int gone = 0;
  {
    Kiv::Ptr<Counted> a = Kiv::make<Counted>(&gone);
    EXPECT_EQ(a->references(), 1u);
    Kiv::Ptr<Counted const> b = a;
    EXPECT_EQ(a->references(), 2u);
    Kiv::Ptr<Counted> c = std::move(a);
    EXPECT_FALSE(a);
    EXPECT_EQ(c->references(), 2u);
    EXPECT_EQ(gone, 0);
  }
  EXPECT_EQ(gone, 1);
}

TEST(PtrTest, FlagsShareTheWordWithoutDisturbingTheCount) {
  int gone = 0;
  Kiv::Ptr<Counted> a = Kiv::make<Counted>(&gone);
  a->hasNotificationActiveIs(true);
  a->kivMarkedForDeletionIs(true);
  Kiv::Ptr<Counted> b = a;
  EXPECT_EQ(a->references(), 2u);
  EXPECT_TRUE(a->hasNotificationActive());
  EXPECT_TRUE(a->kivMarkedForDeletion());
  b = nullptr;
  a->kivMarkedForDeletionIs(false);
  EXPECT_FALSE(a->kivMarkedForDeletion());
  EXPECT_EQ(gone, 0);
  a = nullptr;
  EXPECT_EQ(gone, 1);
}

TEST(StringTest, SharedImmutableHashed) {
  Kiv::String a("Ethernet1"), b(std::string("Ethernet1")), empty;
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_EQ(empty, Kiv::String(""));
  EXPECT_STREQ(empty.charPtr(), "");
  EXPECT_EQ((a + Kiv::String("/2")).stdString(), "Ethernet1/2");
  EXPECT_EQ(a.substr(0, 3).stdString(), "Eth");
  EXPECT_EQ(a.substr(99).stdString(), "");
  EXPECT_LT(Kiv::String("a"), Kiv::String("b"));
  EXPECT_EQ(Kiv::format("%s-%d", "Vlan", 10).stdString(), "Vlan-10");
  EXPECT_EQ(Kiv::format("%300d", 1).size(), 300u);
}

}  // namespace
