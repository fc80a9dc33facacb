// The VLAN status: the protocol times it computes, and a whole membership tree written out and read
// back through the reflection table alone, as a restarted agent gets its status back.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "model/IgmpContextStatus.h"

namespace {

using namespace Bridging::IgmpSnooping;
using Lomax::IntfId;
using Lomax::IpAddr;

TEST(IgmpContextStatusTest, ProtocolTimesPreferTheQuerierThenConfigurationThenDefaults) {
  auto s = Kiv::make<IgmpContextStatus>(Bridging::VlanId(10));
  EXPECT_EQ(s->robustness(), 2u);
  EXPECT_EQ(s->queryInterval(), 125u);
  EXPECT_EQ(s->groupMembershipInterval(), 2 * 125 + 10.0);
  EXPECT_EQ(s->otherQuerierPresentInterval(), 2 * 125 + 5.0);
  EXPECT_EQ(s->restartQueryInterval(), 125 / 4.0);
  s->configuredRobustnessIs(3);
  s->configuredQueryIntervalIs(60);
  s->configuredRestartQueryIntervalIs(5.0);
  EXPECT_EQ(s->robustness(), 3u);
  EXPECT_EQ(s->queryInterval(), 60u);
  EXPECT_EQ(s->restartQueryInterval(), 5.0);
  s->lastQueryRobustnessIs(4);
  s->lastQueryQueryIntervalIs(0x8f);  // exponential form: (0xf | 0x10) << 3 = 248 s
  s->queryResponseIntervalIs(2.0);
  EXPECT_EQ(s->robustness(), 4u);
  EXPECT_EQ(s->queryInterval(), 248u);
  EXPECT_EQ(s->groupMembershipInterval(), 4 * 248 + 2.0);
  EXPECT_EQ(s->otherQuerierPresentInterval(), 4 * 248 + 1.0);
}

// Flattens an entity tree to "path attr = value" lines using nothing but the reflection table.
void dump(const Kiv::Entity& e, const std::string& path, std::map<std::string, std::string>& out) {
  for (const Kiv::AttrInfo& a : e.typeInfo().attrs) {
    if (a.text) {
      out[path + a.name] = a.text(e);
      continue;
    }
    struct Ctx {
      std::string prefix;
      std::map<std::string, std::string>* out;
    } ctx{path + a.name, &out};
    a.forEach(e, &ctx, [](void* c, const std::string& k, const std::string& v, const Kiv::Entity* child) {
      auto* x = static_cast<Ctx*>(c);
      if (child) {
        (*x->out)[x->prefix + "[" + k + "]"] = "";
        dump(*child, x->prefix + "[" + k + "].", *x->out);
      } else {
        (*x->out)[x->prefix + "[" + k + "]"] = v;
      }
    });
  }
}

// Rebuilds a tree from another one's reflection, the way a replica is filled.
void copy(const Kiv::Entity& from, Kiv::Entity& to) {
  for (const Kiv::AttrInfo& a : from.typeInfo().attrs) {
    if (a.text) {
      std::string bin;
      a.binary(from, bin);
      std::string_view in(bin);
      ASSERT_TRUE(a.binaryIs(to, in)) << a.name;
      continue;
    }
    struct Ctx {
      const Kiv::AttrInfo* attr;
      Kiv::Entity* to;
    } ctx{&a, &to};
    a.forEach(from, &ctx, [](void* c, const std::string& k, const std::string& v, const Kiv::Entity* child) {
      auto* x = static_cast<Ctx*>(c);
      if (x->attr->kind == Kiv::AttrKind::child) {
        return;  // pointer children are not made through the generic interface
      }
      ASSERT_TRUE(x->attr->elementIs(*x->to, k, v));
      if (child) copy(*child, *x->attr->childAt(*x->to, k));
    });
  }
}

TEST(IgmpContextStatusTest, MembershipTreeSurvivesAWriteOutAndReadBack) {
  auto s = Kiv::make<IgmpContextStatus>(Bridging::VlanId(10));
  s->confidentIs(true);
  s->latestQueryIs("begin=0 end=0 bytes=01005e");
  s->noQuerierLogInfoIs(NoQuerierLogInfo{IpAddr(10, 0, 0, 1), IntfId("Ethernet1"), IpAddr(239, 1, 1, 1)});
  s->querierNotPresentExpireIs(1500.25);
  auto m = s->groupIs(IpAddr(232, 1, 1, 1))->intfIs(IntfId("Ethernet1"))->membershipIs(IpAddr(10, 0, 0, 1));
  m->filterModeIs(Gmp::Igmp::filterModeInclude);
  m->igmpVersionIs(Gmp::Igmp::igmpVersion3);
  m->expireIs(1260.5);
  m->sourceIs(IpAddr(1, 1, 1, 1))->sourceAgeIs(1);
  auto moved = s->groupIs(IpAddr(232, 1, 1, 1))->intfIs(IntfId("Port-Channel1"));
  moved->oldIntfIs(IpAddr(10, 0, 0, 2), IntfId("Ethernet2"));
  moved->oldIntfRefCountIs(IntfId("Ethernet2"), 1);
  auto r = s->routerIs(IpAddr(10, 0, 0, 254));
  r->routerTypeIs(routerTypePim);
  r->intfIs(IntfId("Ethernet3"));
  s->groupListIs(IpAddr(232, 1, 1, 1), true);

  auto back = Kiv::make<IgmpContextStatus>(Bridging::VlanId(10));
  copy(*s, *back);
  std::map<std::string, std::string> a, b;
  dump(*s, "", a);
  dump(*back, "", b);
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.at("group[232.1.1.1].intf[Ethernet1].membership[10.0.0.1].expire"), "1260.5");
  EXPECT_EQ(a.at("group[232.1.1.1].intf[Port-Channel1].oldIntf[10.0.0.2]"), "Ethernet2");
  EXPECT_EQ(back->noQuerierLogInfo(), s->noQuerierLogInfo());
}

}  // namespace
