// Group records against the membership tree: each record type in each state, the filter profile,
// the group limit and its logs, and the shortened version 3 report that travels on.
#include <gtest/gtest.h>

#include "net/IgmpV3Report.h"
#include "tests/core/CoreHarness.h"

namespace CoreTest {
namespace {

using Gmp::Igmp::IgmpGroupRecord;
using Gmp::Igmp::RecordType;
using Gmp::Igmp::SourceList;

class CoreSmReportsTest : public ::testing::Test, public CoreHarness {
 protected:
  void SetUp() override { startCore(); }

  // Sends one v3 report from reporter on Ethernet1 with one record.
  void v3(RecordType type, const char* group, std::vector<const char*> sources = {},
          const char* reporter = "10.0.0.1") {
    std::vector<IpAddr> addrs;
    for (const char* s : sources) addrs.push_back(ip(s));
    IgmpGroupRecord rec(type, ip(group), SourceList(addrs));
    rx("Ethernet1", host(reporter).igmpV3Report(std::span(&rec, 1)));
  }
  Kiv::Ptr<IgmpMembership> m(const char* group = "232.1.1.1") const {
    return membership(group, "Ethernet1", "10.0.0.1");
  }
  std::vector<std::string> sources(const char* group = "232.1.1.1") const {
    std::vector<std::string> out;
    if (auto mm = m(group)) {
      for (auto& s : mm->sourceIter()) out.push_back(s.key().stringValue().stdString());
    }
    std::sort(out.begin(), out.end());
    return out;
  }
  TestSupport::RecordingLogSink logs;
};

TEST_F(CoreSmReportsTest, NoInfoStateStartsOnlyWhatAsksForTraffic) {
  v3(Gmp::Igmp::recordTypeChangeToInclude, "232.1.1.1");  // leave of a group not known: nothing made
  v3(Gmp::Igmp::recordTypeAllowNewSources, "232.1.1.1");
  v3(Gmp::Igmp::recordTypeBlockOldSources, "232.1.1.1", {"1.1.1.1"});
  EXPECT_EQ(status->groupSize(), 0u);
  EXPECT_EQ(floods(), 3u);  // they still travel on
  v3(Gmp::Igmp::recordTypeAllowNewSources, "232.1.1.1", {"1.1.1.1"});
  ASSERT_TRUE(m());
  EXPECT_EQ(m()->filterMode(), Gmp::Igmp::filterModeInclude);
  EXPECT_EQ(sources(), (std::vector<std::string>{"1.1.1.1"}));
  v3(Gmp::Igmp::recordTypeModeIsExclude, "232.2.2.2", {"9.9.9.9"});
  EXPECT_EQ(m("232.2.2.2")->filterMode(), Gmp::Igmp::filterModeExclude);
  EXPECT_EQ(sources("232.2.2.2"), (std::vector<std::string>{"9.9.9.9"}));
  v3(RecordType(9), "232.3.3.3");
  EXPECT_EQ(counter("Ethernet1")->inPktIgmpOther(), 1u);
  EXPECT_EQ(status->newIgmpReport(), 6u);
}

TEST_F(CoreSmReportsTest, IncludeStateTransitions) {
  v3(Gmp::Igmp::recordTypeModeIsInclude, "232.1.1.1", {"1.1.1.1", "2.2.2.2"});
  v3(Gmp::Igmp::recordTypeAllowNewSources, "232.1.1.1", {"3.3.3.3"});
  EXPECT_EQ(sources(), (std::vector<std::string>{"1.1.1.1", "2.2.2.2", "3.3.3.3"}));
  // A block of unknown sources leaves the others; a block of the last ones ends the membership.
  v3(Gmp::Igmp::recordTypeBlockOldSources, "232.1.1.1", {"7.7.7.7", "1.1.1.1"});
  EXPECT_EQ(sources(), (std::vector<std::string>{"2.2.2.2", "3.3.3.3"}));
  v3(Gmp::Igmp::recordTypeBlockOldSources, "232.1.1.1", {"2.2.2.2", "3.3.3.3"});
  EXPECT_FALSE(m());
  EXPECT_EQ(status->groupSize(), 0u);  // the tree tears itself down bottom up
  EXPECT_FALSE(status->groupList(ip("232.1.1.1")));

  // A mode change to exclude drops the include list first.
  v3(Gmp::Igmp::recordTypeModeIsInclude, "232.1.1.1", {"1.1.1.1"});
  v3(Gmp::Igmp::recordTypeChangeToExclude, "232.1.1.1", {"5.5.5.5"});
  EXPECT_EQ(m()->filterMode(), Gmp::Igmp::filterModeExclude);
  EXPECT_EQ(sources(), (std::vector<std::string>{"5.5.5.5"}));
}

TEST_F(CoreSmReportsTest, ExcludeStateTransitionsWithoutAPeer) {
  v3(Gmp::Igmp::recordTypeModeIsExclude, "232.1.1.1", {"1.1.1.1"});
  v3(Gmp::Igmp::recordTypeModeIsExclude, "232.1.1.1", {"2.2.2.2"});  // mode-is-exclude adds
  EXPECT_EQ(sources(), (std::vector<std::string>{"1.1.1.1", "2.2.2.2"}));
  v3(Gmp::Igmp::recordTypeChangeToExclude, "232.1.1.1", {"2.2.2.2", "3.3.3.3"});  // keeps named, drops rest
  EXPECT_EQ(sources(), (std::vector<std::string>{"2.2.2.2", "3.3.3.3"}));
  v3(Gmp::Igmp::recordTypeAllowNewSources, "232.1.1.1", {"3.3.3.3"});
  EXPECT_EQ(sources(), (std::vector<std::string>{"2.2.2.2"}));
  v3(Gmp::Igmp::recordTypeBlockOldSources, "232.1.1.1", {"4.4.4.4"});
  EXPECT_EQ(sources(), (std::vector<std::string>{"2.2.2.2", "4.4.4.4"}));
  v3(Gmp::Igmp::recordTypeChangeToInclude, "232.1.1.1", {"8.8.8.8"});
  EXPECT_EQ(m()->filterMode(), Gmp::Igmp::filterModeInclude);
  EXPECT_EQ(sources(), (std::vector<std::string>{"8.8.8.8"}));
  // The version 3 host's leave: to-include of nothing ends the membership at once.
  v3(Gmp::Igmp::recordTypeModeIsExclude, "232.1.1.1");
  v3(Gmp::Igmp::recordTypeChangeToInclude, "232.1.1.1");
  EXPECT_FALSE(m());
}

TEST_F(CoreSmReportsTest, ReservedGroupsPassWithoutStateEvenWhenFiltered) {
  auto profile = profileConfig->profileIs("none");  // an empty permit profile refuses everything
  protocolConfig->intfConfigIs(IntfId("Ethernet1"))->profileNameIs("none");
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("224.0.0.5")));
  EXPECT_EQ(status->groupSize(), 0u);
  EXPECT_EQ(floods(), 1u);
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  EXPECT_EQ(status->groupSize(), 0u);
  EXPECT_EQ(floods(), 1u);
  rx("Ethernet2", host("10.0.0.2").igmpV2Report(ip("239.1.1.1")));  // another port has no profile
  EXPECT_EQ(status->groupSize(), 1u);
}

TEST_F(CoreSmReportsTest, FilterProfilesPermitOrDenyRanges) {
  auto deny = profileConfig->profileIs("deny");
  deny->denyRangesIs(true);
  deny->rangesIs(IgmpProfile::Range{ip("239.1.1.1"), ip("239.1.1.1")}, true);  // one address
  auto permit = profileConfig->profileIs("permit");
  permit->rangesIs(IgmpProfile::Range{ip("239.2.0.0"), ip("239.2.255.255")}, true);
  protocolConfig->intfConfigIs(IntfId("Ethernet1"))->profileNameIs("deny");
  protocolConfig->intfConfigIs(IntfId("Ethernet2"))->profileNameIs("permit");
  protocolConfig->intfConfigIs(IntfId("Ethernet3"))->profileNameIs("unknown");
  EXPECT_FALSE(core->checkReportPermittedByFilterProfile(ip("239.1.1.1"), IntfId("Ethernet1")));
  EXPECT_TRUE(core->checkReportPermittedByFilterProfile(ip("239.1.1.2"), IntfId("Ethernet1")));
  EXPECT_TRUE(core->checkReportPermittedByFilterProfile(ip("239.2.9.9"), IntfId("Ethernet2")));
  EXPECT_FALSE(core->checkReportPermittedByFilterProfile(ip("239.3.0.0"), IntfId("Ethernet2")));
  EXPECT_TRUE(core->checkReportPermittedByFilterProfile(ip("239.3.0.0"), IntfId("Ethernet3")));
  EXPECT_TRUE(core->checkReportPermittedByFilterProfile(ip("239.3.0.0"), IntfId("Ethernet4")));
}

TEST_F(CoreSmReportsTest, GroupLimitRefusesNewGroupsAndItsLogComesAndGoes) {
  contextConfig->maxGroupsIs(2);
  v3(Gmp::Igmp::recordTypeModeIsExclude, "232.0.0.1");
  v3(Gmp::Igmp::recordTypeModeIsExclude, "232.0.0.2");
  v3(Gmp::Igmp::recordTypeModeIsExclude, "232.0.0.3");
  EXPECT_EQ(status->groupSize(), 2u);
  EXPECT_TRUE(status->groupLimitExceeded());
  // An existing group takes new reporters; a leave for an unknown group is not refused.
  v3(Gmp::Igmp::recordTypeModeIsExclude, "232.0.0.1", {}, "10.0.0.2");
  v3(Gmp::Igmp::recordTypeChangeToInclude, "232.0.0.4");
  EXPECT_TRUE(membership("232.0.0.1", "Ethernet1", "10.0.0.2"));
  ASSERT_EQ(logs.lines().size(), 1u);
  EXPECT_EQ(logs.lines()[0],
            "%IGMPSNOOPING_GROUP_LIMIT_EXCEEDED: IGMP group limit of 2 groups exceeded in VLAN 10");
  // Each refusal pushes the end out: robustness x query interval + response interval.
  advance(200.0);
  v3(Gmp::Igmp::recordTypeModeIsExclude, "232.0.0.5");
  EXPECT_EQ(status->groupLimitExceededExpire(), now() + 2 * 125 + 10);
  advance(259.0);
  EXPECT_TRUE(status->groupLimitExceeded());
  contextConfig->maxGroupsIs(0xffff);
  advance(2.0);
  EXPECT_FALSE(status->groupLimitExceeded());
  ASSERT_EQ(logs.lines().size(), 2u);
  EXPECT_EQ(logs.lines()[1],
            "%IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED_NO_LIMIT: IGMP group limit no longer exceeded in "
            "VLAN 10");
}

TEST_F(CoreSmReportsTest, MaxGroupsZeroRefusesEveryNewGroupWithTheLimitLog) {
  contextConfig->maxGroupsIs(0);
  v3(Gmp::Igmp::recordTypeModeIsExclude, "232.0.0.1");
  v3(Gmp::Igmp::recordTypeChangeToInclude, "232.0.0.1");
  EXPECT_EQ(status->groupSize(), 0u);
  EXPECT_EQ(floods(), 1u);  // the leave travels, the refused join does not
  advance(261.0);
  ASSERT_EQ(logs.lines().size(), 2u);
  EXPECT_EQ(logs.lines()[1],
            "%IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED: IGMP group limit of 0 groups no longer exceeded "
            "in VLAN 10");
}

TEST_F(CoreSmReportsTest, V3ReportLosesRefusedRecordsBeforeItTravels) {
  contextConfig->maxGroupsIs(1);
  std::vector<IpAddr> src{ip("1.1.1.1")};
  std::vector<IgmpGroupRecord> recs{
      IgmpGroupRecord(Gmp::Igmp::recordTypeModeIsExclude, ip("232.0.0.1")),
      IgmpGroupRecord(Gmp::Igmp::recordTypeModeIsInclude, ip("232.0.0.2"), SourceList(src)),
      IgmpGroupRecord(Gmp::Igmp::recordTypeModeIsExclude, ip("232.0.0.3"))};
  rx("Ethernet1", host("10.0.0.1").igmpV3Report(recs));
  ASSERT_EQ(floods(), 1u);
  Kiv::Ptr<Lomax::Pkt> sent = lastFlood()->orig();
  Gmp::Igmp::IgmpV3Report left = Gmp::Igmp::doIgmpV3MembershipReportParse(sent);
  ASSERT_TRUE(left.valid());
  ASSERT_EQ(left.numberOfRecords(), 1u);
  EXPECT_EQ(left.records()[0].group(), ip("232.0.0.1"));

  // All records refused: nothing travels, but no state was changed by the refusal either.
  std::vector<IgmpGroupRecord> refused{IgmpGroupRecord(Gmp::Igmp::recordTypeModeIsExclude, ip("232.0.0.8")),
                                       IgmpGroupRecord(Gmp::Igmp::recordTypeModeIsExclude, ip("232.0.0.9"))};
  rx("Ethernet1", host("10.0.0.1").igmpV3Report(refused));
  EXPECT_EQ(floods(), 1u);
  EXPECT_EQ(status->groupSize(), 1u);
}

TEST_F(CoreSmReportsTest, ReportsWithoutAQuerierArmTheNoQuerierLogExceptForSsdp) {
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.255.255.250")));
  EXPECT_TRUE(Kiv::isNever(status->querierNotPresentExpire()));
  EXPECT_TRUE(membership("239.255.255.250", "Ethernet1", "10.0.0.1"));
  rx("Ethernet2", host("10.0.0.2").igmpV2Report(ip("239.9.9.9")));
  EXPECT_EQ(status->querierNotPresentExpire(), start + 2 * 2 * 125);
  EXPECT_EQ(status->noQuerierLogInfo().reporter, ip("10.0.0.2"));
  rx("Ethernet1", host("10.0.0.3").igmpV2Report(ip("239.9.9.8")));  // does not re-arm
  EXPECT_EQ(status->noQuerierLogInfo().reporter, ip("10.0.0.2"));
  advance(500.0);
  ASSERT_EQ(logs.lines().size(), 1u);
  EXPECT_EQ(logs.lines()[0],
            "%IGMPSNOOPING_NO_IGMP_QUERIER: No IGMP querier detected in VLAN 10. IGMP report received from "
            "10.0.0.2 "
            "on Ethernet2 for 239.9.9.9");
  EXPECT_TRUE(Kiv::isNever(status->querierNotPresentExpire()));
  EXPECT_EQ(status->noQuerierLogInfo(), NoQuerierLogInfo());
}

TEST_F(CoreSmReportsTest, ImmediateLeaveEndsVersion2ButNotVersion1Memberships) {
  contextConfig->immediateLeaveIs(true);
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  rx("Ethernet1", host("10.0.0.2").igmpV1Report(ip("239.1.1.1")));
  rx("Ethernet1", host("10.0.0.1").igmpV2Leave(ip("239.1.1.1")));
  rx("Ethernet1", host("10.0.0.2").igmpV2Leave(ip("239.1.1.1")));
  EXPECT_FALSE(membership("239.1.1.1", "Ethernet1", "10.0.0.1"));
  EXPECT_TRUE(membership("239.1.1.1", "Ethernet1", "10.0.0.2"));
  EXPECT_EQ(counter("Ethernet1")->inPktIgmpV2Leave(), 2u);
}

}  // namespace
}  // namespace CoreTest
