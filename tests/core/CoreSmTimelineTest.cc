// The core over time, on the virtual clock: membership aging, queries and the querier, routers,
// confidence, interface moves, initial queries and the restart replay.
#include <gtest/gtest.h>

#include "core/CoreQuerierSm.h"
#include "core/CoreRouterSm.h"
#include "core/IntfQuerySpoofer.h"
#include "net/IgmpQuery.h"
#include "tests/core/CoreHarness.h"

namespace CoreTest {
namespace {

using Gmp::Igmp::IgmpGroupRecord;
using Gmp::Igmp::IgmpQuery;
using Gmp::Igmp::SourceList;

class CoreSmTimelineTest : public ::testing::Test, public CoreHarness {
 protected:
  void query(const char* from, Gmp::Igmp::IgmpVersion v, uint8_t code, const char* group = "0.0.0.0",
             const char* port = "Ethernet3") {
    rx(port, host(from).igmpQuery(IgmpQuery(v, code, ip(group))));
  }
};

TEST_F(CoreSmTimelineTest, Version2LeaveIsCheckedByTheQuerierAndRescuedByAReport) {
  startCore();
  query("10.0.0.254", Gmp::Igmp::igmpVersion2, 100);
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  rx("Ethernet2", host("10.0.0.2").igmpV2Report(ip("239.1.1.1")));
  auto a = membership("239.1.1.1", "Ethernet1", "10.0.0.1");
  EXPECT_EQ(a->expire(), start + 260.0);  // robustness 2 x 125 + 10

  advance(10.0);
  rx("Ethernet1", host("10.0.0.1").igmpV2Leave(ip("239.1.1.1")));
  EXPECT_TRUE(membership("239.1.1.1", "Ethernet1", "10.0.0.1"));  // a leave alone changes nothing
  query("10.0.0.254", Gmp::Igmp::igmpVersion2, 10, "239.1.1.1");  // 1 second
  EXPECT_EQ(a->state(), checkingMembership);
  EXPECT_EQ(a->expire(), now() + 2.0);
  advance(0.5);
  rx("Ethernet2", host("10.0.0.2").igmpV2Report(ip("239.1.1.1")));  // the other host answers
  auto b = membership("239.1.1.1", "Ethernet2", "10.0.0.2");
  EXPECT_EQ(b->state(), checkingGotReport);
  EXPECT_EQ(b->expire(), now() + 1.5);  // the shortened expire stays
  advance(1.6);
  EXPECT_FALSE(membership("239.1.1.1", "Ethernet1", "10.0.0.1"));
  EXPECT_FALSE(status->group(ip("239.1.1.1"))->intf(IntfId("Ethernet1")));
  ASSERT_TRUE(membership("239.1.1.1", "Ethernet2", "10.0.0.2"));
  EXPECT_EQ(b->state(), membershipStateMember);
  // Saved at the timer: a full life from the firing, on the 100 ms grid.
  EXPECT_NEAR(b->expire(), start + 12.0 + 260.0, 0.1);
}

TEST_F(CoreSmTimelineTest, ExcludeMembershipsExpireAndTakeTheTreeAway) {
  startCore();
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  std::vector<IpAddr> none;
  IgmpGroupRecord rec(Gmp::Igmp::recordTypeModeIsExclude, ip("239.1.1.1"));
  rx("Ethernet1", host("10.0.0.3").igmpV3Report(std::span(&rec, 1)));
  auto s = status->group(ip("239.1.1.1"))->intf(IntfId("Ethernet1"));
  EXPECT_EQ(s->lowestVersion(), Gmp::Igmp::igmpVersion2);
  advance(100.0);
  rx("Ethernet1", host("10.0.0.3").igmpV3Report(std::span(&rec, 1)));
  advance(160.0);  // 10.0.0.1 at exactly its expire
  EXPECT_FALSE(membership("239.1.1.1", "Ethernet1", "10.0.0.1"));
  EXPECT_EQ(s->lowestVersion(), Gmp::Igmp::igmpVersion3);  // recomputed when the lower one went
  EXPECT_TRUE(status->groupList(ip("239.1.1.1")));
  advance(100.0);
  EXPECT_FALSE(status->group(ip("239.1.1.1")));
  EXPECT_FALSE(status->groupList(ip("239.1.1.1")));
  EXPECT_EQ(core->groupSmCount(), 0u);

  // A static entry stays when its last membership goes.
  rx("Ethernet2", host("10.0.0.1").igmpV2Report(ip("239.2.2.2")));
  status->group(ip("239.2.2.2"))->intf(IntfId("Ethernet2"))->staticEntryIs(true);
  advance(261.0);
  ASSERT_TRUE(status->group(ip("239.2.2.2")));
  EXPECT_EQ(status->group(ip("239.2.2.2"))->intf(IntfId("Ethernet2"))->membershipSize(), 0u);
}

TEST_F(CoreSmTimelineTest, IncludeMembershipsAgeByGeneralQueriesOnly) {
  startCore();
  std::vector<IpAddr> src{ip("1.1.1.1")};
  IgmpGroupRecord rec(Gmp::Igmp::recordTypeModeIsInclude, ip("232.1.1.1"), SourceList(src));
  rx("Ethernet1", host("10.0.0.1").igmpV3Report(std::span(&rec, 1)));
  advance(10000.0);
  auto m = membership("232.1.1.1", "Ethernet1", "10.0.0.1");
  ASSERT_TRUE(m);  // no clock ages an include membership
  query("10.0.0.254", Gmp::Igmp::igmpVersion3, 100);
  query("10.0.0.254", Gmp::Igmp::igmpVersion3, 100);
  EXPECT_EQ(m->source(ip("1.1.1.1"))->sourceAge(), 2u);
  // A group-and-source query leaves it one more general query at most.
  rx("Ethernet1", host("10.0.0.1").igmpV3Report(std::span(&rec, 1)));
  IgmpQuery gsq(Gmp::Igmp::igmpVersion3, 10, ip("232.1.1.1"));
  gsq.sourcesIs(SourceList(src));
  rx("Ethernet3", host("10.0.0.254").igmpQuery(gsq));
  EXPECT_EQ(m->source(ip("1.1.1.1"))->sourceAge(), 1u);
  query("10.0.0.254", Gmp::Igmp::igmpVersion3, 100);
  query("10.0.0.254", Gmp::Igmp::igmpVersion3, 100);
  EXPECT_FALSE(membership("232.1.1.1", "Ethernet1", "10.0.0.1"));
}

// Report times reach only exclude memberships' machines; a membership that turns exclude ages by them
// again, whether its machine met it include (found at start) or saw it become include.
TEST_F(CoreSmTimelineTest, AnIncludeMembershipTurnedExcludeAgesByReports) {
  auto found = status->groupIs(ip("232.1.1.2"))->intfIs(IntfId("Ethernet1"))->membershipIs(ip("10.0.0.1"));
  found->filterModeIs(Gmp::Igmp::filterModeInclude);
  found->sourceIs(ip("1.1.1.1"));
  startCore();
  std::vector<IpAddr> src{ip("1.1.1.1")};
  IgmpGroupRecord include(Gmp::Igmp::recordTypeModeIsInclude, ip("232.1.1.1"), SourceList(src));
  rx("Ethernet1", host("10.0.0.1").igmpV3Report(std::span(&include, 1)));
  advance(100.0);
  std::vector<IgmpGroupRecord> exclude{
      IgmpGroupRecord(Gmp::Igmp::recordTypeChangeToExclude, ip("232.1.1.1")),
      IgmpGroupRecord(Gmp::Igmp::recordTypeChangeToExclude, ip("232.1.1.2"))};
  rx("Ethernet1", host("10.0.0.1").igmpV3Report(exclude));
  for (const char* group : {"232.1.1.1", "232.1.1.2"}) {
    auto m = membership(group, "Ethernet1", "10.0.0.1");
    ASSERT_TRUE(m) << group;
    EXPECT_EQ(m->filterMode(), Gmp::Igmp::filterModeExclude) << group;
    EXPECT_EQ(m->expire(), now() + 260.0) << group;
  }
  advance(259.0);
  EXPECT_TRUE(membership("232.1.1.2", "Ethernet1", "10.0.0.1"));
  advance(1.1);
  EXPECT_FALSE(membership("232.1.1.1", "Ethernet1", "10.0.0.1"));
  EXPECT_FALSE(membership("232.1.1.2", "Ethernet1", "10.0.0.1"));
}

// A general query ages only memberships with something to age; the set of them must follow every way
// in which a membership gains or loses sources: reports, the query itself, and writes by others.
TEST_F(CoreSmTimelineTest, GeneralQueriesAgeEveryMembershipWithSourcesWhoeverAddedThem) {
  // One found in the status at start, as after a restart.
  status->groupIs(ip("232.9.9.9"))->intfIs(IntfId("Ethernet2"))->membershipIs(ip("10.0.0.9"));
  auto stored = membership("232.9.9.9", "Ethernet2", "10.0.0.9");
  stored->igmpVersionIs(Gmp::Igmp::igmpVersion3);
  stored->filterModeIs(Gmp::Igmp::filterModeInclude);
  stored->sourceIs(ip("9.9.9.9"));
  startCore();
  EXPECT_EQ(core->agingMembershipCount(), 1u);

  std::vector<IpAddr> src{ip("1.1.1.1"), ip("2.2.2.2")};
  IgmpGroupRecord toEx(Gmp::Igmp::recordTypeChangeToExclude, ip("232.1.1.1"), SourceList(src));
  rx("Ethernet1", host("10.0.0.1").igmpV3Report(std::span(&toEx, 1)));
  rx("Ethernet1", host("10.0.0.2").igmpV2Report(ip("232.1.1.1")));  // nothing to age
  auto excl = membership("232.1.1.1", "Ethernet1", "10.0.0.1");
  ASSERT_TRUE(excl);
  EXPECT_EQ(core->agingMembershipCount(), 2u);
  // A source written straight into the entity, as the peer's sync does, joins it too.
  auto plain = membership("232.1.1.1", "Ethernet1", "10.0.0.2");
  plain->sourceIs(ip("3.3.3.3"));
  EXPECT_EQ(core->agingMembershipCount(), 3u);

  for (int i = 0; i < 3; ++i) query("10.0.0.254", Gmp::Igmp::igmpVersion3, 100);
  // Robustness 2: ages 0, 1, 2, then deleted at the third query.
  EXPECT_EQ(excl->sourceSize(), 0u);
  EXPECT_EQ(plain->sourceSize(), 0u);
  EXPECT_TRUE(membership("232.1.1.1", "Ethernet1", "10.0.0.1"));   // exclude {} stays until it times out
  EXPECT_FALSE(membership("232.9.9.9", "Ethernet2", "10.0.0.9"));  // include {} ends
  EXPECT_EQ(core->agingMembershipCount(), 0u);

  // A membership that ends by its timer leaves the set with its machine.
  rx("Ethernet3", host("10.0.0.5").igmpV3Report(std::span(&toEx, 1)));
  EXPECT_EQ(core->agingMembershipCount(), 1u);
  advance(261.0);
  EXPECT_FALSE(membership("232.1.1.1", "Ethernet3", "10.0.0.5"));
  EXPECT_EQ(core->agingMembershipCount(), 0u);
}

TEST_F(CoreSmTimelineTest, QuerierElectionLowestWinsUnlessSilentOrGone) {
  startCore();
  query("10.0.0.5", Gmp::Igmp::igmpVersion2, 100, "0.0.0.0", "Ethernet2");
  query("10.0.0.3", Gmp::Igmp::igmpVersion2, 100, "0.0.0.0", "Ethernet3");
  EXPECT_EQ(status->querier()->addr(), ip("10.0.0.3"));
  Kiv::Seconds expire = status->querier()->expire();
  EXPECT_EQ(expire, start + 255.0 + 5.0);  // other querier present interval + half a response interval
  advance(30.0);
  query("10.0.0.5", Gmp::Igmp::igmpVersion2, 100, "0.0.0.0", "Ethernet2");
  EXPECT_EQ(status->querier()->addr(), ip("10.0.0.3"));
  EXPECT_EQ(status->querier()->expire(), expire);  // neither refreshed nor replaced
  // 10.0.0.3 falls silent: with less than one query interval left, 10.0.0.5 takes over.
  advance(110.0);
  query("10.0.0.5", Gmp::Igmp::igmpVersion2, 100, "0.0.0.0", "Ethernet2");
  EXPECT_EQ(status->querier()->addr(), ip("10.0.0.5"));
  EXPECT_EQ(status->querier()->intf(), IntfId("Ethernet2"));
  // A lower querier whose port is disabled loses at once.
  query("10.0.0.3", Gmp::Igmp::igmpVersion2, 100, "0.0.0.0", "Ethernet3");
  EXPECT_EQ(status->querier()->addr(), ip("10.0.0.3"));
  core->enabledIntfIs(IntfId("Ethernet3"), false);
  query("10.0.0.5", Gmp::Igmp::igmpVersion2, 100, "0.0.0.0", "Ethernet2");
  EXPECT_EQ(status->querier()->addr(), ip("10.0.0.5"));
  EXPECT_TRUE(status->confident());
  // Silence: the querier ages out, confidence and the response interval go back.
  query("10.0.0.5", Gmp::Igmp::igmpVersion2, 50, "0.0.0.0", "Ethernet2");
  EXPECT_EQ(status->queryResponseInterval(), 5.0);
  advance(255.0 + 2.5 + 0.2);
  EXPECT_FALSE(status->querier());
  EXPECT_FALSE(status->confident());
  EXPECT_EQ(status->queryResponseInterval(), 10.0);
  EXPECT_EQ(status->querierVersion(), Gmp::Igmp::igmpVersionUnknown);
}

TEST_F(CoreSmTimelineTest, RouterStrengthAndTheOneSecondHold) {
  startCore();
  rx("Ethernet3", host("10.0.0.254").igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr())));
  auto r = status->router(ip("10.0.0.254"));
  EXPECT_EQ(r->routerType(), routerTypeQuery);
  advance(2.0);
  rx("Ethernet2", host("10.0.0.254").pimV2Hello(105));  // a querier that starts PIM: PIM at once, new port
  EXPECT_EQ(r->routerType(), routerTypePim);
  EXPECT_EQ(r->intf(), IntfId("Ethernet2"));
  advance(50.0);
  query("10.0.0.254", Gmp::Igmp::igmpVersion2, 100, "0.0.0.0", "Ethernet2");  // weaker: no refresh
  EXPECT_EQ(r->expire(), start + 2.0 + 105.0);
  advance(0.5);
  rx("Ethernet2", host("10.0.0.254").pimV2Hello(105));
  Kiv::Seconds heard = r->lastHeard();
  advance(0.5);
  rx("Ethernet1", host("10.0.0.254").pimV2Hello(105));  // within a second: nothing, not even lastHeard
  EXPECT_EQ(r->lastHeard(), heard);
  EXPECT_EQ(r->intf(), IntfId("Ethernet2"));
  advance(1.0);
  rx("Ethernet1", host("10.0.0.254").pimV2Hello(105));  // after a second of quiet it moves
  EXPECT_EQ(r->intf(), IntfId("Ethernet1"));
  EXPECT_FALSE(r->oldIntf());
  // Hellos stop: it goes at expire, whatever the queries say.
  for (int i = 0; i < 9; ++i) {
    advance(11.0);
    query("10.0.0.254", Gmp::Igmp::igmpVersion2, 100, "0.0.0.0", "Ethernet1");
  }
  EXPECT_EQ(r->expire(), start + 54.0 + 105.0);
  advance(r->expire() - now() + 0.1);
  EXPECT_FALSE(status->router(ip("10.0.0.254")));
  EXPECT_FALSE(core->routerSm(ip("10.0.0.254")));
}

// Sends state of a port going down to its replacement, and keeps routers where they are.
struct PortChannelControl : ::IgmpSnooping::IntfStateControl {
  PortChannelControl() : IntfStateControl("lag") {}
  MoveDecision routerMove(IpAddr, IntfId, IntfId) override { return doNotMove; }
  IntfId moveToIntf(IntfId intf, bool) override {
    return intf == IntfId("Ethernet1") ? IntfId("Port-Channel1") : IntfId();
  }
};

TEST_F(CoreSmTimelineTest, PortsGoingDownDeleteOrMoveTheirState) {
  startCore({"Ethernet1", "Ethernet2", "Ethernet3", "Port-Channel1"});
  auto controls = Kiv::make<::IgmpSnooping::IntfStateControls>();
  controls->controlIs(Kiv::make<PortChannelControl>());
  core->intfStateControlIs(controls);
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  rx("Ethernet1", host("10.0.0.100").pimV2Hello(105));
  rx("Ethernet2", host("10.0.0.2").igmpV2Report(ip("239.1.1.1")));
  rx("Ethernet2", host("10.0.0.101").pimV2Hello(105));
  advance(20.0);
  auto before = membership("239.1.1.1", "Ethernet1", "10.0.0.1");
  Kiv::Seconds expire = before->expire();

  core->enabledIntfIs(IntfId("Ethernet2"), false);  // no replacement: state goes
  EXPECT_FALSE(status->router(ip("10.0.0.101")));
  EXPECT_FALSE(membership("239.1.1.1", "Ethernet2", "10.0.0.2"));

  core->enabledIntfIs(IntfId("Ethernet1"), false);  // replaced by the port channel: state moves
  auto moved = membership("239.1.1.1", "Port-Channel1", "10.0.0.1");
  ASSERT_TRUE(moved);
  EXPECT_EQ(moved->expire(), expire);
  auto to = status->group(ip("239.1.1.1"))->intf(IntfId("Port-Channel1"));
  EXPECT_EQ(to->oldIntf(ip("10.0.0.1")), IntfId("Ethernet1"));
  EXPECT_EQ(to->oldIntfRefCount(IntfId("Ethernet1")), 1u);
  auto r = status->router(ip("10.0.0.100"));
  EXPECT_EQ(r->intf(), IntfId("Port-Channel1"));
  EXPECT_EQ(r->oldIntf(), IntfId("Ethernet1"));

  rx("Port-Channel1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));  // heard again: the old entry goes
  EXPECT_FALSE(to->oldIntf(ip("10.0.0.1")));
  EXPECT_EQ(to->oldIntfRefCountSize(), 0u);

  core->enabledIntfIs(IntfId("Ethernet1"), true);  // the router moves back
  EXPECT_EQ(r->intf(), IntfId("Ethernet1"));
  EXPECT_FALSE(r->oldIntf());
}

TEST_F(CoreSmTimelineTest, InitialQueriesOnAPortComeFromZeroAndGoToThatPortOnly) {
  config->initialQueryTimeIs(0, 1000);
  config->initialQueryTimeIs(1, 3000);
  startCore();
  core->createIntfQuerySpoofer(IntfId("Ethernet1"));
  EXPECT_FALSE(core->intfQuerySpoofer(IntfId("Ethernet1")));  // no general query seen yet
  query("10.0.0.254", Gmp::Igmp::igmpVersion2, 100);
  size_t before = floods();
  core->createIntfQuerySpoofer(IntfId("Ethernet1"));
  ASSERT_TRUE(core->intfQuerySpoofer(IntfId("Ethernet1")));
  advance(1.0);
  ASSERT_EQ(floods(), before + 1);
  auto req = lastFlood();
  EXPECT_EQ(req->floodType(), floodTypeSinglePort);
  EXPECT_EQ(req->outgoingIntfId(), IntfId("Ethernet1"));
  EXPECT_FALSE(req->incomingIntfId());
  EXPECT_TRUE(req->needsPreProcess());
  Lomax::IpHdr ipHdr = *Lomax::IpHdr::of(req->orig()->offsetFront(), req->orig()->offsetBytes());
  EXPECT_TRUE(ipHdr.src().isZero());
  EXPECT_EQ(ipHdr.computedChecksum(), Lomax::zeroChecksum);
  advance(2.0);
  EXPECT_EQ(floods(), before + 2);
  EXPECT_FALSE(core->intfQuerySpoofer(IntfId("Ethernet1")));  // done after the last entry
  advance(10.0);
  EXPECT_EQ(floods(), before + 2);
}

TEST_F(CoreSmTimelineTest, RestartReplaysTheLastQueryThenReviewsTheGroupList) {
  // The status as a previous agent left it: confident, a querier with its last query, memberships on
  // an enabled and on a vanished port, and a stale entry in the group list.
  Lomax::FrameBuilder router = host("10.0.0.254");
  Kiv::Ptr<Lomax::Pkt> q = router.igmpQuery(IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr()));
  status->latestQueryIs(q->stringValue());
  status->confidentIs(true);
  auto querier = status->querierIs(ip("10.0.0.254"));
  querier->intfIs(IntfId("Ethernet3"));
  querier->expireIs(start + 100.0);
  for (const char* port : {"Ethernet1", "Ethernet9"}) {
    auto m = status->groupIs(ip("239.1.1.1"))->intfIs(IntfId(port))->membershipIs(ip("10.0.0.1"));
    m->igmpVersionIs(Gmp::Igmp::igmpVersion2);
    m->lastReportIs(start - 100.0);
    m->expireIs(start + 160.0);
  }
  auto old = status->groupIs(ip("239.3.3.3"))->intfIs(IntfId("Ethernet1"))->membershipIs(ip("10.0.0.1"));
  old->igmpVersionIs(Gmp::Igmp::igmpVersion2);
  old->expireIs(start - 5.0);  // its time passed while the agent was away
  status->groupListIs(ip("239.1.1.1"), true);
  status->groupListIs(ip("239.7.7.7"), true);
  status->configuredRestartQueryIntervalIs(5.0);

  startCore();
  EXPECT_TRUE(status->coreSmStateRebuilding());
  EXPECT_TRUE(status->confident());
  EXPECT_FALSE(status->group(ip("239.1.1.1"))->intf(IntfId("Ethernet9")));  // its port is gone
  ASSERT_EQ(floods(), 1u);  // the first replay at once, as if from the querier's port
  EXPECT_EQ(lastFlood()->floodType(), floodTypeVlan);
  EXPECT_EQ(lastFlood()->incomingIntfId(), IntfId("Ethernet3"));
  EXPECT_EQ(lastFlood()->orig()->stringValue(), q->stringValue());
  EXPECT_GT(querier->expire(), start + 255.0);  // kept alive through the replay
  EXPECT_FALSE(core->intfQuerySpoofer(IntfId("Ethernet1")));
  core->createIntfQuerySpoofer(IntfId("Ethernet1"));
  EXPECT_FALSE(core->intfQuerySpoofer(IntfId("Ethernet1")));  // none while rebuilding

  advance(0.1);
  EXPECT_FALSE(status->group(ip("239.3.3.3")));  // a stored expire in the past fires at once
  advance(4.9);
  EXPECT_EQ(floods(), 2u);  // robustness 2: the second replay restartQueryInterval later
  EXPECT_TRUE(status->groupList(ip("239.7.7.7")));  // the review waits for the end
  advance(1.1 * 10.0);
  EXPECT_FALSE(status->coreSmStateRebuilding());
  EXPECT_FALSE(status->groupList(ip("239.7.7.7")));
  EXPECT_TRUE(status->groupList(ip("239.1.1.1")));
  EXPECT_TRUE(membership("239.1.1.1", "Ethernet1", "10.0.0.1"));
  EXPECT_TRUE(status->confident());
}

// A robustness beyond what the replay's counter holds still ends the replay, and a stored query that
// is not a frame is a trace for the replay and for the spoofer after it, never a flood or an abort.
TEST_F(CoreSmTimelineTest, RestartReplayEndsForAnyRobustnessAndSkipsACorruptStoredQuery) {
  status->latestQueryIs("begin=0 end=0 bytes=0");
  status->confidentIs(true);
  status->configuredRobustnessIs(300);
  status->configuredRestartQueryIntervalIs(1.0);
  auto querier = status->querierIs(ip("10.0.0.254"));
  querier->intfIs(IntfId("Ethernet3"));
  querier->expireIs(start + 100000.0);
  config->initialQueryTimeIs(0, 1000);
  startCore();
  EXPECT_TRUE(status->coreSmStateRebuilding());
  advance(300.0);
  EXPECT_FALSE(status->coreSmStateRebuilding());
  EXPECT_EQ(core->queriesSentForRestart(), 255u);
  EXPECT_EQ(floods(), 0u);
  core->createIntfQuerySpoofer(IntfId("Ethernet1"));
  ASSERT_TRUE(core->intfQuerySpoofer(IntfId("Ethernet1")));
  advance(2.0);
  EXPECT_EQ(floods(), 0u);
  EXPECT_FALSE(core->intfQuerySpoofer(IntfId("Ethernet1")));
}

TEST_F(CoreSmTimelineTest, FirstStartIsNotConfidentUntilAGeneralQuery) {
  startCore();
  EXPECT_FALSE(status->coreSmStateRebuilding());
  EXPECT_FALSE(status->confident());
  EXPECT_EQ(floods(), 0u);
  query("10.0.0.254", Gmp::Igmp::igmpVersion2, 10, "239.1.1.1");  // a specific query is not enough
  EXPECT_FALSE(status->confident());
  contextConfig->deferConfidenceIs(true);
  query("10.0.0.254", Gmp::Igmp::igmpVersion2, 100);
  EXPECT_FALSE(status->confident());
  contextConfig->deferConfidenceIs(false);
  query("10.0.0.254", Gmp::Igmp::igmpVersion2, 100);
  EXPECT_TRUE(status->confident());
  EXPECT_EQ(core->confidence(), 2u);
}

}  // namespace
}  // namespace CoreTest

namespace CoreTest {
namespace {

using Gmp::Igmp::IgmpQuery;

// Answers the router move question as it is told.
struct RouterMoves : ::IgmpSnooping::IntfStateControl {
  RouterMoves() : IntfStateControl("moves") {}
  MoveDecision routerMove(IpAddr, IntfId, IntfId) override { return answer; }
  IntfId moveToIntf(IntfId, bool) override { return IntfId(); }
  MoveDecision answer = noOpinion;
};

TEST_F(CoreSmTimelineTest, ControlsAndPlannedMovesOfRouters) {
  startCore();
  auto controls = Kiv::make<::IgmpSnooping::IntfStateControls>();
  auto moves = Kiv::make<RouterMoves>();
  controls->controlIs(moves);
  core->intfStateControlIs(controls);
  rx("Ethernet1", host("10.0.0.100").pimV2Hello(105));
  auto r = status->router(ip("10.0.0.100"));
  moves->answer = ::IgmpSnooping::IntfStateControl::move;  // a move wins even within the second
  advance(0.2);
  rx("Ethernet2", host("10.0.0.100").pimV2Hello(105));
  EXPECT_EQ(r->intf(), IntfId("Ethernet2"));
  moves->answer = ::IgmpSnooping::IntfStateControl::doNotMove;  // a refusal lasts only a second
  advance(2.0);
  rx("Ethernet3", host("10.0.0.100").pimV2Hello(105));
  EXPECT_EQ(r->intf(), IntfId("Ethernet3"));

  // A planned move happens a second later, unless the router is heard first.
  advance(1.5);
  CoreRouterSm* sm = core->routerSm(ip("10.0.0.100"));
  sm->routerMoveIs(CoreRouterSm::RouterMove{IntfId("Ethernet1"), 50.0});
  advance(0.5);
  rx("Ethernet3", host("10.0.0.100").pimV2Hello(105));
  advance(1.0);
  EXPECT_EQ(r->intf(), IntfId("Ethernet3"));
  EXPECT_EQ(sm->routerMove(), CoreRouterSm::RouterMove());
  sm->routerMoveIs(CoreRouterSm::RouterMove{IntfId("Ethernet1"), 50.0});
  advance(1.1);
  EXPECT_EQ(r->intf(), IntfId("Ethernet1"));
  EXPECT_NEAR(r->expire(), now() - 1.0 + 50.0, 0.11);
  EXPECT_EQ(sm->routerMove(), CoreRouterSm::RouterMove());
}

TEST_F(CoreSmTimelineTest, RestartGivesRoutersAFullLifeAndRearmsStoredTimers) {
  auto kept = status->routerIs(ip("10.0.0.100"));
  kept->intfIs(IntfId("Ethernet1"));
  kept->lifeIs(105.0);
  kept->expireIs(start - 50.0);  // ran out while the agent was away; the restart forgives it
  status->routerIs(ip("10.0.0.101"))->intfIs(IntfId("Ethernet9"));
  status->groupLimitExceededIs(true);
  status->groupLimitExceededExpireIs(start + 30.0);
  status->querierNotPresentExpireIs(start + 40.0);
  status->noQuerierLogInfoIs(NoQuerierLogInfo{ip("10.0.0.1"), IntfId("Ethernet1"), ip("239.1.1.1")});
  TestSupport::RecordingLogSink logs;
  startCore();
  EXPECT_FALSE(status->coreSmStateRebuilding());  // not confident before: a first start
  EXPECT_FALSE(status->router(ip("10.0.0.101")));
  EXPECT_EQ(kept->expire(), start + 105.0);
  advance(41.0);
  EXPECT_FALSE(status->groupLimitExceeded());
  EXPECT_TRUE(Kiv::isNever(status->querierNotPresentExpire()));
  EXPECT_EQ(logs.lines().size(), 2u);
  advance(65.0);
  EXPECT_FALSE(status->router(ip("10.0.0.100")));
}

TEST_F(CoreSmTimelineTest, RestartWithoutAQuerierEndsAtOnce) {
  status->confidentIs(true);
  status->groupListIs(ip("239.7.7.7"), true);
  startCore();
  EXPECT_FALSE(status->coreSmStateRebuilding());
  EXPECT_FALSE(status->groupList(ip("239.7.7.7")));
  EXPECT_EQ(floods(), 0u);
}

TEST_F(CoreSmTimelineTest, ConfidenceGrowsOnADelayedClock) {
  status->configuredRobustnessIs(2);
  startCore();
  core->confidenceIncDelayIs(3.0);
  core->confidenceIncDelayIs(3.0);  // already running: one raise only
  advance(2.9);
  EXPECT_EQ(core->confidence(), 0u);
  advance(0.2);
  EXPECT_EQ(core->confidence(), 1u);
  EXPECT_FALSE(status->confident());
  core->confidenceIncDelayIs(1.0);
  advance(1.0);
  EXPECT_EQ(core->confidence(), 2u);
  EXPECT_TRUE(status->confident());
}

// Moves whatever goes down on the first port to the second.
struct Chain : ::IgmpSnooping::IntfStateControl {
  Chain() : IntfStateControl("chain") {}
  MoveDecision routerMove(IpAddr, IntfId, IntfId) override { return noOpinion; }
  IntfId moveToIntf(IntfId intf, bool) override {
    if (intf == IntfId("Ethernet1")) return IntfId("Ethernet2");
    if (intf == IntfId("Ethernet2")) return IntfId("Ethernet3");
    return IntfId();
  }
};

TEST_F(CoreSmTimelineTest, AReporterMovedTwiceKeepsOneOldInterface) {
  startCore();
  auto controls = Kiv::make<::IgmpSnooping::IntfStateControls>();
  controls->controlIs(Kiv::make<Chain>());
  core->intfStateControlIs(controls);
  rx("Ethernet1", host("10.0.0.1").igmpV2Report(ip("239.1.1.1")));
  core->enabledIntfIs(IntfId("Ethernet1"), false);
  auto second = status->group(ip("239.1.1.1"))->intf(IntfId("Ethernet2"));
  EXPECT_EQ(second->oldIntfRefCount(IntfId("Ethernet1")), 1u);
  core->enabledIntfIs(IntfId("Ethernet2"), false);
  auto third = status->group(ip("239.1.1.1"))->intf(IntfId("Ethernet3"));
  EXPECT_EQ(third->oldIntf(ip("10.0.0.1")), IntfId("Ethernet2"));
  EXPECT_EQ(third->oldIntfSize(), 1u);
  EXPECT_EQ(third->oldIntfRefCount(IntfId("Ethernet2")), 1u);
  EXPECT_EQ(third->oldIntfRefCount(IntfId("Ethernet1")), 0u);
  // Its membership ending takes the old entry with it.
  third->membershipDel(ip("10.0.0.1"));
  EXPECT_FALSE(status->group(ip("239.1.1.1")));
}

}  // namespace
}  // namespace CoreTest
