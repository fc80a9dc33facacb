// The VLAN glue's life and configuration: the flooder, the core created and removed with its
// configuration and status, the settings copied into the core, the static entries fed in as if
// learnt, and the ports that the core, the flooder and the multiplexers serve.
#include "glue/GlueVlanSm.h"

#include "glue/GlueVlanSmReactors.h"

#include "core/CoreTrace.h"
#include "glue/GlueTrace.h"

namespace IgmpShim {

using namespace Bridging::IgmpSnooping;
using Lomax::IntfId;
using Lomax::IpAddr;

// --- life --------------------------------------------------------------------------------------------

GlueVlanSm::GlueVlanSm(Kiv::Ptr<TopoVlan const> topoVlan, Bridging::VlanIdOrNone primaryVlan,
                       Kiv::Ptr<VlanConfig const> igmpVlanConfig, Kiv::Ptr<VlanStatus> igmpVlanStatus,
                       Kiv::Ptr<IgmpProtocolConfig> igmpProtocolConfig,
                       Kiv::Ptr<IgmpProtocolStatus> igmpProtocolStatus,
                       Kiv::Ptr<IgmpContextStatus> coreStatus, Kiv::Ptr<IgmpCounterDir> igmpCounterDir,
                       GlueSmBase* glueSm)
    : topoVlan_(std::move(topoVlan)),
      primaryVlan_(primaryVlan),
      igmpVlanConfig_(std::move(igmpVlanConfig)),
      igmpVlanStatus_(std::move(igmpVlanStatus)),
      igmpProtocolConfig_(std::move(igmpProtocolConfig)),
      igmpProtocolStatus_(std::move(igmpProtocolStatus)),
      igmpCounterDir_(std::move(igmpCounterDir)),
      glueSm_(glueSm),
      kivIgmpVlanConfig_(new KivIgmpVlanConfig(this)),
      kivVlanQuerierConfig_(new KivVlanQuerierConfig(this)),
      kivCoreStatus_(new KivCoreStatus(this)),
      kivTopoVlan_(new KivTopoVlan(this)) {
  kivCoreStatus_->kivInterestIs(IgmpContextStatus::NotifieeConst::kivInterestOf<KivCoreStatus>());
  // A status that survived a restart is the core's once the core is made again.
  (void)coreStatus;
}

GlueVlanSm::~GlueVlanSm() {
  if (coreSm_) coreSm_->kivDoZombieReactors(true);
}

void GlueVlanSm::kivZombieChildren(bool on) {
  Kiv::smZombieAll(addrIntfMap_, on);
  if (coreSm_) coreSm_->kivDoZombieReactors(on);
}

Kiv::Ptr<GlueVlanSm> glueVlanSmFactory(
    Kiv::Ptr<Topology::Library::Vlan::TopoVlan const> topoVlan, Bridging::VlanIdOrNone primaryVlan,
    Kiv::Ptr<VlanConfig const> igmpVlanConfig, Kiv::Ptr<VlanStatus> igmpVlanStatus,
    Kiv::Ptr<IgmpProtocolConfig> igmpProtocolConfig, Kiv::Ptr<IgmpProtocolStatus> igmpProtocolStatus,
    Kiv::Ptr<IgmpContextStatus> coreStatus, Kiv::Ptr<IgmpCounterDir> igmpCounterDir, GlueSmBase* glueSm) {
  Kiv::Ptr<GlueVlanSm> sm(new GlueVlanSm(std::move(topoVlan), primaryVlan, std::move(igmpVlanConfig),
                                         std::move(igmpVlanStatus), std::move(igmpProtocolConfig),
                                         std::move(igmpProtocolStatus), std::move(coreStatus),
                                         std::move(igmpCounterDir), glueSm));
  sm->handleInitialized();
  return sm;
}

void GlueVlanSm::handleInitialized() {
  KIV_TRACE(glueTrace, 8, " vlan " << vlanId());
  if (initialized_) return;
  if (!flooder_) {
    flooder_ = Kiv::make<SoftFlooder>(Kiv::Name(std::to_string(vlanId().value())), this,
                                      glueSm_->glueVlanMultiplexerDir());
  }
  kivIgmpVlanConfig_->notifierIs(igmpVlanConfig_);
  if (topoVlan_) {
    for (auto& p : topoVlan_->portIter()) handleTopoPort(p.key());
  }
  kivTopoVlan_->notifierIs(topoVlan_);
  initialized_ = true;
  handleVlanQuerierConfig();
  handleStaticRouter();
  handleStaticMember();
  handleRouterInterface();
  handleFloodset();
  handleVlanIntf();
  handleIgmpSnoopingEnabled();
  handleIgmpIpGroup();
  handleRouter();
  handleIgmpGroup();
  handleConfident();
}

void GlueVlanSm::igmpVlanConfigIs(Kiv::Ptr<VlanConfig const> c) {
  if (c == igmpVlanConfig_) return;
  igmpVlanConfig_ = std::move(c);
  kivIgmpVlanConfig_->notifierIs(igmpVlanConfig_);
  if (!igmpVlanConfig_) {
    // The attach sweep runs only for a live configuration; a removed one is seen here.
    handleIgmpSnoopingEnabled();
    handleIgmpIpGroup();
    handleStaticRouter();
    handleSwitchPort();
    handleMaxGroups();
    handleVlanImmediateLeave();
    handleReportFloodingEnabled();
    handleVlanQuerierConfig();
  }
}

// After a restart's rebuild GlueSm lets each VLAN publish again.
// handleQuerierEnabled makes or removes the querier's configuration as the VLAN wants a querier; the
// values follow, and then the packet path.
void GlueVlanSm::handleSmStateInitialized() {
  KIV_TRACE_FUNC(restoreTrace);
  handleChangeToSnoopingState(vlanId());
  handleVlanIntf();
  handleQuerierEnabled();
  handleVlanQuerierConfig();
  handleProxyVlanConfig();
  handleQuerierSecondaryVlan();
  handleQuerierIpAddr();
  handleMacAddr();
  handleQuerierQueryInterval();
  handleQuerierQueryResponseInterval();
  handleQuerierLastMemberQueryInterval();
  handleQuerierVersion();
  handleQuerierEnabled();
  handleRobustness();
  handleRestartQueryInterval();
  handleStaticMember();
  handleConfident();
  handleState();
}

void GlueVlanSm::handleIgmpSnoopingEnabled() {
  if (!initialized_) return;
  KIV_TRACE(glueTrace, 7, "Igmp vlan config " << vlanId() << " modified snooping state");
  if (igmpVlanConfig_) {
    KIV_TRACE(glueTrace, 7, "  [ state: " << unsigned(igmpVlanConfig_->enabled()) << " ].");
  } else {
    KIV_TRACE(glueTrace, 7, "  [ (config deleted) => state: default ].");
  }
  handleChangeToSnoopingState(vlanId());
}

void GlueVlanSm::handleChangeToSnoopingState(Bridging::VlanId vlan) {
  // A secondary VLAN follows its primary and has no decision of its own.
  if (!initialized_ || !primaryVlan_.isNone()) return;
  KIV_TRACE(glueTrace, 7, "Change to igmp snooping state for " << vlan);
  const auto& config = glueSm_->config();
  auto vlanConfig = config ? config->vlanConfig(vlan) : nullptr;
  if (!vlanConfig) vlanConfig = igmpVlanConfig_;
  if (config && !config->vlanDefaultEnabled()) {
    handleCleanupCore();
  } else if (vlanConfig && vlanConfig->enabled() == vlanStateDisabled) {
    handleCleanupCore();
  } else if (!coreSm_) {
    handleInitializeCore();
  }
}

void GlueVlanSm::handleInitializeCore() {
  const Bridging::VlanId vlan = vlanId();
  KIV_TRACE(glueTrace, 6, "Creating CoreSm, Flooder, Protocol config & status for " << vlan);
  auto contextConfig = igmpProtocolConfig_->contextConfigIs(vlan);
  auto contextStatus = igmpProtocolStatus_->contextStatusIs(vlan);
  // The context's timers must be right before the core looks at them.
  handleRobustness();
  handleQuerierQueryInterval();
  handleRestartQueryInterval();
  if (const auto& status = glueSm_->status()) {
    const bool fresh = !status->vlanStatus(vlan);
    auto vlanStatus = status->vlanStatusIs(vlan);
    // A new VlanStatus floods until the core is confident; one that survived a restart stays as it is.
    if (fresh) vlanStatus->useVlanFloodsetIs(true);
    igmpVlanStatus_ = vlanStatus;
  }
  KIV_TRACE(glueTrace, 6, "Initializing vlan " << vlan << " CoreSm.");
  coreSm_ = Kiv::make<CoreSm>(glueSm_->config(), contextStatus, igmpCounterDir_, contextConfig,
                              glueSm_->profileConfig(), glueSm_->timerWheel(), glueSm_->timerWheel2());
  coreSm_->flooderIs(flooder_);
  coreSm_->intfStateControlIs(glueSm_->intfStateControl());
  coreStatus_ = contextStatus;
  kivCoreStatus_->notifierIs(coreStatus_);
  KIV_TRACE(glueTrace, 6, "Igmp Snooping core protocol state machine created for vlan " << vlan);
  handleVlanIntf();
  handleIgmpIpGroup();
  handleStaticMember();
  handleSwitchPort();
  handleReportFloodingEnabled();
  handleConfident();
  handleMaxGroups();
  handleVlanImmediateLeave();
  coreSm_->initializedIs(true);
  glueSm_->doInitializeSecondaryVlanSms(vlan);
  // The querier's packet path needs the core.
  doQuerierPacketPath();
}

void GlueVlanSm::handleCleanupCore() {
  if (!initialized_ || !coreSm_) return;
  const Bridging::VlanId vlan = vlanId();
  KIV_TRACE(glueTrace, 6, "Deleting CoreSm, Protocol config & status for vlan " << vlan);
  coreSm_->flooderIs(nullptr);
  coreSm_->kivDoZombieReactors(true);
  coreSm_ = nullptr;
  kivCoreStatus_->notifierIs(nullptr);
  coreStatus_ = nullptr;
  igmpGroup_.clear();
  Kiv::smZombieAll(addrIntfMap_, true);
  addrIntfMap_.clear();
  routerInterface_.clear();
  routerPorts_.clear();
  ethernetGroup_.clear();
  igmpProtocolStatus_->contextStatusDel(vlan);
  igmpProtocolConfig_->contextConfigDel(vlan);
  if (igmpVlanStatus_) {
    // The bridge floods before what was published goes.
    igmpVlanStatus_->useVlanFloodsetIs(true);
    for (auto& g : igmpVlanStatus_->ethGroupIter()) igmpVlanStatus_->ethGroupDel(g.key());
    igmpVlanStatus_->routerIntfDelAll();
  }
  igmpVlanStatus_ = nullptr;
  if (const auto& status = glueSm_->status()) status->vlanStatusDel(vlan);
  stateIs(snoopingStateDefault);
  handleVlanIntf();
  doQuerierPacketPath();
}

// --- settings --------------------------------------------------------------------------------------

void GlueVlanSm::handleMaxGroups() {
  if (!initialized_) return;
  auto contextConfig = igmpProtocolConfig_->contextConfig(vlanId());
  if (!contextConfig) return;
  KIV_TRACE(glueTrace, 7, "Igmp vlan config " << vlanId() << " modified maxGroups value");
  if (igmpVlanConfig_) {
    KIV_TRACE(glueTrace, 7, "  [ maxGroups: " << igmpVlanConfig_->maxGroups() << " ].");
    contextConfig->maxGroupsIs(igmpVlanConfig_->maxGroups());
  } else {
    KIV_TRACE(glueTrace, 7, "  [ (config deleted) => maxGroups: default ].");
    contextConfig->maxGroupsIs(IgmpContextConfig(vlanId()).maxGroups());
  }
}

void GlueVlanSm::handleVlanImmediateLeave() {
  if (!initialized_) return;
  auto contextConfig = igmpProtocolConfig_->contextConfig(vlanId());
  if (!contextConfig) return;
  KIV_TRACE(glueTrace, 7, "Igmp vlan config " << vlanId() << " modified immediateLeave value");
  if (!igmpVlanConfig_) {
    KIV_TRACE(glueTrace, 7, "  [ (config deleted) => immediateLeave: default ].");
    contextConfig->immediateLeaveIs(IgmpContextConfig(vlanId()).immediateLeave());
    return;
  }
  const auto setting = igmpVlanConfig_->immediateLeave();
  KIV_TRACE(glueTrace, 7, "  [ immediateLeave: " << unsigned(setting) << " ].");
  // Without a choice of the VLAN's own, the global setting holds.
  const bool on = setting == immediateLeaveDefault ? glueSm_->config() && glueSm_->config()->immediateLeave()
                                                   : setting == immediateLeaveEnabled;
  contextConfig->immediateLeaveIs(on);
}

void GlueVlanSm::handleRestartQueryInterval() {
  if (!initialized_) return;
  const Kiv::Seconds interval = glueSm_->config() ? glueSm_->config()->restartQueryInterval() : 0.0;
  if (auto contextConfig = igmpProtocolConfig_->contextConfig(vlanId())) {
    contextConfig->restartQueryIntervalIs(interval);
  }
  if (auto contextStatus = igmpProtocolStatus_->contextStatus(vlanId())) {
    contextStatus->configuredRestartQueryIntervalIs(interval);
  }
}

// The VLAN has no robustness of its own: the global one applies, to the querier and the core alike.
void GlueVlanSm::handleRobustness() {
  if (!initialized_) return;
  const uint32_t value = robustness();
  if (auto querier = querierConfig()) querier->robustnessIs(value);
  if (auto contextConfig = igmpProtocolConfig_->contextConfig(vlanId())) contextConfig->robustnessIs(value);
  if (auto contextStatus = igmpProtocolStatus_->contextStatus(vlanId())) {
    contextStatus->configuredRobustnessIs(value);
  }
  handleQuerierStartupQueryCount();
  handleQuerierLastMemberQueryCount();
}

void GlueVlanSm::handleQuerierQueryInterval() {
  if (!initialized_) return;
  Kiv::Seconds interval = 0.0;
  if (igmpVlanConfig_ && igmpVlanConfig_->vlanQuerierConfig()) {
    interval = igmpVlanConfig_->vlanQuerierConfig()->queryIntervalConfigured();
  }
  if (interval == 0.0) interval = globalQuerierConfig().queryInterval();
  if (auto querier = querierConfig()) querier->queryIntervalIs(interval);
  if (auto contextConfig = igmpProtocolConfig_->contextConfig(vlanId()))
    contextConfig->queryIntervalIs(interval);
  if (auto contextStatus = igmpProtocolStatus_->contextStatus(vlanId())) {
    contextStatus->configuredQueryIntervalIs(static_cast<uint32_t>(interval));
  }
  handleQuerierStartupQueryInterval();
}

// The VLAN's own choice, as its tri-state means everywhere: no choice of its own takes the global
// setting, disabled is off, enabled is on; a value outside the three writes nothing.
void GlueVlanSm::handleReportFloodingEnabled() {
  if (!initialized_ || !coreStatus_) return;
  bool value = coreStatus_->reportFloodingEnabled();
  const VlanState setting = igmpVlanConfig_ ? igmpVlanConfig_->reportFloodingConfig() : vlanStateDefault;
  if (setting == vlanStateDefault) {
    value = glueSm_->config() && glueSm_->config()->globalReportFloodingEnabled();
  } else if (setting == vlanStateDisabled) {
    value = false;
  } else if (setting == vlanStateEnabled) {
    value = true;
  }
  if (value == coreStatus_->reportFloodingEnabled()) return;
  coreStatus_->reportFloodingEnabledIs(value);
  handleRouterInterface();
}

// --- static entries ----------------------------------------------------------------------------------

void GlueVlanSm::handleIgmpIpGroup(IpAddr ip) {
  auto group = igmpVlanConfig_ ? igmpVlanConfig_->ipGroup(ip) : nullptr;
  if (group) {
    auto* reactor = staticGroup_.find(ip);
    if (!reactor) {
      Kiv::Ptr<KivStaticGroup> r(new KivStaticGroup(this));
      staticGroup_.set(ip, r);
      r->notifierIs(group);
    } else if ((*reactor)->notifier() != group) {
      (*reactor)->notifierIs(group);
    }
  } else {
    staticGroup_.erase(ip);
  }
  handleStaticIntfs(ip);
}

void GlueVlanSm::handleIgmpIpGroup() {
  if (igmpVlanConfig_) {
    for (auto& g : igmpVlanConfig_->ipGroupIter()) handleIgmpIpGroup(g.key());
  }
  for (auto& r : staticGroup_.iter()) {
    if (!igmpVlanConfig_ || !igmpVlanConfig_->ipGroup(r.key())) handleIgmpIpGroup(r.key());
  }
}

void GlueVlanSm::handleStaticIntfs(IpAddr ip) {
  if (!initialized_ || !glueSm_->smStateRebuilt() || !coreStatus_) return;
  auto configured = igmpVlanConfig_ ? igmpVlanConfig_->ipGroup(ip) : nullptr;
  if (configured) {
    for (auto& i : configured->intfIter()) handleStaticIntf(ip, i.key());
  }
  if (auto group = coreStatus_->group(ip)) {
    for (auto& i : group->intfIter()) handleStaticIntf(ip, i.key());
  }
}

void GlueVlanSm::handleStaticMember(IntfId intf) {
  if (!igmpVlanConfig_) return;
  for (auto& g : igmpVlanConfig_->ipGroupIter()) {
    if (g->intf(intf)) handleStaticIntf(g.key(), intf);
  }
}

void GlueVlanSm::handleStaticMember() {
  if (!igmpVlanConfig_) return;
  for (auto& g : igmpVlanConfig_->ipGroupIter()) handleStaticIntfs(g.key());
}

// Makes the status show what the configuration says: a static membership stands in the status as a
// learnt one does, and goes with its configuration unless a host still reports.
void GlueVlanSm::handleStaticIntf(IpAddr ip, IntfId intf) {
  if (!initialized_ || !coreStatus_) return;
  KIV_TRACE(glueTrace, 8, " for " << ip << " in vlan " << vlanId());
  auto group = coreStatus_->group(ip);
  auto configured = igmpVlanConfig_ ? igmpVlanConfig_->ipGroup(ip) : nullptr;
  if (configured && configured->intf(intf) && isActiveVlanPort(glueSm_, vlanId(), intf)) {
    if (!group) group = coreStatus_->groupIs(ip);
    group->intfIs(intf)->staticEntryIs(true);
    KIV_TRACE(glueTrace, 7, "Added static intf " << intf << " to vlan " << vlanId());
    return;
  }
  auto entry = group ? group->intf(intf) : nullptr;
  if (!entry || !entry->staticEntry()) return;
  entry->staticEntryIs(false);
  KIV_TRACE(glueTrace, 7, "Removed static intf " << intf << " from vlan " << vlanId());
  if (entry->membershipSize() == 0) {
    KIV_TRACE(glueTrace, 7, "Removing " << intf << " snooping status because it is in no groups.");
    group->intfDel(intf);
    if (group->intfSize() == 0) coreStatus_->groupDel(ip);
  }
}

// A static router is a router with the fixed address 127.0.0.1 on its port, which no learnt router
// can have.
void GlueVlanSm::handleStaticRouter(IntfId intf) {
  if (!initialized_) return;
  const bool add = igmpVlanConfig_ && igmpVlanConfig_->routerIntf(intf);
  handleRouterIntf(intf, staticRouterAddr, add);
}

void GlueVlanSm::handleStaticRouter() {
  if (!initialized_) return;
  if (igmpVlanConfig_) {
    for (auto& r : igmpVlanConfig_->routerIntfIter()) handleStaticRouter(r.key());
  }
  for (auto& r : routerInterface_.iter()) {
    if ((*r.value())->intfAddr(staticRouterAddr)) handleStaticRouter(r.key());
  }
}

void GlueVlanSm::handleSwitchPort(IntfId intf) {
  if (!initialized_ || !coreStatus_) return;
  const auto& config = glueSm_->config();
  const bool wanted =
      igmpVlanConfig_ && (igmpVlanConfig_->switchPort(intf) || (config && config->switchPort(intf)));
  if (wanted && isActiveVlanPort(glueSm_, vlanId(), intf)) {
    coreStatus_->switchPortIs(intf, true);
  } else {
    coreStatus_->switchPortDel(intf);
  }
}

void GlueVlanSm::handleSwitchPort() {
  if (!initialized_ || !coreStatus_) return;
  if (igmpVlanConfig_) {
    for (auto& p : igmpVlanConfig_->switchPortIter()) handleSwitchPort(p.key());
  }
  if (const auto& config = glueSm_->config()) {
    for (auto& p : config->switchPortIter()) handleSwitchPort(p.key());
  }
  for (auto& p : coreStatus_->switchPortIter()) handleSwitchPort(p.key());
}

// --- port state --------------------------------------------------------------------------------------

void GlueVlanSm::handleVlanIntf(IntfId intf) {
  if (glueSm_->vlanSm(vlanId()) == this) {
    glueSm_->handleVlanIntf(vlanId(), intf);
    return;
  }
  // Not yet among GlueSm's VLANs (being built): the core and the flooder take their ports now, since a
  // core that starts without its ports drops what a restart left on them; the multiplexers deliver
  // once GlueSm has the VLAN and calls again.
  handleAddOrRemoveIntf(intf, isActiveVlanPort(glueSm_, vlanId(), intf));
}

void GlueVlanSm::handleVlanIntf() {
  if (topoVlan_) {
    for (auto& p : topoVlan_->portIter()) handleVlanIntf(p.key());
  }
  if (flooder_) {
    std::vector<IntfId> left;
    for (auto& e : flooder_->enabledIntfIter()) {
      if (e.key() != Lomax::switchIntfId()) left.push_back(e.key());
    }
    for (IntfId intf : left) {
      if (!topoVlan_ || !topoVlan_->port(intf)) handleVlanIntf(intf);
    }
  }
}

void GlueVlanSm::handleAddOrRemoveIntf(IntfId intf, bool add) {
  KIV_TRACE(glueTrace, 7, " vlan " << vlanId() << " intf " << intf << " enabled " << add);
  if (add) {
    auto port = topoVlan_ ? topoVlan_->port(intf) : nullptr;
    // The packet path asks every admitted port's counters.
    igmpCounterDir_->intfCounterIs(intf.stringValue());
    // A port that may not send never enters the flood set, but stays in the core.
    if (initialized_ &&
        (intf == Lomax::switchIntfId() ||
         (port && port->allowedTrafficDirection() != Bridging::trafficDirectionReceiveOnly))) {
      flooder_->enabledIntfIs(intf, true);
    }
    if (coreSm_) {
      KIV_TRACE(glueTrace, 7, "Marking intf " << intf << " enabled for vlan " << vlanId());
      handleStaticMember(intf);
      coreSm_->enabledIntfIs(intf, true);
    }
    return;
  }
  if (initialized_) flooder_->enabledIntfDel(intf);
  if (!coreSm_) return;
  // A secondary VLAN shares its primary's core, which keeps the ports of the primary.
  if (!primaryVlan_.isNone()) {
    auto primary = glueSm_->topoVlan(Bridging::VlanId(primaryVlan_.value()));
    if (primary && primary->port(intf)) return;
  }
  if (coreSm_->enabledIntf(intf)) {
    KIV_TRACE(glueTrace, 7, "Marking intf " << intf << " disabled for vlan " << vlanId());
    coreSm_->enabledIntfDel(intf);
  }
}

void GlueVlanSm::handleTopoPort(IntfId intf) {
  auto port = topoVlan_ ? topoVlan_->port(intf) : nullptr;
  if (port) {
    auto* reactor = glueTopoPort_.find(intf);
    if (!reactor) {
      Kiv::Ptr<KivGlueTopoPort> r(new KivGlueTopoPort(this));
      glueTopoPort_.set(intf, r);
      r->notifierIs(port);
    } else if ((*reactor)->notifier() != port) {
      (*reactor)->notifierIs(port);
    }
  } else {
    glueTopoPort_.erase(intf);
  }
  rxForbiddenIs(intf);
  if (initialized_) handleVlanIntf(intf);
}

void GlueVlanSm::rxForbiddenIs(IntfId intf) {
  auto port = topoVlan_ ? topoVlan_->port(intf) : nullptr;
  const uint32_t i = intf.internIndex();
  if (i >= rxForbidden_.size()) rxForbidden_.resize(i + 1);
  rxForbidden_[i] = port && port->allowedTrafficDirection() == Bridging::trafficDirectionTransmitOnly;
}

void GlueVlanSm::handleTopoPortDirection(IntfId intf) {
  rxForbiddenIs(intf);
  if (!initialized_) return;
  auto port = topoVlan_ ? topoVlan_->port(intf) : nullptr;
  KIV_TRACE(glueTrace, 7,
            " port " << intf << " direction is " << (port ? port->allowedTrafficDirection() : 0));
  if (flooder_) flooder_->enabledIntfDel(intf);
  handleVlanIntf(intf);
}

void GlueVlanSm::handleTopoPortBlocked(IntfId intf) {
  if (!initialized_) return;
  auto port = topoVlan_ ? topoVlan_->port(intf) : nullptr;
  const bool blocked = port && port->blocked();
  KIV_TRACE(glueTrace, 7, intf << " blocked is " << (blocked ? "True" : "False"));
  auto* reactor = glueTopoPort_.find(intf);
  const bool same = reactor && port && (*reactor)->notifier() == port;
  KIV_TRACE(glueTrace, 8,
            " handleBlocked: notif->blked: " << (blocked ? "True" : "False")
                                             << ", notif == gtp( i ): " << (same ? "True" : "False"));
  if (!same) {
    KIV_TRACE(glueTrace, 7, "Notifier is incorrect. Return early");
    return;
  }
  const auto& dir = glueSm_->glueVlanMultiplexerDir();
  VirtualIntfGlueVlanMultiplexer* vpm = dir ? dir->multiplexer(intf) : nullptr;
  if (!vpm) {
    KIV_TRACE(glueTrace, 7, "vpm is NULL. return early");
    return;
  }
  const bool vpmBlocked = vpm->blocked(vlanId());
  KIV_TRACE(glueTrace, 8, " vpm->blocked[" << vlanId() << "]: " << (vpmBlocked ? "True" : "False"));
  if (blocked && !vpmBlocked) {
    KIV_TRACE(glueTrace, 6, "Block multiplexer port " << intf);
    vpm->blockedIs(vlanId(), true);
    if (coreSm_) coreSm_->intfQuerySpooferDel(intf);
  } else if (!blocked && vpmBlocked) {
    // A port that comes up gets a spoofed query at once, so that hosts behind it report without
    // waiting for the querier.
    KIV_TRACE(glueTrace, 6, "Unblock multiplexer port " << intf);
    vpm->blockedDel(vlanId());
    if (coreSm_) coreSm_->createIntfQuerySpoofer(intf);
  }
}

}  // namespace IgmpShim
