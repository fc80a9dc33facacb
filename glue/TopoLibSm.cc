// The topology computation and the reactors that gather its changes.
#include "glue/TopoLibSm.h"

#include <vector>

namespace Topology::Library {

class LibSm::KivBridgingConfig : public Bridging::Config::NotifieeConst {
 public:
  explicit KivBridgingConfig(LibSm* sm) : Bridging::Config::NotifieeConst(sm), sm_(sm) {}
  void onVlanConfig(const Bridging::VlanId& vlan) override { sm_->handleVlanConfig(vlan); }
  void onVlanConfigkivImmediate() override {
    for (auto& v : sm_->bridgingConfig_->vlanConfigIter()) sm_->handleVlanConfig(v.key());
    std::vector<Bridging::VlanId> watched;
    for (auto& [vlan, r] : sm_->kivBridgeVlan_) watched.push_back(vlan);
    for (auto vlan : watched) sm_->handleVlanConfig(vlan);
  }
  void onSwitchIntfConfig(const Lomax::IntfId& intf) override { sm_->handleSwitchIntf(intf); }
  void onSwitchIntfConfigkivImmediate() override {
    // Interfaces that were switch ports are among the ports of the VLANs: all of those are looked at.
    for (auto& [vlan, r] : sm_->kivBridgeVlan_) sm_->doVlanDirty(vlan);
  }

 private:
  LibSm* sm_;
};

class LibSm::KivBridgeVlan : public Bridging::BridgeVlanConfig::NotifieeConst {
 public:
  KivBridgeVlan(LibSm* sm, Bridging::VlanId vlan)
      : Bridging::BridgeVlanConfig::NotifieeConst(sm), sm_(sm), vlan_(vlan) {}
  void onIntf(const Lomax::IntfId&) override { sm_->doVlanDirty(vlan_); }
  void onIntfkivImmediate() override { sm_->doVlanDirty(vlan_); }

 private:
  LibSm* sm_;
  Bridging::VlanId vlan_;
};

class LibSm::KivIntfStatusDir : public Interface::EthIntfStatusDir::NotifieeConst {
 public:
  explicit KivIntfStatusDir(LibSm* sm) : Interface::EthIntfStatusDir::NotifieeConst(sm), sm_(sm) {}
  void onIntfStatus(const Lomax::IntfId& intf) override { sm_->handleIntfStatus(intf); }
  void onIntfStatuskivImmediate() override {
    for (auto& s : sm_->intfStatusDir_->intfStatusIter()) sm_->handleIntfStatus(s.key());
    std::vector<Lomax::IntfId> watched;
    for (auto& [intf, r] : sm_->kivIntfStatus_) watched.push_back(intf);
    for (auto intf : watched) sm_->handleIntfStatus(intf);
  }

 private:
  LibSm* sm_;
};

class LibSm::KivIntfStatus : public Interface::EthIntfStatus::NotifieeConst {
 public:
  KivIntfStatus(LibSm* sm, Lomax::IntfId intf)
      : Interface::EthIntfStatus::NotifieeConst(sm), sm_(sm), intf_(intf) {}
  void onLinkUp() override { sm_->doIntfDirty(intf_); }
  void onForwarding() override { sm_->doIntfDirty(intf_); }

 private:
  LibSm* sm_;
  Lomax::IntfId intf_;
};

class LibSm::KivDefer : public Kiv::Clock::NotifieeConst {
 public:
  explicit KivDefer(LibSm* sm) : Kiv::Clock::NotifieeConst(sm), sm_(sm) {}
  void onTime() override { sm_->handleTopo(); }

 private:
  LibSm* sm_;
};

LibSm::LibSm(Kiv::Ptr<Bridging::Config const> bridgingConfig,
             Kiv::Ptr<Interface::EthIntfStatusDir const> intfStatusDir, Kiv::Ptr<LibState> libState,
             Kiv::Ptr<Vlan::LibVlanState> libVlanState, Kiv::Ptr<Kiv::Clock> clock)
    : bridgingConfig_(std::move(bridgingConfig)),
      intfStatusDir_(std::move(intfStatusDir)),
      libState_(std::move(libState)),
      libVlanState_(std::move(libVlanState)),
      clock_(std::move(clock)),
      kivDefer_(std::make_unique<KivDefer>(this)) {
  kivDefer_->notifierIs(clock_);
  kivIntfStatusDir_ = std::make_unique<KivIntfStatusDir>(this);
  kivIntfStatusDir_->notifierIs(intfStatusDir_);
  kivBridgingConfig_ = std::make_unique<KivBridgingConfig>(this);
  kivBridgingConfig_->notifierIs(bridgingConfig_);
  // The first application also says that the library has read its sources, even when they are empty.
  doDefer();
}

LibSm::~LibSm() = default;

void LibSm::handleVlanConfig(Bridging::VlanId vlan) {
  Kiv::Ptr<Bridging::BridgeVlanConfig const> cfg = bridgingConfig_->vlanConfig(vlan);
  auto it = kivBridgeVlan_.find(vlan);
  if (!cfg) {
    if (it != kivBridgeVlan_.end()) kivBridgeVlan_.erase(it);
  } else if (it == kivBridgeVlan_.end() || it->second->notifier() != cfg) {
    auto r = std::make_unique<KivBridgeVlan>(this, vlan);
    r->notifierIs(cfg);
    kivBridgeVlan_[vlan] = std::move(r);
  }
  doVlanDirty(vlan);
}

void LibSm::handleSwitchIntf(Lomax::IntfId intf) { doIntfDirty(intf); }

void LibSm::handleIntfStatus(Lomax::IntfId intf) {
  Kiv::Ptr<Interface::EthIntfStatus const> s = intfStatusDir_->intfStatus(intf);
  auto it = kivIntfStatus_.find(intf);
  if (!s) {
    if (it != kivIntfStatus_.end()) kivIntfStatus_.erase(it);
  } else if (it == kivIntfStatus_.end() || it->second->notifier() != s) {
    auto r = std::make_unique<KivIntfStatus>(this, intf);
    r->notifierIs(s);
    kivIntfStatus_[intf] = std::move(r);
  }
  doIntfDirty(intf);
}

void LibSm::doVlanDirty(Bridging::VlanId vlan) {
  dirtyVlans_.insert(vlan);
  doDefer();
}

void LibSm::doIntfDirty(Lomax::IntfId intf) {
  dirtyIntfs_.insert(intf);
  doDefer();
}

void LibSm::doDefer() {
  if (kivDefer_->timeMin() == Kiv::infinity) kivDefer_->timeMinIs(clock_->now());
}

void LibSm::handleTopoAll() {
  for (auto& v : bridgingConfig_->vlanConfigIter()) dirtyVlans_.insert(v.key());
  for (auto& v : libVlanState_->topoVlanIter()) dirtyVlans_.insert(v.key());
  handleTopo();
}

void LibSm::handleTopo() {
  kivDefer_->timeMinIs(Kiv::infinity);
  const std::set<Bridging::VlanId> vlans = std::exchange(dirtyVlans_, {});
  const std::set<Lomax::IntfId> intfs = std::exchange(dirtyIntfs_, {});
  for (auto vlan : vlans) doUpdateVlan(vlan);
  if (!intfs.empty()) {
    for (auto& v : libVlanState_->topoVlanIter()) {
      if (vlans.contains(v.key())) continue;
      Kiv::Ptr<Vlan::TopoVlan> topoVlan(v.ptr());
      for (auto intf : intfs) doUpdatePort(topoVlan, intf);
    }
  }
  if (sourcesReady_) libState_->initDoneIs(true);
}

void LibSm::sourcesReadyIs(bool on) {
  if (on == sourcesReady_) return;
  sourcesReady_ = on;
  if (on) doDefer();
}

void LibSm::doUpdateVlan(Bridging::VlanId vlan) {
  Kiv::Ptr<Bridging::BridgeVlanConfig const> cfg = bridgingConfig_->vlanConfig(vlan);
  if (!cfg) {
    libVlanState_->topoVlanDel(vlan);
    return;
  }
  Kiv::Ptr<Vlan::TopoVlan> topoVlan = libVlanState_->topoVlanIs(vlan);
  std::vector<Lomax::IntfId> gone;
  for (auto& p : topoVlan->portIter()) {
    if (!cfg->intf(p.key())) gone.push_back(p.key());
  }
  for (auto intf : gone) topoVlan->portDel(intf);
  for (auto& m : cfg->intfIter()) doUpdatePort(topoVlan, m.key());
}

void LibSm::doUpdatePort(const Kiv::Ptr<Vlan::TopoVlan>& topoVlan, Lomax::IntfId intf) {
  Kiv::Ptr<Bridging::BridgeVlanConfig const> cfg = bridgingConfig_->vlanConfig(topoVlan->vlanId());
  Kiv::Ptr<Interface::EthIntfStatus const> status = intfStatusDir_->intfStatus(intf);
  if (!cfg || !cfg->intf(intf) || !bridgingConfig_->switchIntfConfig(intf) || !status) {
    topoVlan->portDel(intf);
    return;
  }
  topoVlan->portIs(intf)->blockedIs(!status->linkUp() || !status->forwarding());
}

}  // namespace Topology::Library
