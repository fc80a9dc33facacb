// The agent-wide glue: reactors, the VLAN lifecycle with its two sliced passes, global fan-out,
// counter export and device packet access.
#include "glue/GlueSm.h"

#include <vector>

#include "glue/GlueTrace.h"
#include "glue/GlueVlanMultiplexer.h"
#include "glue/GlueVlanSm.h"
#include "glue/IgmpVlanManager.h"
#include "kernel/Exception.h"
#include "kernel/RingTrace.h"

namespace IgmpShim {

using Bridging::IgmpSnooping::Config;

// --- reactors --------------------------------------------------------------------------------------------

class GlueSm::KivConfig : public Config::NotifieeConst {
 public:
  explicit KivConfig(GlueSm* sm) : NotifieeConst(sm), sm_(sm) {}
  void onVlanConfig(const VlanId& vlan) override { sm_->handleIgmpVlanConfig(vlan); }
  void onVlanConfigkivImmediate() override { sm_->handleIgmpVlanConfig(); }
  void onIntfConfig(const Lomax::IntfId& intf) override { sm_->handleIntfConfig(intf); }
  void onIntfConfigkivImmediate() override { sm_->handleIntfConfig(); }
  void onSwitchPort(const Lomax::IntfId& intf) override { sm_->handleSwitchPort(intf); }
  void onSwitchPortkivImmediate() override { sm_->handleSwitchPort(); }
  void onVlanDefaultEnabled() override { sm_->handleIgmpSnoopingEnabled(); }
  void onRobustness() override { sm_->handleRobustness(); }
  void onRestartQueryInterval() override { sm_->handleRestartQueryInterval(); }
  void onImmediateLeave() override { sm_->handleImmediateLeave(); }
  void onGlobalReportFloodingEnabled() override { sm_->handleReportFloodingEnabled(); }
  void onGlobalQuerierConfig() override;

 private:
  GlueSm* sm_;
};

class GlueSm::KivQuerierConfig : public Bridging::IgmpSnooping::GlobalQuerierConfig::NotifieeConst {
 public:
  explicit KivQuerierConfig(GlueSm* sm) : NotifieeConst(sm), sm_(sm) {}
  void onQueryInterval() override { sm_->handleQuerierQueryInterval(); }

 private:
  GlueSm* sm_;
};

void GlueSm::KivConfig::onGlobalQuerierConfig() {
  sm_->kivQuerierConfig_->notifierIs(sm_->s_.config ? sm_->s_.config->globalQuerierConfig() : nullptr);
}

class GlueSm::KivSwForceConfig : public Bridging::IgmpSnooping::SwForceConfig::NotifieeConst {
 public:
  explicit KivSwForceConfig(GlueSm* sm) : NotifieeConst(sm), sm_(sm) {}
  void onForceEnabledPorts(const Lomax::IntfId& intf) override { sm_->handleForceEnabledPort(intf); }
  void onForceEnabledPortskivImmediate() override { sm_->handleForceEnabledPort(); }

 private:
  GlueSm* sm_;
};

class GlueSm::KivCounterConfig : public Bridging::IgmpSnooping::CounterConfig::NotifieeConst {
 public:
  explicit KivCounterConfig(GlueSm* sm) : NotifieeConst(sm), sm_(sm) {}
  void onCounterUpdateRequestTime() override { sm_->handleCounterUpdateRequest(); }

 private:
  GlueSm* sm_;
};

class GlueSm::KivEthDevPamCollection : public Interface::EthDevPamCollection::Notifiee {
 public:
  KivEthDevPamCollection(GlueSm* sm, Kiv::Ptr<Interface::EthDevPamCollection> c) : sm_(sm), c_(std::move(c)) {
    if (c_) c_->notifieeAdd(this);
  }
  ~KivEthDevPamCollection() override {
    if (c_) c_->notifieeDel(this);
  }
  void onIntfPam(Lomax::IntfId intf) override { sm_->handleDevicePam(intf); }

 private:
  GlueSm* sm_;
  Kiv::Ptr<Interface::EthDevPamCollection> c_;
};

class GlueSm::KivTopoLib : public Topology::Library::LibState::NotifieeConst {
 public:
  explicit KivTopoLib(GlueSm* sm) : NotifieeConst(sm), sm_(sm) {}
  void onInitDone() override { sm_->vlanSmInitialization(); }

 private:
  GlueSm* sm_;
};

class GlueSm::KivTopoVlanLib : public Topology::Library::Vlan::LibVlanState::NotifieeConst {
 public:
  explicit KivTopoVlanLib(GlueSm* sm) : NotifieeConst(sm), sm_(sm) {}
  void onTopoVlan(const VlanId& vlan) override {
    KIV_TRACE(glueTrace, 8, "onTopoVlan " << vlan);
    // Until the library is complete the bring-up takes every VLAN in; a VLAN made earlier would make
    // its core before its ports are there, and a core drops the restored memberships of every port it
    // does not have at its start.
    if (!sm_->s_.topoLib || !sm_->s_.topoLib->initDone()) return;
    sm_->s_.vlanInfo->handleOneVlanConfig(vlan);
  }
  void onTopoVlankivImmediate() override { sm_->handleOneVlanConfig(); }

 private:
  GlueSm* sm_;
};

class GlueSm::KivStateUpdateTimer : public Bez::TimerWheel::NotifieeConst {
 public:
  explicit KivStateUpdateTimer(GlueSm* sm) : NotifieeConst(sm), sm_(sm) {}
  void onTime() override { sm_->doIgmpSnoopingEnabledReview(); }

 private:
  GlueSm* sm_;
};

class GlueSm::KivVlanSmInitTimer : public Bez::TimerWheel::NotifieeConst {
 public:
  explicit KivVlanSmInitTimer(GlueSm* sm) : NotifieeConst(sm), sm_(sm) {}
  void onTime() override { sm_->vlanSmInitialization(); }

 private:
  GlueSm* sm_;
};

// --- construction ------------------------------------------------------------------------------------------

GlueSm::GlueSm(const Kiv::Name& name, const Services& services) : name_(name), s_(services) {
  KIV_ASSERT_TEXT(s_.vlanInfo && s_.status && s_.coreConfigDir && s_.coreStatusDir && s_.topoVlanLib &&
                      s_.counterDir && s_.mountedCounterDir && s_.glueVlanMultiplexerDir && s_.timerWheel,
                  "null ValidPtr");
  configIs(s_.config);
  hwConfigIs(s_.hwConfig);
  statusIs(s_.status);
  glueVlanMultiplexerDirIs(s_.glueVlanMultiplexerDir);
  profileConfigIs(s_.profileConfig);
  timerWheelIs(s_.timerWheel, s_.timerWheel);

  kivQuerierConfig_ = std::make_unique<KivQuerierConfig>(this);
  kivConfig_ = std::make_unique<KivConfig>(this);
  kivConfig_->notifierIs(s_.config);
  kivSwForceConfig_ = std::make_unique<KivSwForceConfig>(this);
  kivSwForceConfig_->notifierIs(s_.swForceConfig);
  kivEthDevPamCollection_ = std::make_unique<KivEthDevPamCollection>(this, s_.ethDevPamCollection);
  kivTopoLib_ = std::make_unique<KivTopoLib>(this);
  kivTopoLib_->notifierIs(s_.topoLib);
  kivTopoVlanLib_ = std::make_unique<KivTopoVlanLib>(this);
  kivTopoVlanLib_->notifierIs(s_.topoVlanLib);
  stateUpdateTimer_ = std::make_unique<KivStateUpdateTimer>(this);
  stateUpdateTimer_->notifierIs(s_.timerWheel);
  vlanSmInitTimer_ = std::make_unique<KivVlanSmInitTimer>(this);
  vlanSmInitTimer_->notifierIs(s_.timerWheel);
  handleInitialized();
}

GlueSm::~GlueSm() {
  // The VLANs' machines hold a plain pointer to this one: the multiplexers, which outlive it, let
  // go of them, and nothing they still hear may reach them.
  for (auto& m : s_.glueVlanMultiplexerDir->multiplexerIter()) {
    if (const auto* mux = m.value()) (*mux)->vlanSmDelAll();
  }
  for (auto& v : vlanSm_.iter()) {
    if (auto* sm = v.value()) (*sm)->kivDoZombieReactors(true);
  }
  if (s_.vlanInfo && s_.vlanInfo->glueSm() == this) s_.vlanInfo->glueSmIs(nullptr);
}

void GlueSm::handleInitialized() {
  if (initialized_) return;
  KIV_TRACE_FUNC(glueTrace);
  if (s_.deviceIntfStatusDir && s_.bridgeIntfDir) {
    ethBridgeIntfFilter_ = Kiv::Ptr<EthBridgeIntfFilter>(
        new EthBridgeIntfFilter(s_.deviceIntfStatusDir, s_.bridgingConfig, s_.bridgeIntfDir));
  }
  if (s_.bridgeIntfDir && s_.pamDesiredIntfDir)
    localIntfFilter_ = Kiv::make<LocalIntfFilter>(s_.bridgeIntfDir, s_.pamDesiredIntfDir);
  if (s_.ethDevPamManager) {
    Interface::EthDevPamManager& m = *s_.ethDevPamManager;
    m.maxRxPktDataIs(maxRxPktData);
    m.ethProtocolIs(Interface::EthDevPamManager::ethProtocolAll);
    m.filterProgramIs(SocketFilter::program);
    m.perIntfRlimitIs(false);
    m.sockRcvBufIs(sockRcvBuf);
    m.perIntfSocketIs(false);
    m.pktReuseIs(true);
    m.enableBulkPamReadIs(true);
    m.separateDot1QHdrIs(true);
    m.enabledIs(true);
  }
  s_.vlanInfo->glueSmIs(this);
  intfStateControlIs(Kiv::make<IgmpSnooping::IntfStateControls>());
  initialized_ = true;
  // Interfaces configured before the agent started: the constructor's call came too early for them.
  handleIntfConfig();
  handleDevicePam();
  handleForceEnabledPort();
  // The counter reactor is attached only now: a request must never be served before this point.
  kivCounterConfig_ = std::make_unique<KivCounterConfig>(this);
  kivCounterConfig_->notifierIs(s_.counterConfig);
  vlanSmInitialization();
}

Kiv::Seconds GlueSm::now() const { return s_.timerWheel->clock()->now(); }

GlueVlanSm* GlueSm::vlanSm(VlanId vlan) const {
  const Kiv::Ptr<GlueVlanSm>* sm = vlanSm_.find(vlan);
  return sm ? sm->ptr() : nullptr;
}

Kiv::Ptr<Topology::Library::Vlan::TopoVlan const> GlueSm::topoVlan(VlanId vlan) const {
  return Kiv::Ptr<Topology::Library::Vlan::LibVlanState const>(s_.topoVlanLib)->topoVlan(vlan);
}

// --- walks -------------------------------------------------------------------------------------------------

template <class Fn>
void GlueSm::doForEachVlanSm(Fn&& fn) {
  for (auto it = vlanSm_.begin(); !it.done(); ++it) {
    const Kiv::Ptr<GlueVlanSm>* sm = it.value();
    if (!sm) continue;
    Kiv::Ptr<GlueVlanSm> hold = *sm;
    fn(it.key(), hold.ptr());
  }
}

// The time is read between VLANs only: one VLAN is never cut in two.
template <class Fn>
bool GlueSm::doSlicedWalk(uint16_t& bookmark, Kiv::Seconds deadline, Bez::TimerWheel::NotifieeConst& timer,
                          Fn&& fn) {
  auto it = bookmark == noBookmark ? vlanSm_.begin() : vlanSm_.startAtHash(VlanId(bookmark));
  while (!it.done()) {
    if (const Kiv::Ptr<GlueVlanSm>* sm = it.value()) {
      Kiv::Ptr<GlueVlanSm> hold = *sm;
      fn(it.key(), hold.ptr());
    }
    ++it;
    if (now() >= deadline && !it.done()) {
      bookmark = it.key().value();
      timer.timeMinIs(now() + vlanSmInitPause);
      return false;
    }
  }
  bookmark = noBookmark;
  timer.timeMinIs(Kiv::infinity);
  return true;
}

void GlueSm::vlanSmInitialization() {
  if (!s_.topoLib || !s_.topoLib->initDone() || !initialized_ || vlanSmInitialized_) return;
  KIV_TRACE_FUNC(glueTrace);
  const bool resumption = vlanSmInitBookmark_ != noBookmark;
  const Kiv::Seconds deadline = now() + vlanSmInitQuantum;
  if (!smStateRebuilt()) {
    if (!resumption) {
      s_.vlanInfo->handleCombinedVlanConfigs(this);
      handleLedraState();
    }
    const bool done =
        doSlicedWalk(vlanSmInitBookmark_, deadline, *vlanSmInitTimer_, [](VlanId vlan, GlueVlanSm* sm) {
          sm->handleChangeToSnoopingState(vlan);
          sm->handleState();
          if (!sm->topoVlan()) return;
          std::vector<Lomax::IntfId> ports;
          for (auto& p : sm->topoVlan()->portIter()) ports.push_back(p.key());
          for (auto intf : ports) sm->handleTopoPortBlocked(intf);
        });
    if (!done) return;
    smStateRebuiltIs(true);
  }
  const bool done =
      doSlicedWalk(vlanSmInitBookmark_, deadline, *vlanSmInitTimer_, [](VlanId vlan, GlueVlanSm* sm) {
        sm->handleSmStateInitialized();
        sm->handleChangeToSnoopingState(vlan);
        sm->handleState();
      });
  if (!done) return;
  vlanSmInitialized_ = true;
  KIV_TRACE(glueTrace, 5, "All " << vlanSm_.size() << " vlans initialized");
}

void GlueSm::handleLedraState() {
  KIV_TRACE_FUNC(glueTrace);
  std::vector<VlanId> gone;
  for (auto& v : s_.status->vlanStatusIter()) {
    if (!vlanSm(v.key())) gone.push_back(v.key());
  }
  for (auto vlan : gone) s_.status->vlanStatusDel(vlan);
  gone.clear();
  for (auto& c : s_.coreStatusDir->contextStatusIter()) {
    if (!vlanSm(c.key())) gone.push_back(c.key());
  }
  for (auto vlan : gone) s_.coreStatusDir->contextStatusDel(vlan);
  gone.clear();
  for (auto& c : s_.coreConfigDir->contextConfigIter()) {
    if (!vlanSm(c.key())) gone.push_back(c.key());
  }
  for (auto vlan : gone) s_.coreConfigDir->contextConfigDel(vlan);
}

// --- the VLAN lifecycle ------------------------------------------------------------------------------------

void GlueSm::doCreateGlueVlanSm(VlanId vlan) {
  Kiv::Ptr<Topology::Library::Vlan::TopoVlan const> topo = topoVlan(vlan);
  Kiv::Ptr<Bridging::IgmpSnooping::VlanConfig const> vlanConfig =
      s_.config ? s_.config->vlanConfig(vlan) : nullptr;
  Kiv::Ptr<Bridging::IgmpSnooping::VlanStatus> vlanStatus = s_.status->vlanStatus(vlan);
  if (GlueVlanSm* sm = vlanSm(vlan)) {
    if (sm->primaryVlan().value() == 0) sm->igmpVlanConfigIs(vlanConfig);
    return;
  }
  KIV_TRACE(glueTrace, 5, "Creating IgmpSnooping Glue Vlan SM for " << vlan);
  KIV_TRACE(glueTrace, 5, "Initializing vlan " << vlan << " GlueVlanSm.");
  Kiv::Ptr<GlueVlanSm> sm =
      glueVlanSmFactory(topo, Bridging::VlanIdOrNone(), vlanConfig, vlanStatus, s_.coreConfigDir,
                        s_.coreStatusDir, s_.coreStatusDir->contextStatus(vlan), s_.counterDir, this);
  vlanSm_.set(vlan, sm);
  if (smStateRebuilt()) sm->handleSmStateInitialized();
  sm->handleVlanIntf();
}

void GlueSm::doDeleteGlueVlanSm(VlanId vlan) {
  Kiv::Ptr<GlueVlanSm> sm(vlanSm(vlan));
  if (!sm) return;
  sm->handleCleanupCore();
  KIV_TRACE(glueTrace, 5, "Deleting vlan " << vlan << " GlueVlanSm.");
  vlanSm_.erase(vlan);
  // The library may drop a VLAN without first taking its ports away: no multiplexer may keep
  // delivering to a machine that is gone.
  for (auto& m : s_.glueVlanMultiplexerDir->multiplexerIter()) {
    const auto* mux = m.value();
    if (mux && (*mux)->vlanSm(vlan)) (*mux)->vlanSmDel(vlan);
  }
  sm->kivDoZombieReactors(true);
}

void GlueSm::doDeleteAndMaybeCreateGlueVlanSm(VlanId vlan) {
  doDeleteGlueVlanSm(vlan);
  if (topoVlan(vlan)) doCreateGlueVlanSm(vlan);
}

// --- global configuration
// ------------------------------------------------------------------------------------

void GlueSm::handleIgmpVlanConfig(VlanId vlan) {
  if (!initialized_ || !vlanSmInitialized_) return;
  KIV_TRACE(glueTrace, 8, "handleIgmpVlanConfig " << vlan);
  s_.vlanInfo->handleOneVlanConfig(vlan);
}

void GlueSm::handleIgmpVlanConfig() {
  if (!initialized_ || !vlanSmInitialized_) return;
  KIV_TRACE(glueTrace, 8, "unknown vlan(s) have had a modified snooping configs.");
  s_.vlanInfo->handleCombinedVlanConfigs(this);
}

void GlueSm::handleOneVlanConfig() {
  if (!initialized_) return;
  KIV_ASSERT_TEXT(false, "false");
}

void GlueSm::handleIgmpSnoopingEnabled() {
  if (!initialized_) return;
  const bool enabled = !s_.config || s_.config->vlanDefaultEnabled();
  KIV_TRACE(glueTrace, 5, "Igmp Snooping currently globally " << (enabled ? "enabled" : "disabled"));
  stateUpdateBookmark_ = noBookmark;
  stateUpdateTimer_->timeMinIs(Kiv::infinity);
  doIgmpSnoopingEnabledReview();
}

void GlueSm::doIgmpSnoopingEnabledReview() {
  if (!initialized_) return;
  KIV_TRACE_FUNC(glueTrace);
  doSlicedWalk(stateUpdateBookmark_, now() + stateUpdateQuantum, *stateUpdateTimer_,
               [](VlanId vlan, GlueVlanSm* sm) {
                 sm->handleChangeToSnoopingState(vlan);
                 sm->handleState();
               });
}

void GlueSm::handleRobustness() {
  if (!initialized_) return;
  doForEachVlanSm([](VlanId, GlueVlanSm* sm) { sm->handleRobustness(); });
}

void GlueSm::handleRestartQueryInterval() {
  if (!initialized_) return;
  doForEachVlanSm([](VlanId, GlueVlanSm* sm) { sm->handleRestartQueryInterval(); });
}

void GlueSm::handleImmediateLeave() {
  if (!initialized_) return;
  doForEachVlanSm([](VlanId, GlueVlanSm* sm) { sm->handleVlanImmediateLeave(); });
}

void GlueSm::handleReportFloodingEnabled() {
  if (!initialized_) return;
  doForEachVlanSm([](VlanId, GlueVlanSm* sm) { sm->handleReportFloodingEnabled(); });
}

void GlueSm::handleQuerierQueryInterval() {
  if (!initialized_) return;
  doForEachVlanSm([](VlanId, GlueVlanSm* sm) { sm->handleQuerierQueryInterval(); });
}

void GlueSm::handleSwitchPort(Lomax::IntfId intf) {
  if (!initialized_) return;
  doForEachVlanSm([intf](VlanId, GlueVlanSm* sm) { sm->handleSwitchPort(intf); });
}

void GlueSm::handleSwitchPort() {
  if (!initialized_) return;
  doForEachVlanSm([](VlanId, GlueVlanSm* sm) { sm->handleSwitchPort(); });
}

void GlueSm::handleForceEnabledPort(Lomax::IntfId intf) {
  if (!initialized_) return;
  const bool on = s_.swForceConfig && s_.swForceConfig->forceEnabledPorts(intf);
  s_.topoVlanLib->forceEnabledPortsIs(intf, on);
}

void GlueSm::handleForceEnabledPort() {
  if (!initialized_ || !s_.swForceConfig) return;
  std::vector<Lomax::IntfId> intfs;
  for (auto& p : s_.swForceConfig->forceEnabledPortsIter()) intfs.push_back(p.key());
  for (auto intf : intfs) handleForceEnabledPort(intf);
}

void GlueSm::handleIntfConfig(Lomax::IntfId intf) {
  if (!initialized_) return;
  Kiv::Ptr<Bridging::IgmpSnooping::IntfConfig const> config =
      s_.config ? s_.config->intfConfig(intf) : nullptr;
  if (!config) {
    KIV_TRACE(glueTrace, 7, "Deleting core intfConfig for " << intf);
    if (const Kiv::Ptr<GlueIntfSm>* sm = intfSm_.find(intf)) (*sm)->kivDoZombieReactors(true);
    intfSm_.erase(intf);
    s_.coreConfigDir->intfConfigDel(intf);
    return;
  }
  KIV_TRACE(glueTrace, 7, "Create intfConfig for " << intf);
  Kiv::Ptr<Bridging::IgmpSnooping::IntfConfig> core = s_.coreConfigDir->intfConfigIs(intf);
  const Kiv::Ptr<GlueIntfSm>* sm = intfSm_.find(intf);
  if (sm && (*sm)->configIntf() == config && (*sm)->coreIntf() == core) return;
  if (sm) (*sm)->kivDoZombieReactors(true);
  intfSm_.set(intf, Kiv::make<GlueIntfSm>(intf, config, core));
}

void GlueSm::handleIntfConfig() {
  if (!initialized_) return;
  std::vector<Lomax::IntfId> intfs;
  if (s_.config) {
    for (auto& c : s_.config->intfConfigIter()) intfs.push_back(c.key());
  }
  for (auto& c : intfSm_.iter()) intfs.push_back(c.key());
  for (auto intf : intfs) handleIntfConfig(intf);
}

GlueIntfSm* GlueSm::intfSm(Lomax::IntfId intf) const {
  const Kiv::Ptr<GlueIntfSm>* sm = intfSm_.find(intf);
  return sm ? sm->ptr() : nullptr;
}

// --- counters and device packet access ---------------------------------------------------------------------

void GlueSm::handleCounterUpdateRequest() {
  KIV_ASSERT_TEXT(initialized_, "initialized()");
  const Kiv::Seconds requested = s_.counterConfig ? s_.counterConfig->counterUpdateRequestTime() : 0.0;
  KIV_TRACE(glueTrace, 8, "handleCounterUpdateRequest: update request time is " << requested);
  if (!(s_.status->counterUpdateTime() < requested)) {
    KIV_TRACE(glueTrace, 8, "handleCounterUpdateRequest: status >= config");
    return;
  }
  for (auto& c : s_.counterDir->intfCounterIter()) {
    s_.mountedCounterDir->intfCounterIs(c.key())->doCopy(*c.ptr());
  }
  const Kiv::Seconds t = now();
  s_.status->counterUpdateTimeIs(t);
  KIV_TRACE(glueTrace, 8, "handleCounterUpdateRequest: updating update time to " << t);
}

void GlueSm::handleDevicePam(Lomax::IntfId intf) {
  if (!initialized_) return;
  if (!intf) {
    KIV_TRACE(glueTrace, 1, "Invalid intf.");
    KIV_ASSERT_TEXT(false, "intf");
  }
  Kiv::Ptr<Lomax::Pam> pam = s_.ethDevPamCollection ? s_.ethDevPamCollection->intfPam(intf) : nullptr;
  Kiv::Ptr<Bridging::SwitchIntfConfig const> config =
      s_.bridgingConfig ? s_.bridgingConfig->switchIntfConfig(intf) : nullptr;
  GlueVlanMultiplexerDir& dir = *s_.glueVlanMultiplexerDir;
  VirtualIntfGlueVlanMultiplexer* mux = dir.multiplexer(intf);
  const bool pseudo = intf == Lomax::cpuIntfId() || intf == Lomax::switchIntfId();
  if (mux && (!pam || mux->innerPam() != pam)) {
    // Gone, or replaced by a new packet access: the old multiplexer serves no VLAN any more.
    mux->vlanSmDelAll();
    dir.multiplexerDel(intf);
    mux = nullptr;
    KIV_TRACE(glueTrace, 5, "Removed glueVlanMultiplexer for " << intf);
  }
  if (!pam) {
    doForEachVlanSm([&](VlanId vlan, GlueVlanSm* sm) {
      handleVlanIntf(vlan, intf);
      // The port may still be in the topology, which follows on a later turn; without a multiplexer
      // it must leave the flood set now, or the next flood of the VLAN finds no way out.
      sm->handleAddOrRemoveIntf(intf, false);
      if (!pseudo && sm->coreSm()) sm->coreSm()->intfQuerySpooferDel(intf);
    });
    return;
  }
  Kiv::Ptr<GlueVlanMultiplexer> m(dynamic_cast<GlueVlanMultiplexer*>(mux));
  if (!mux) {
    KIV_TRACE(glueTrace, 5, "Adding glueVlanMultiplexer for " << intf);
    m = Kiv::make<GlueVlanMultiplexer>(intf, pam);
    m->copyPktBeforeTxIs(false);
    dir.multiplexerIs(m);
  }
  if (!m) return;
  m->managerIs(&dir);
  m->switchIntfConfigIs(config);
  s_.counterDir->intfCounterIs(intf.stringValue());
  doForEachVlanSm([&](VlanId vlan, GlueVlanSm* sm) {
    handleVlanIntf(vlan, intf);
    if (!pseudo && sm->coreSm()) sm->coreSm()->createIntfQuerySpoofer(intf);
  });
}

void GlueSm::handleDevicePam() {
  if (!initialized_ || !s_.ethDevPamCollection) return;
  std::vector<Lomax::IntfId> intfs;
  for (auto& [intf, pam] : s_.ethDevPamCollection->intfPams()) intfs.push_back(intf);
  for (auto& m : s_.glueVlanMultiplexerDir->multiplexerIter()) {
    if (m.key() != Lomax::switchIntfId()) intfs.push_back(m.key());
  }
  for (auto intf : intfs) handleDevicePam(intf);
}

Kiv::Ptr<GlueSm> glueSmFactory(const Kiv::Name& name, const GlueSm::Services& services) {
  return Kiv::make<GlueSm>(name, services);
}

}  // namespace IgmpShim
