// The core's life: start and restart, the machine tree, queries and the querier, routers, confidence,
// and interfaces coming and going.
#include "core/CoreSm.h"

#include <algorithm>
#include <limits>

#include "core/CorePeerSyncSm.h"
#include "core/CoreQuerierSm.h"
#include "core/CoreRouterSm.h"
#include "core/CoreTrace.h"
#include "core/IntfQuerySpoofer.h"
#include "kernel/ActivityManager.h"
#include "model/Logs.h"

namespace Bridging::IgmpSnooping {

using Gmp::Igmp::filterModeExclude;
using Gmp::Igmp::filterModeInclude;
using Lomax::IntfId;
using Lomax::IpAddr;

Kiv::TraceHandle coreTrace("IgmpSnoopingCore", false);
Kiv::TraceHandle syncTrace("IgmpSnoopingSync", false);
Kiv::TraceHandle packetTrace("IgmpSnoopingPacket", false);
Kiv::TraceHandle groupTimerTrace("IgmpSnoopingGroupTimer", false);
Kiv::TraceHandle restoreTrace("IgmpSnoopingRestore", false);

namespace {
// Ring sizes (KiB per trace level) of the ring trace that the first core opens if nobody has.
const std::vector<uint32_t> ringSizes(10, 30);
// How long the replay waits for the answers to its last query, in query response intervals.
constexpr double restartResponseWait = 1.1;
}  // namespace

CoreSm::CoreSm(Kiv::Ptr<Config const> config, Kiv::Ptr<IgmpContextStatus> status,
               Kiv::Ptr<IgmpCounterDir> counterDir, Kiv::Ptr<IgmpContextConfig const> contextConfig,
               Kiv::Ptr<IgmpProfile::ProfileConfig const> profileConfig,
               Kiv::Ptr<Bez::TimerWheel const> timerWheel, Kiv::Ptr<Bez::TimerWheel const> timerWheel2)
    : config_(std::move(config)),
      status_(std::move(status)),
      counterDir_(std::move(counterDir)),
      contextConfig_(std::move(contextConfig)),
      profileConfig_(std::move(profileConfig)),
      timerWheel_(std::move(timerWheel)),
      timerWheel2_(std::move(timerWheel2)),
      kivStatus_(this),
      moreConfidenceClock_(this),
      coreSmRestoreTimer_(this),
      querierNotPresentTimer_(this),
      groupLimitExceededTimer_(this) {
  // A status that is already confident means the agent restarted under it; a new VLAN's is not.
  status_->coreSmStateRebuildingIs(status_->confident());
  moreConfidenceClock_.notifierIs(timerWheel_->clock());
  coreSmRestoreTimer_.notifierIs(timerWheel_);
  querierNotPresentTimer_.notifierIs(timerWheel2_);
  groupLimitExceededTimer_.notifierIs(timerWheel_);
  kivStatus_.kivInterestIs(IgmpContextStatus::NotifieeConst::kivInterestOf<KivStatus>());
  kivStatus_.notifierIs(status_);
  handleInitialized();
}

void CoreSm::initializedIs(bool on) {
  if (on == initialized_) return;
  initialized_ = on;
  handleInitialized();
}

CoreSm::~CoreSm() = default;

void CoreSm::kivZombieChildren(bool on) {
  Kiv::smZombieAll(groupSm_, on);
  Kiv::smZombieAll(routerSm_, on);
  Kiv::smZombieAll(intfQuerySpoofer_, on);
  if (querierSm_) querierSm_->kivDoZombieReactors(on);
}

Bridging::VlanId CoreSm::vlanId() const {
  return contextConfig_ ? contextConfig_->vlanId() : Bridging::VlanId(1);
}

Kiv::Seconds CoreSm::now() const { return Kiv::System::currentTime(); }

bool CoreSm::isPeerLink(IntfId intf) const {
  return syncSm_ && syncSm_->mlagInfo() && syncSm_->mlagInfo()->peerLinkIntf() == intf;
}

void CoreSm::handleInitialized() {
  KIV_TRACE_FUNC(coreTrace);
  moreConfidenceClock_.timeMinIs(Kiv::infinity);
  if (!initialized_) return;
  if (!Vellum::snoopVlHandle)
    Vellum::snoopVlHandle = Vellum::initialize_handle("IgmpSnoopingDetailed", ringSizes);
  for (auto& e : enabledIntf_.iter()) handleEnabledIntf(e.key());
  for (auto it = status_->groupIter().begin(); it; ++it) {
    Kiv::Ptr<IgmpGroup> group = it.currNodeNonStale();
    if (!group) continue;
    KIV_TRACE(restoreTrace, 9, "Iterating over group " << it.key());
    for (auto is = group->intfIter().begin(); is; ++is) {
      if (enabledIntf(is.key())) continue;
      KIV_RING(2, "Interface " << is.key() << " status for group " << it.key() << " on Vlan " << vlanId()
                               << " deleted.");
      group->intfDel(is.key());
    }
    if (group->intfSize()) {
      KIV_TRACE(restoreTrace, 9, "Handling the group.");
      handleGroup(it.key());
    } else {
      KIV_RING(2, "No interfaces on group " << it.key() << " on Vlan " << vlanId()
                                            << ", so deleting group status.");
      status_->groupDel(it.key());
    }
  }
  for (auto it = status_->routerIter().begin(); it; ++it) {
    Kiv::Ptr<MulticastRouter> router = it.currNodeNonStale();
    if (!router) continue;
    if (!enabledIntf(router->intf())) {
      KIV_RING(2, "Multicast router " << it.key() << " on interface " << router->intf() << " on Vlan "
                                      << vlanId() << " deleted.");
      status_->routerDel(it.key());
      continue;
    }
    handleRouter(it.key());
    router->expireIs(now() + router->life());
  }
  handleQuerier();
  if (querierSm_) querierSm_->handleQuerierExpire();
  if (status_->groupLimitExceeded()) handleGroupLimitExceededExpire();
  handleQuerierNotPresentExpire();
  if (status_->confident()) confidenceIs(status_->robustness());
  if (coreSmStateRebuilding()) handleCoreSmRestoreTimer();
}

// --- the machine tree -------------------------------------------------------------------------------

void CoreSm::handleGroup(IpAddr addr) {
  if (!initialized_) return;
  KIV_TRACE(groupTimerTrace, 8, "void Bridging::IgmpSnooping::CoreSm::handleGroup(Lomax::IpAddr) " << addr);
  if (Kiv::Ptr<IgmpGroup> group = status_->group(addr)) {
    status_->groupListIs(addr, true);
    Kiv::smIs(groupSm_, *this, addr, group, this);
  } else {
    Kiv::smDel(groupSm_, addr);
    status_->groupListDel(addr);
  }
}

void CoreSm::handleGroup() {
  if (!initialized_) return;
  for (auto it = groupSm_.begin(); it; ++it) {
    if (!status_->group(it.key())) handleGroup(it.key());
  }
  for (auto it = status_->groupIter().begin(); it; ++it) handleGroup(it.key());
}

// --- queries and the querier ------------------------------------------------------------------------

CoreSm::GroupAddressFloodTypePair CoreSm::doIgmpMembershipQueryProcess(const Gmp::Igmp::IgmpQuery& query,
                                                                       IntfId intf,
                                                                       GroupAddressFloodTypePair gaftp) {
  KIV_TRACE_FUNC(coreTrace);
  const bool v3 = query.version() == Gmp::Igmp::igmpVersion3;
  status_->lastQueryRobustnessIs(v3 ? query.robustness() : 0);
  status_->lastQueryQueryIntervalIs(v3 ? query.queryIntervalCode() : 0);
  if (isProxySuppressed(intf)) return gaftp;

  const bool proxy = contextConfig_ && contextConfig_->proxyEnabled();
  const bool honoured = !query.suppressRouterSideProcessing() || proxy;
  const IpAddr group = query.group();
  if (!group.isZero()) {
    if (!honoured) return gaftp;
    gaftp = GroupAddressFloodTypePair{group, floodTypeMembers};
    Kiv::Ptr<IgmpGroup> g = status_->group(group);
    if (!g) return gaftp;
    if (query.numSources() == 0) {
      const Kiv::Seconds expire = now() + Kiv::Seconds(status_->robustness()) * query.maxResponseSeconds();
      for (auto& is : g->intfIter()) {
        for (auto& m : is->membershipIter()) {
          if (m->filterMode() != filterModeExclude || m->igmpVersion() != Gmp::Igmp::igmpVersion2 ||
              m->state() != membershipStateMember) {
            continue;
          }
          m->expireIs(expire);
          m->stateIs(checkingMembership);
        }
      }
    } else {
      const uint32_t lastAge = status_->robustness() - 1;
      for (auto& is : g->intfIter()) {
        for (auto& m : is->membershipIter()) {
          if (m->igmpVersion() != Gmp::Igmp::igmpVersion3 || m->state() != membershipStateMember) continue;
          for (IpAddr s : query.sources()) {
            Kiv::Ptr<IgmpSourceMembership> sm = m->source(s);
            if (sm && sm->sourceAge() < lastAge) sm->sourceAgeIs(lastAge);
          }
        }
      }
    }
    return gaftp;
  }

  if (query.suppressRouterSideProcessing() && !proxy) return gaftp;
  const uint32_t robustness = status_->robustness();
  // Exclude memberships without sources have nothing to age: only the set of the others is walked.
  // Ending a membership or its last source takes it out of the set under the iterator.
  for (auto it = agingMembership_.begin(); it; ++it) {
    CoreMembershipSm* const* sm = it.value();
    if (!sm) continue;
    const Kiv::Ptr<IgmpMembership> m = (*sm)->membership();
    if (!m->parent()) continue;  // ended; its machine is on its way out
    const Kiv::Ptr<IgmpIntfStatus> is = (*sm)->intfSm()->intfStatus();
    const IpAddr group = (*sm)->intfSm()->groupSm()->addr();
    if (!m->sourceSize()) {
      if (m->filterMode() == filterModeInclude) doIgmpGroupNoInfoMembership(group, is, m);
      continue;
    }
    for (auto si = m->sourceIter().begin(); si; ++si) {
      Kiv::Ptr<IgmpSourceMembership> s = si.currNodeNonStale();
      if (!s) continue;
      if (s->sourceAge() >= robustness) {
        KIV_TRACE(coreTrace, 9, "Deleteing source " << si.key());
        m->sourceDel(si.key());
      } else {
        KIV_TRACE(coreTrace, 9, "Incrementing source " << si.key());
        s->sourceAgeIs(s->sourceAge() + 1);
      }
    }
    if (m->filterMode() == filterModeInclude && !m->sourceSize()) doIgmpGroupNoInfoMembership(group, is, m);
  }
  status_->queryResponseIntervalIs(query.maxResponseCode() ? query.maxResponseSeconds() : 10.0);
  if (!contextConfig_ || !contextConfig_->deferConfidence()) confidenceIs(status_->robustness());
  return gaftp;
}

void CoreSm::doQuerierElection(IntfId intf, Lomax::IpHdr ipHdr, Lomax::IgmpV12Hdr,
                               Gmp::Igmp::IgmpVersion igmpVersion) {
  KIV_TRACE_FUNC(coreTrace);
  const IpAddr source = ipHdr.src();
  if (source.isZero()) {
    KIV_TRACE(coreTrace, 6, "Ignoring Query from 0.0.0.0 for Querier Election");
    return;
  }
  Kiv::Ptr<MulticastRouter> existing = status_->querier();
  const IpAddr current = existing ? existing->addr() : IpAddr();
  const Kiv::Seconds t = now();
  if (existing && current < source) {
    // The lowest address wins, unless its time is nearly up or its port has gone.
    if (existing->expire() > t + status_->queryInterval() && enabledIntf(existing->intf())) {
      KIV_TRACE(coreTrace, 9, "Existing querier " << current << " wins election");
      return;
    }
  }
  if (existing && current == source) {
    KIV_TRACE(coreTrace, 9, "Existing querier " << current << " refreshing");
  } else {
    KIV_TRACE(coreTrace, 6, "New querier " << source << " wins over " << current << " on Vlan " << vlanId());
    existing = status_->querierIs(source);
    existing->firstHeardIs(t);
  }
  status_->querierVersionIs(igmpVersion);
  existing->intfIs(intf);
  existing->lastHeardIs(t);
  existing->expireIs(t + status_->otherQuerierPresentInterval() + 0.5 * status_->queryResponseInterval());
}

void CoreSm::handleQuerier() {
  if (!initialized_) return;
  if (Kiv::Ptr<MulticastRouter> querier = status_->querier()) {
    KIV_TRACE(coreTrace, 8, "instantiate querierSm");
    if (!querierSm_ || !querierSm_->kivSameArgs(querier, status_, timerWheel_)) {
      if (querierSm_) querierSm_->kivDoZombieReactors(true);
      querierSm_ = Kiv::make<CoreQuerierSm>(querier, status_, timerWheel_);
      querierSm_->kivDoZombieReactors(kivMarkedForDeletion());
    }
    status_->querierNotPresentExpireIs(Kiv::infinity);
  } else {
    KIV_TRACE(coreTrace, 8, "handle deleted querier");
    status_->querierVersionIs(Gmp::Igmp::igmpVersionUnknown);
    status_->queryResponseIntervalIs(10.0);
    confidenceIs(0);
  }
}

void CoreSm::handleQuerierNotPresentExpire() {
  if (!initialized_) return;
  const Kiv::Seconds expire = status_->querierNotPresentExpire();
  if (Kiv::isNever(expire)) {
    KIV_TRACE(coreTrace, 9, "Disabling the querierNotPresent timer");
  } else {
    KIV_TRACE(coreTrace, 9,
              "Starting querierNotPresent timer with timeout period = " << expire - now() << " sec");
  }
  querierNotPresentTimer_.timeMinIs(expire);
}

void CoreSm::handleQuerierNotPresentTimer() {
  KIV_TRACE(coreTrace, 8, " querierNotPresent timer has expired.");
  if (!status_->querier()) {
    const NoQuerierLogInfo info = status_->noQuerierLogInfo();
    Kiv::log(IGMPSNOOPING_NO_IGMP_QUERIER, vlanId().value(), info.reporter, info.intf, info.group);
  }
  status_->querierNotPresentExpireIs(Kiv::infinity);
  status_->noQuerierLogInfoIs(NoQuerierLogInfo());
}

// --- routers ------------------------------------------------------------------------------------------

CoreRouterSm* CoreSm::routerSm(IpAddr addr) const { return routerSm_.find(addr); }

void CoreSm::doMulticastRouter(IpAddr addr, IntfId intf, Kiv::Seconds life, MulticastRouterType type) {
  KIV_TRACE_FUNC(coreTrace);
  if (isPeerLink(intf)) {
    KIV_TRACE(coreTrace, 9,
              "Ignoring multicast router " << addr << " (" << type << ") on mlag peer link " << intf);
    return;
  }
  const Kiv::Seconds t = now();
  Kiv::Ptr<MulticastRouter> existing = status_->router(addr);
  if (!existing) {
    KIV_TRACE(coreTrace, 6, "New multicast router " << addr << " (" << type << ") on " << intf);
    KIV_RING(2, "New multicast router " << addr << " (" << type << ") on interface " << intf << " on Vlan "
                                        << vlanId());
    existing = status_->routerIs(addr);
    existing->firstHeardIs(t);
  } else if (existing->routerType() < type) {
    KIV_TRACE(coreTrace, 9,
              "Not overwriting " << existing->routerType() << " with " << type << " for " << addr);
    return;
  } else if (existing->routerType() == type) {
    ::IgmpSnooping::IntfStateControl::MoveDecision decision = ::IgmpSnooping::IntfStateControl::noOpinion;
    if (intfStateControl_ && existing->intf() != intf) {
      for (auto& c : intfStateControl_->controlIter()) {
        decision = c->routerMove(addr, existing->intf(), intf);
        if (decision == ::IgmpSnooping::IntfStateControl::doNotMove) {
          KIV_TRACE(coreTrace, 9,
                    "Router " << addr << " not moving from " << existing->intf() << " to " << intf);
          break;
        }
        if (decision == ::IgmpSnooping::IntfStateControl::move) {
          KIV_TRACE(coreTrace, 9, "Router " << addr << " moving from " << existing->intf() << " to " << intf);
          break;
        }
      }
    }
    // Within a second of the last packet neither a move nor a refresh happens.
    if (existing->lastHeard() + 1.0 > t && decision != ::IgmpSnooping::IntfStateControl::move) {
      KIV_TRACE(coreTrace, 9, "Router " << addr << " not moving from " << existing->intf() << " to " << intf);
      return;
    }
  }
  KIV_TRACE(coreTrace, 9, "Refreshing multicast router " << addr << " (" << type << ") on " << intf);
  existing->routerTypeIs(type);
  existing->intfIs(intf);
  existing->oldIntfIs(Lomax::emptyIntfId);
  existing->lastHeardIs(t);
  existing->lifeIs(life);
  existing->expireIs(t + life);
}

void CoreSm::handleRouter(IpAddr addr) {
  if (!initialized_) return;
  if (Kiv::Ptr<MulticastRouter> router = status_->router(addr)) {
    Kiv::smIs(routerSm_, *this, addr, router, timerWheel_, timerWheel_, this);
  } else {
    Kiv::smDel(routerSm_, addr);
  }
}

void CoreSm::handleRouter() {
  if (!initialized_) return;
  for (auto it = routerSm_.begin(); it; ++it) {
    if (!status_->router(it.key())) handleRouter(it.key());
  }
  for (auto it = status_->routerIter().begin(); it; ++it) handleRouter(it.key());
}

// --- confidence and restart ---------------------------------------------------------------------------

void CoreSm::confidenceIs(uint32_t c) {
  if (c == confidence_) return;
  confidence_ = c;
  handleConfidence();
}

void CoreSm::confidenceInc(uint32_t d) { confidenceIs(confidence_ + d); }

void CoreSm::handleConfidence() {
  if (!initialized_) return;
  status_->confidentIs(confidence_ >= status_->robustness());
  KIV_TRACE(coreTrace, 6, "confident becomes " << status_->confident());
}

void CoreSm::confidenceIncDelayIs(Kiv::Seconds d) {
  confidenceIncDelay_ = d;
  handleConfidenceIncDelay();
}

void CoreSm::handleConfidenceIncDelay() {
  if (initialized_ && confidenceIncDelay_ != 0) moreConfidence();
}

void CoreSm::moreConfidence() {
  if (Kiv::isNever(moreConfidenceClock_.timeMin())) {
    moreConfidenceClock_.timeMinIs(now() + confidenceIncDelay_);
  } else {
    KIV_TRACE(coreTrace, 9, " timer already running with expiry " << moreConfidenceClock_.timeMin());
  }
}

void CoreSm::handleMoreConfidenceClock() {
  if (!initialized_) return;
  confidenceInc(1);
  confidenceIncDelayIs(0.0);
}

void CoreSm::handleCoreSmRestoreTimer() {
  if (!initialized_) return;
  // However large the configured robustness, the replay ends: the count is bounded by what its
  // counter can hold.
  const uint32_t robustness =
      std::min<uint32_t>(status_->robustness(), std::numeric_limits<decltype(queriesSentForRestart_)>::max());
  KIV_TRACE(restoreTrace, 6,
            " Restoring state is " << coreSmStateRebuilding()
                                   << ", queries sent for restart: " << unsigned(queriesSentForRestart_)
                                   << ", status confident: " << status_->confident()
                                   << ", vlanId: " << vlanId()
                                   << ", robustness (expected number of queries): " << robustness);
  Kiv::Ptr<MulticastRouter> querier = status_->querier();
  if (querier && queriesSentForRestart_ < robustness) {
    KIV_TRACE(restoreTrace, 6, "Sending a query");
    if (status_->latestQuery().empty()) {
      KIV_TRACE(restoreTrace, 6, "Did not find query");
    } else {
      KIV_TRACE(restoreTrace, 6, "Found query to send");
      Kiv::Ptr<Lomax::Pkt> pkt = Lomax::globalPktManager().newPkt();
      if (!pkt->stringValueIs(status_->latestQuery(), false)) {
        KIV_TRACE(restoreTrace, 6, "Stored query is not a frame: " << status_->latestQuery());
      } else {
        doFlood(pkt, floodTypeVlan, querier->intf(), Lomax::emptyIntfId, pktTypeQuery, IpAddr(), true,
                flooder_);
        querier->expireIs(now() + status_->otherQuerierPresentInterval() +
                          0.5 * status_->queryResponseInterval());
      }
    }
    ++queriesSentForRestart_;
    if (queriesSentForRestart_ < robustness) {
      KIV_TRACE(restoreTrace, 6, "Reseting the restore timer");
      doResetCoreSmRestoreTimer();
    } else {
      const Kiv::Seconds at = now() + restartResponseWait * status_->queryResponseInterval();
      coreSmRestoreTimer_.timeMinIs(at);
      KIV_TRACE(restoreTrace, 6, "Set the restore timer to " << at << ", now " << now());
    }
    return;
  }
  KIV_RING(2, "CoreSm restored ");
  coreSmRestoreTimer_.timeMinIs(Kiv::infinity);
  KIV_TRACE(restoreTrace, 6, "Starting to review group list at " << now());
  doReviewGroupList();
  KIV_TRACE(restoreTrace, 6, "Finished reviewing group listat " << now());
  coreSmStateRebuildingIs(false);
}

void CoreSm::doResetCoreSmRestoreTimer() {
  const Kiv::Seconds at = now() + status_->restartQueryInterval();
  coreSmRestoreTimer_.timeMinIs(at);
  KIV_TRACE(restoreTrace, 6, "Set the restore timer to " << at << ", now " << now());
}

// Drops the entries of groupList that have no group any more.
void CoreSm::doReviewGroupList() {
  for (auto it = status_->groupListIter().begin(); it; ++it) {
    if (!status_->group(it.key())) status_->groupListDel(it.key());
  }
}

void CoreSm::createIntfQuerySpoofer(IntfId intf) {
  KIV_TRACE_FUNC(coreTrace);
  if (coreSmStateRebuilding()) return;
  if (!status_->querier() || status_->latestQuery().empty()) return;
  Kiv::smIs(intfQuerySpoofer_, *this, intf, config_, Kiv::Ptr<IgmpContextStatus const>(status_), timerWheel_,
            this);
}

IntfQuerySpoofer* CoreSm::intfQuerySpoofer(IntfId intf) const { return intfQuerySpoofer_.find(intf); }

void CoreSm::intfQuerySpooferDel(IntfId intf) { Kiv::smDel(intfQuerySpoofer_, intf); }

// --- interfaces -----------------------------------------------------------------------------------------

// Only true values are stored: a port written false and a port never seen are the same.
void CoreSm::enabledIntfIs(IntfId intf, bool on) {
  if (on ? enabledIntf_.set(intf, true) : enabledIntf_.erase(intf)) handleEnabledIntf(intf);
}

void CoreSm::enabledIntfDel(IntfId intf) { enabledIntfIs(intf, false); }

void CoreSm::enabledIntfDelAll() {
  for (auto it = enabledIntf_.begin(); it; ++it) enabledIntfDel(it.key());
}

void CoreSm::handleEnabledIntf(IntfId intf) {
  if (!initialized_) return;
  if (!enabledIntf(intf)) {
    handleDisabledIntf(intf, false);
    return;
  }
  KIV_TRACE(coreTrace, 6,
            "CoreSm::"
                << "handleEnabledIntf"
                << ": " << intf << " is enabled");
  counterDir_->intfCounterIs(intf.stringValue());
  for (auto& r : status_->routerIter()) {
    if (r->oldIntf() != intf) continue;
    KIV_RING(2, "Multicast router " << r.key() << " on Vlan " << vlanId() << " moved back from " << r->intf()
                                    << " to " << intf);
    r->intfIs(r->oldIntf());
    r->oldIntfIs(Lomax::emptyIntfId);
  }
}

void CoreSm::handleDisabledIntf(IntfId intf, bool overrideDownState) {
  KIV_TRACE(coreTrace, 6,
            "CoreSm::"
                << "handleDisabledIntf"
                << ": " << intf << " is disabled");
  intfQuerySpooferDel(intf);
  IntfId moveToIntf;
  if (intfStateControl_) {
    for (auto& c : intfStateControl_->controlIter()) {
      moveToIntf = c->moveToIntf(intf, overrideDownState);
      if (moveToIntf) break;
    }
    if (moveToIntf) {
      KIV_ASSERT(moveToIntf != intf);
      KIV_TRACE(coreTrace, 6, "Moving state to " << moveToIntf);
    }
  }
  for (auto it = status_->routerIter().begin(); it; ++it) {
    Kiv::Ptr<MulticastRouter> r = it.currNodeNonStale();
    if (!r || r->intf() != intf) continue;
    if (moveToIntf) {
      KIV_RING(2, "Multicast router " << it.key() << " on Vlan " << vlanId() << " moved from " << intf
                                      << " to " << moveToIntf);
      r->oldIntfIs(intf);
      r->intfIs(moveToIntf);
    } else {
      KIV_RING(2, "Multicast router " << it.key() << " on interface " << intf << " on Vlan " << vlanId()
                                      << " deleted.");
      status_->routerDel(it.key());
    }
  }
  for (auto it = status_->groupIter().begin(); it; ++it) {
    Kiv::Ptr<IgmpGroup> group = it.currNodeNonStale();
    Kiv::Ptr<IgmpIntfStatus> from = group ? group->intf(intf) : nullptr;
    if (!from) continue;
    if (moveToIntf && !from->staticEntry()) {
      KIV_TRACE(coreTrace, 6, "About to move memberships...");
      KIV_RING(2, "Memberships of group " << it.key() << " on Vlan " << vlanId() << " on interface " << intf
                                          << " are moving to interface " << moveToIntf);
      Kiv::Ptr<IgmpIntfStatus> to = group->intfIs(moveToIntf);
      moveMemberships(from, to);
      KIV_TRACE(coreTrace, 6,
                "Intf " << moveToIntf << " has " << from->membershipSize() << " memberships moved from "
                        << intf << ". Total # of old interfaces is " << to->oldIntfRefCountSize());
    }
    KIV_RING(2, "Interface " << intf << " status for group " << it.key() << " on Vlan " << vlanId()
                             << " deleted.");
    group->intfDel(intf);
  }
  status_->querierNotPresentExpireIs(Kiv::infinity);
}

void CoreSm::moveMemberships(const Kiv::Ptr<IgmpIntfStatus const>& from, const Kiv::Ptr<IgmpIntfStatus>& to) {
  KIV_TRACE(coreTrace, 8, "moveMemberships from " << from->intf() << " to " << to->intf());
  if (from->lowestVersion() < to->lowestVersion()) to->lowestVersionIs(from->lowestVersion());
  for (auto& fm : from->membershipIter()) {
    const IpAddr reporter = fm.key();
    Kiv::Ptr<IgmpMembership> m = to->membershipIs(reporter);
    m->firstReportIs(fm->firstReport());
    m->lastReportIs(fm->lastReport());
    m->expireIs(fm->expire());
    m->stateIs(fm->state());
    m->igmpVersionIs(fm->igmpVersion());
    m->filterModeIs(fm->filterMode());
    for (auto& fs : fm->sourceIter()) {
      Kiv::Ptr<IgmpSourceMembership> s = m->sourceIs(fs.key());
      KIV_ASSERT(s);
      s->sourceAgeIs(fs->sourceAge());
    }
    if (to->oldIntf(reporter)) removeOldIntfInfo(to, reporter);
    to->oldIntfIs(reporter, from->intf());
    to->oldIntfRefCountInc(from->intf(), 1);
  }
}

void CoreSm::agingMembershipIs(CoreMembershipSm& sm, bool aging) {
  if (aging == (sm.agingKey() != 0)) return;
  if (!aging) {
    agingMembership_.erase(sm.agingKey());
    sm.agingKeyIs(0);
    return;
  }
  // Keys are handed out in turn; after four billion they wrap around past those still in use.
  do {
    ++lastAgingKey_;
  } while (lastAgingKey_ == 0 || agingMembership_.find(lastAgingKey_));
  agingMembership_.set(lastAgingKey_, &sm);
  sm.agingKeyIs(lastAgingKey_);
}

void CoreSm::removeOldIntfInfo(const Kiv::Ptr<IgmpIntfStatus>& intfStatus, IpAddr reporter) {
  const IntfId oldIntfId = intfStatus->oldIntf(reporter);
  if (!oldIntfId) return;
  KIV_ASSERT_TEXT(intfStatus->oldIntfRefCount(oldIntfId), "intfStatus->oldIntfRefCount( oldIntfId )");
  intfStatus->oldIntfRefCountDec(oldIntfId, 1);
  if (intfStatus->oldIntfRefCount(oldIntfId) == 0) intfStatus->oldIntfRefCountDel(oldIntfId);
  KIV_TRACE(coreTrace, 9,
            "On intf " << intfStatus->intf() << ", delete old info for " << reporter
                       << ". Number of old memberships left from " << oldIntfId << " is "
                       << intfStatus->oldIntfRefCount(oldIntfId));
  intfStatus->oldIntfDel(reporter);
}

// --- peer seams -----------------------------------------------------------------------------------------

void CoreSm::peerNotifyNegStateMode(IpAddr, IntfId, IpAddr, Gmp::Igmp::IgmpFilterMode) {
  if (!syncSm_) return;
  KIV_TRACE(syncTrace, 8, "peerNotifyNegStateMode");
}

void CoreSm::peerNotifyNegStateSrc(IpAddr, IntfId, IpAddr, IpAddr) {
  if (!syncSm_) return;
  KIV_TRACE(syncTrace, 8, "peerNotifyNegStateSrc");
}

void CoreSm::doPeerIgmpGroupIncludeModeMembership(const Gmp::Igmp::IgmpGroupRecord&, IntfId, IpAddr,
                                                  const Kiv::Ptr<IgmpMembership>&) {
  if (!syncSm_) return;
  KIV_TRACE(syncTrace, 8, "doPeerIgmpGroupIncludeModeMembership");
}

void CoreSm::doPeerIgmpGroupNoInfoMembership(IpAddr, const Kiv::Ptr<IgmpIntfStatus>&,
                                             const Kiv::Ptr<IgmpMembership>&) {
  if (!syncSm_) return;
  KIV_TRACE(syncTrace, 8, "doPeerIgmpGroupNoInfoMembership");
}

std::ostream& operator<<(std::ostream& os, const CoreSm::GroupAddressFloodTypePair& p) {
  return os << "Value('Bridging::IgmpSnooping::CoreSm::GroupAddressFloodTypePair', ** {'groupAddress': "
            << p.groupAddress << ", 'floodType': " << p.floodType << "})";
}

}  // namespace Bridging::IgmpSnooping
