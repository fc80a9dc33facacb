// Interface identifiers: name families, short names, kinds and parts, ordering, the agent's own kinds.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <vector>

#include "net/IntfId.h"
#include "net/KindIntfId.h"

namespace {

using Lomax::GenericIntfId;
using Lomax::IntfId;

IntfId id(const char* name) { return IntfId(Kiv::String(name)); }

TEST(IntfIdTest, NamesRoundTripAndShortenOnlySwitchFamilies) {
  struct Case {
    const char* name;
    const char* shortName;
  } cases[] = {
      {"Ethernet1", "Et1"},
      {"Ethernet1/2", "Et1/2"},
      {"Port-Channel5", "Po5"},
      {"Vlan10", "Vl10"},
      {"Switch", "Switch"},
      {"Cpu", "Cpu"},
      {"eth1", "eth1"},
      {"swp3", "swp3"},
      {"bond0", "bond0"},
      {"veth-h1", "veth-h1"},
      {"Ethernet01", "Ethernet01"},
      {"Vlan1/2", "Vlan1/2"},
      {"Ethernet", "Ethernet"},
  };
  for (const Case& c : cases) {
    IntfId i = id(c.name);
    EXPECT_EQ(i.stringValue().stdString(), c.name);
    EXPECT_EQ(i.shortName().stdString(), c.shortName) << c.name;
    EXPECT_EQ(i, id(c.name));
    EXPECT_EQ(i.hash(), id(c.name).hash());
    EXPECT_TRUE(i);
  }
  std::ostringstream os;
  os << id("Ethernet3/1");
  EXPECT_EQ(os.str(), "Ethernet3/1");
}

TEST(IntfIdTest, EmptyIdIsTheDefaultAndHasTheEmptyName) {
  EXPECT_FALSE(Lomax::emptyIntfId);
  EXPECT_EQ(id(""), Lomax::emptyIntfId);
  EXPECT_EQ(IntfId().value(), 0u);
  EXPECT_EQ(Lomax::emptyIntfId.stringValue().stdString(), "");
  EXPECT_EQ(Lomax::switchIntfId().stringValue().stdString(), "Switch");
  EXPECT_EQ(Lomax::cpuIntfId().stringValue().stdString(), "Cpu");
  EXPECT_NE(Lomax::switchIntfId(), Lomax::cpuIntfId());
}

TEST(IntfIdTest, KindsAndPartsOfTheStructuredView) {
  IntfId e = id("Ethernet3/17/2");
  EXPECT_EQ(GenericIntfId::typeId(e), 1);
  EXPECT_EQ(GenericIntfId::subType(e), 0);
  EXPECT_EQ(GenericIntfId::parts(e), 3);
  EXPECT_EQ(GenericIntfId::part(e, 0), 3u);
  EXPECT_EQ(GenericIntfId::part(e, 1), 17u);
  EXPECT_EQ(GenericIntfId::part(e, 2), 2u);
  EXPECT_EQ(GenericIntfId::typeId(id("Vlan4094")), 3);
  EXPECT_EQ(GenericIntfId::typeId(id("swp3")), Lomax::otherIntfIdType);
  EXPECT_EQ(GenericIntfId::parts(id("swp3")), 0);
  // Numbers too large for their part fall back to a plain name.
  EXPECT_EQ(GenericIntfId::typeId(id("Ethernet16384")), Lomax::otherIntfIdType);
  EXPECT_EQ(GenericIntfId::typeId(id("Ethernet16383")), 1);

  IntfId p = id("Ethernet7");
  GenericIntfId::partIs(p, 0, 8);
  EXPECT_EQ(p, id("Ethernet8"));
  GenericIntfId::partIs(p, 1, 4);
  EXPECT_EQ(p, id("Ethernet8/4"));
  IntfId po = id("Port-Channel12");
  GenericIntfId::typeIdIs(po, 3);
  EXPECT_EQ(po, id("Vlan12"));
}

TEST(IntfIdTest, OrdersByKindThenPartsNumericallyThenName) {
  std::vector<IntfId> ids = {id("eth10"), id("Vlan2"),     id("Ethernet10"),    id("Ethernet2/1"),
                             id("eth2"),  id("Ethernet2"), id("Port-Channel1"), id("Ethernet9")};
  std::sort(ids.begin(), ids.end());
  std::vector<std::string> names;
  for (IntfId i : ids) names.push_back(i.stringValue().stdString());
  EXPECT_EQ(names, (std::vector<std::string>{"Ethernet2", "Ethernet2/1", "Ethernet9", "Ethernet10",
                                             "Port-Channel1", "Vlan2", "eth10", "eth2"}));
  EXPECT_FALSE(id("eth2") < id("eth2"));
  EXPECT_TRUE(Lomax::emptyIntfId < id("Ethernet1"));
}

TEST(IntfIdTest, AgentKindsOwnTheirNumbers) {
  Lomax::SwitchIntfId sw(Kiv::String("Switch"));
  Lomax::L2QuerierLinkIntfId ql(Kiv::String("L2QuerierLink"));
  EXPECT_TRUE(Lomax::isSwitchIntfId(sw));
  EXPECT_FALSE(Lomax::isL2QuerierLinkIntfId(sw));
  EXPECT_TRUE(Lomax::isL2QuerierLinkIntfId(ql));
  EXPECT_EQ(GenericIntfId::typeId(ql), Lomax::l2QuerierLinkIntfIdType);
  EXPECT_EQ(sw.intfId(), Lomax::switchIntfId());
  // No kind check at construction: another family's name gives that family's value.
  Lomax::SwitchIntfId other(Kiv::String("Ethernet4"));
  EXPECT_FALSE(Lomax::isSwitchIntfId(other));
  EXPECT_TRUE(!Lomax::SwitchIntfId(Kiv::String("")));
  EXPECT_FALSE(!sw);
  for (const char* n : {"Switch1", "Switchx", "eth11", "Cpu0", "L2QuerierLinkA"}) {
    EXPECT_FALSE(Lomax::isSwitchIntfId(id(n)) || Lomax::isL2QuerierLinkIntfId(id(n))) << n;
  }
  EXPECT_TRUE(Lomax::isL2QuerierLinkIntfId(id("L2QuerierLink2")));
}

TEST(IntfIdTest, TextAndBinaryFormsCarryTheName) {
  IntfId e = id("Ethernet5/1");
  std::string bin;
  Kiv::ValueTraits<IntfId>::binary(bin, e);
  std::string_view in(bin);
  IntfId back;
  ASSERT_TRUE(Kiv::ValueTraits<IntfId>::fromBinary(in, back));
  EXPECT_EQ(back, e);
  EXPECT_TRUE(in.empty());
  EXPECT_EQ(Kiv::ValueTraits<IntfId>::text(e), "Ethernet5/1");
  Lomax::SwitchIntfId sw;
  ASSERT_TRUE(Kiv::ValueTraits<Lomax::SwitchIntfId>::fromText("Switch", sw));
  EXPECT_EQ(sw.intfId(), Lomax::switchIntfId());
  std::string_view truncated(bin.data(), bin.size() - 1);
  EXPECT_FALSE(Kiv::ValueTraits<IntfId>::fromBinary(truncated, back));
}

}  // namespace
