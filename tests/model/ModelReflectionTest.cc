// The reflection table is total: every entity type of the model, with every attribute kind including
// pointer children, written out through the table's text forms and read back into fresh trees through
// the table alone, equals the original. This is the path that replication and restart take.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "model/IgmpContextStatus.h"
#include "tests/support/EntityDump.h"
#include "tests/support/ModelSample.h"

namespace {

using Kiv::AttrInfo;
using Kiv::AttrKind;

// What a copy met: the text of each scalar in a fresh entity, and the (type, attribute) pairs that
// held something other than that.
struct Coverage {
  std::map<std::string, std::string> defaults;
  std::set<std::string> seen, set;
  void fresh(const Kiv::Entity& e) {
    for (const AttrInfo& a : e.typeInfo().attrs) {
      if (a.text) defaults.emplace(std::string(e.typeInfo().name) + "." + a.name, a.text(e));
    }
  }
};

void copyTree(const Kiv::Entity& from, Kiv::Entity& to, Coverage& cov) {
  for (const AttrInfo& a : from.typeInfo().attrs) {
    const std::string id = std::string(from.typeInfo().name) + "." + a.name;
    cov.seen.insert(id);
    if (a.text) {
      const std::string text = a.text(from);
      if (text != cov.defaults.at(id)) cov.set.insert(id);
      ASSERT_TRUE(a.textIs(to, text)) << id << " " << text;
      continue;
    }
    struct Ctx {
      const AttrInfo* attr;
      Kiv::Entity* to;
      Coverage* cov;
      std::string id;
    } ctx{&a, &to, &cov, id};
    a.forEach(from, &ctx, [](void* c, const std::string& k, const std::string& v, const Kiv::Entity* child) {
      auto* x = static_cast<Ctx*>(c);
      x->cov->set.insert(x->id);
      ASSERT_TRUE(x->attr->elementIs(*x->to, k, v)) << x->id << "[" << k << "]";
      if (!child) return;
      Kiv::Entity* made = x->attr->childAt(*x->to, k);
      ASSERT_NE(made, nullptr) << x->id << "[" << k << "]";
      x->cov->fresh(*made);
      copyTree(*child, *made, *x->cov);
    });
  }
}

TEST(ModelReflectionTest, EveryEntityOfTheModelSurvivesAWriteOutAndReadBack) {
  auto sample = TestSupport::modelSample();
  auto fresh = TestSupport::modelRoots();
  ASSERT_EQ(sample.size(), fresh.size());
  Coverage cov;
  for (size_t i = 0; i < sample.size(); ++i) {
    cov.fresh(*fresh[i]);
    copyTree(*sample[i], *fresh[i], cov);
    EXPECT_EQ(TestSupport::entityDump(*fresh[i]), TestSupport::entityDump(*sample[i]))
        << sample[i]->typeInfo().name;
  }
  // The sample leaves no attribute of any type it reaches at its default, so a kind the table could
  // not carry would show above.
  std::set<std::string> unset;
  for (const std::string& id : cov.seen) {
    if (!cov.set.count(id)) unset.insert(id);
  }
  EXPECT_EQ(unset, std::set<std::string>{});
}

// A pointer child written with another argument replaces the child; deleting it leaves none. Both
// notify, as the typed mutators do.
TEST(ModelReflectionTest, PointerChildIsCreatedReplacedAndDeletedThroughTheTable) {
  using namespace Bridging::IgmpSnooping;
  auto s = Kiv::make<IgmpContextStatus>(Bridging::VlanId(10));
  struct Querier : IgmpContextStatus::NotifieeConst {
    int calls = 0;
    void onQuerier() override { ++calls; }
  };
  auto watch = Kiv::make<Querier>();
  watch->notifierIs(s);
  watch->calls = 0;
  const AttrInfo& q = *s->typeInfo().attr("querier");
  EXPECT_EQ(q.kind, AttrKind::child);
  EXPECT_FALSE(q.elementIs(*s, "not an address", ""));
  ASSERT_TRUE(q.elementIs(*s, "10.0.0.1", ""));
  Kiv::Ptr<MulticastRouter> first = s->querier();
  ASSERT_TRUE(first);
  EXPECT_EQ(q.childAt(*s, "10.0.0.1"), first.ptr());
  EXPECT_EQ(q.childAt(*s, "10.0.0.2"), nullptr);
  ASSERT_TRUE(q.elementIs(*s, "10.0.0.1", ""));
  EXPECT_EQ(s->querier(), first);
  ASSERT_TRUE(q.elementIs(*s, "10.0.0.2", ""));
  EXPECT_EQ(s->querier()->addr(), Lomax::IpAddr(10, 0, 0, 2));
  EXPECT_EQ(first->parent(), nullptr);
  ASSERT_TRUE(q.elementDel(*s, ""));
  EXPECT_FALSE(s->querier());
  EXPECT_EQ(watch->calls, 3);
}

}  // namespace
