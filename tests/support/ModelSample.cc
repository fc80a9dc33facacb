// The sample population: a querier, routers, groups with sources and moved reporters, limits,
// configuration with its querier configs, published and peer status, counters, profiles.
#include "tests/support/ModelSample.h"

#include "model/Config.h"
#include "model/IgmpContextStatus.h"
#include "model/IgmpCounterDir.h"
#include "model/IgmpProfile.h"
#include "model/IgmpProtocolConfig.h"
#include "model/IntfCollection.h"
#include "model/Status.h"
#include "model/SyncStatus.h"

namespace TestSupport {

using namespace Bridging::IgmpSnooping;
using Bridging::VlanId;
using Lomax::EthAddr;
using Lomax::IntfId;
using Lomax::IpAddr;

namespace {

void fill(Config* c) {
  c->vlanDefaultEnabledIs(false);
  c->globalReportFloodingEnabledIs(true);
  c->immediateLeaveIs(true);
  c->robustnessIs(3);
  c->restartQueryIntervalIs(7.5);
  c->switchPortIs(IntfId("Ethernet9"), true);
  c->intfConfigIs(IntfId("Ethernet1"))->profileNameIs("video, only");
  c->initialQueryTimeIs(0, 250);
  auto g = c->globalQuerierConfigIs("global");
  g->enabledIs(true);
  g->ipAddrIs(IpAddr(10, 0, 0, 250));
  g->queryIntervalIs(60.0);
  g->queryResponseIntervalIs(5.5);
  g->lastMemberQueryCountIs(3);
  g->lastMemberQueryIntervalIs(0.5);
  g->startupQueryCountIs(4);
  g->startupQueryIntervalIs(15.0);
  g->querierVersionIs(3);
  auto v = c->vlanConfigIs(VlanId(10));
  v->enabledIs(vlanStateEnabled);
  v->immediateLeaveIs(immediateLeaveEnabled);
  v->maxGroupsIs(100);
  v->reportFloodingConfigIs(vlanStateDisabled);
  v->switchPortIs(IntfId("Ethernet2"), true);
  v->routerIntfIs(IntfId("Ethernet3"), true);
  v->ipGroupIs(IpAddr(239, 9, 9, 9))->intfIs(IntfId("Ethernet4"), true);
  auto q = v->vlanQuerierConfigIs("vlan10");
  q->enabledConfiguredIs(true);
  q->ipAddrConfiguredIs(IpAddr(10, 0, 10, 1));
  q->queryIntervalConfiguredIs(30.0);
  q->queryResponseIntervalConfiguredIs(3.0);
  q->lastMemberQueryCountConfiguredIs(5);
  q->lastMemberQueryIntervalConfiguredIs(0.25);
  q->startupQueryCountConfiguredIs(6);
  q->startupQueryIntervalConfiguredIs(7.0);
  q->querierVersionConfiguredIs(2);
  q->mtuConfiguredIs(1400);
}

void fill(IgmpProtocolStatus* ps, Kiv::Seconds now) {
  auto s = ps->contextStatusIs(VlanId(10));
  s->noQuerierLogInfoIs(NoQuerierLogInfo{IpAddr(10, 0, 0, 1), IntfId("Ethernet1"), IpAddr(239, 1, 1, 1)});
  auto q = s->querierIs(IpAddr(10, 0, 0, 254));
  q->intfIs(IntfId("Ethernet3"));
  q->oldIntfIs(IntfId("Ethernet4"));
  q->firstHeardIs(now - 100);
  q->lastHeardIs(now - 1);
  q->lifeIs(255.0);
  q->expireIs(now + 254);
  q->routerTypeIs(routerTypeDvmrp);
  s->queryResponseIntervalIs(2.5);
  s->confidentIs(true);
  auto r = s->routerIs(IpAddr(10, 0, 0, 253));
  r->intfIs(IntfId("Port-Channel1"));
  r->oldIntfIs(IntfId("Ethernet5"));
  r->firstHeardIs(now - 50);
  r->lastHeardIs(now - 0.5);
  r->lifeIs(105.0);
  r->expireIs(now + 104.5);
  r->routerTypeIs(routerTypePim);
  s->reportFloodingEnabledIs(true);
  auto intf = s->groupIs(IpAddr(232, 1, 1, 1))->intfIs(IntfId("Ethernet1"));
  intf->staticEntryIs(true);
  intf->lowestVersionIs(Gmp::Igmp::igmpVersion2);
  auto m = intf->membershipIs(IpAddr(10, 0, 0, 1));
  m->stateIs(checkingGotReport);
  m->igmpVersionIs(Gmp::Igmp::igmpVersion3);
  m->filterModeIs(Gmp::Igmp::filterModeInclude);
  m->firstReportIs(now - 30);
  m->lastReportIs(now - 0.123456);
  m->expireIs(now + 259.876544);
  m->sourceIs(IpAddr(1, 1, 1, 1))->sourceAgeIs(2);
  m->sourceIs(IpAddr(1, 1, 1, 2));
  intf->membershipIs(IpAddr(10, 0, 0, 2))->lastReportIs(now);
  intf->oldIntfIs(IpAddr(10, 0, 0, 2), IntfId("Ethernet2"));
  intf->oldIntfRefCountIs(IntfId("Ethernet2"), 1);
  s->groupIs(IpAddr(239, 1, 1, 1))->intfIs(IntfId("Ethernet2"))->membershipIs(IpAddr(10, 0, 0, 3));
  s->groupLimitExceededIs(true);
  s->groupLimitExceededExpireIs(now + 500);
  s->querierNotPresentExpireIs(now + 20);
  s->querierVersionIs(Gmp::Igmp::igmpVersion3);
  s->lastQueryRobustnessIs(4);
  s->lastQueryQueryIntervalIs(0x8f);
  s->latestQueryIs("0100 5e00 0001|1,2");
  s->newIgmpReportInc(41);
  s->groupListIs(IpAddr(232, 1, 1, 1), true);
  s->groupListIs(IpAddr(239, 1, 1, 1), true);
  s->peerGroupListIs(IpAddr(239, 2, 2, 2), true);
  s->switchPortIs(IntfId("Ethernet9"), true);
  s->glueStateIs(snoopingStateActive);
  s->coreSmStateRebuildingIs(true);
  s->configuredRobustnessIs(3);
  s->configuredQueryIntervalIs(60);
  s->configuredRestartQueryIntervalIs(6.25);
  ps->contextStatusIs(VlanId(4094))->querierNotPresentExpireIs(now);
}

void fill(IgmpProtocolConfig* pc) {
  auto c = pc->contextConfigIs(VlanId(10));
  c->proxyEnabledIs(true);
  c->queryIntervalIs(60.0);
  c->restartQueryIntervalIs(6.0);
  c->robustnessIs(3);
  c->immediateLeaveIs(true);
  c->deferConfidenceIs(true);
  c->maxGroupsIs(10);
  pc->intfConfigIs(IntfId("Ethernet7"))->profileNameIs("p=1|2");
}

void fill(Status* st, Kiv::Seconds now) {
  auto v = st->vlanStatusIs(VlanId(10));
  v->ethGroupIs(EthAddr(0x0100, 0x5e01, 0x0101))->groupIntfIs(IntfId("Ethernet1"), true);
  v->routerIntfIs(IntfId("Ethernet3"), true);
  v->useVlanFloodsetIs(true);
  st->counterUpdateTimeIs(now);
}

void fill(SyncStatus* ss, Kiv::Seconds now) {
  auto v = ss->vlanStatusIs(VlanId(20));
  v->ethGroupIs(EthAddr(0x0100, 0x5e02, 0x0202))->groupIntfIs(IntfId("Ethernet2"), true);
  v->routerIntfIs(IntfId("Port-Channel2"), true);
  auto rep = v->negStatusIs(IpAddr(239, 2, 2, 2))
                 ->intfStatusIs(IntfId("Ethernet2"))
                 ->repStatusIs(IpAddr(10, 2, 0, 1));
  rep->modeIs(IgmpV3ModeState{Gmp::Igmp::filterModeInclude, now - 3});
  rep->srcIs(IpAddr(0, 0, 0, 0), now - 2);
}

void fill(IgmpCounterDir* cd) {
  auto c = cd->intfCounterIs("Ethernet1");
  uint32_t n = 1;
  // Every counter a different value, through the table, so that a counter added later is covered.
  for (const Kiv::AttrInfo& a : c->typeInfo().attrs) a.textIs(*c, std::to_string(n++));
}

void fill(IgmpProfile::ProfileConfig* pc) {
  auto p = pc->profileIs("video");
  p->rangesIs(IgmpProfile::Range{IpAddr(239, 0, 0, 0), IpAddr(239, 0, 0, 255)}, true);
  p->denyRangesIs(true);
}

template <class T>
T* rootAt(const std::vector<Kiv::Ptr<Kiv::Entity>>& roots, size_t i) {
  return static_cast<T*>(roots[i].ptr());
}

}  // namespace

std::vector<Kiv::Ptr<Kiv::Entity>> modelRoots() {
  return {Kiv::make<Config>("config"),
          Kiv::make<SwForceConfig>("swForceConfig"),
          Kiv::make<CounterConfig>("counterConfig"),
          Kiv::make<HwConfig>("hwConfig"),
          Kiv::make<IgmpProtocolConfig>("protocolConfig"),
          Kiv::make<IgmpProtocolStatus>("protocolStatus"),
          Kiv::make<Status>("status"),
          Kiv::make<SyncStatus>("advertisedstatus"),
          Kiv::make<IgmpCounterDir>("counterDir"),
          Kiv::make<IgmpProfile::ProfileConfig>("profileConfig"),
          Kiv::make<IntfCollection>("intfCollection"),
          Kiv::make<OrderedIntfCollection>("orderedIntfCollection"),
          Kiv::make<InterfaceStatus>("interfaceStatus")};
}

std::vector<Kiv::Ptr<Kiv::Entity>> modelSample(Kiv::Seconds now) {
  std::vector<Kiv::Ptr<Kiv::Entity>> roots = modelRoots();
  fill(rootAt<Config>(roots, 0));
  auto sw = rootAt<SwForceConfig>(roots, 1);
  sw->forceEnabledPortsIs(IntfId("Ethernet6"), true);
  rootAt<CounterConfig>(roots, 2)->counterUpdateRequestTimeIs(now);
  auto hw = rootAt<HwConfig>(roots, 3);
  hw->swFloodPimWithCoreIs(true);
  hw->swFloodLinkLocalWithCoreIs(true);
  hw->swFloodIgmpNoCoreIs(true);
  hw->swFloodPimNoCoreIs(true);
  hw->swFloodOtherNoCoreIs(true);
  fill(rootAt<IgmpProtocolConfig>(roots, 4));
  fill(rootAt<IgmpProtocolStatus>(roots, 5), now);
  fill(rootAt<Status>(roots, 6), now);
  fill(rootAt<SyncStatus>(roots, 7), now);
  fill(rootAt<IgmpCounterDir>(roots, 8));
  fill(rootAt<IgmpProfile::ProfileConfig>(roots, 9));
  rootAt<IntfCollection>(roots, 10)->intfIs(IntfId("Ethernet1"), true);
  rootAt<OrderedIntfCollection>(roots, 11)->intfIs(IntfId("Ethernet2"), intfTypeStatic);
  rootAt<InterfaceStatus>(roots, 12)->intfAddrIs(IpAddr(10, 0, 0, 100), true);
  return roots;
}

}  // namespace TestSupport
