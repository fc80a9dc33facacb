// VLAN configuration fan-in.
#include "glue/IgmpVlanManager.h"

#include <vector>

#include "glue/GlueSm.h"
#include "glue/GlueTrace.h"
#include "glue/GlueVlanSm.h"

namespace IgmpShim {

class IgmpVlanManager::KivVlanSystemConfig : public Bridging::Config::NotifieeConst {
 public:
  explicit KivVlanSystemConfig(IgmpVlanManager* m) : NotifieeConst(m), m_(m) {}
  void onSwitchIntfConfig(const Lomax::IntfId& intf) override { m_->handleVlanSystemConfig(intf); }
  void onSwitchIntfConfigkivImmediate() override { m_->handleVlanSystemConfig(); }

 private:
  IgmpVlanManager* m_;
};

IgmpVlanManager::IgmpVlanManager(const Kiv::Name& name, Kiv::Ptr<Bridging::Config const> bridgingConfig)
    : name_(name), bridgingConfig_(std::move(bridgingConfig)) {
  kivVlanSystemConfig_ = std::make_unique<KivVlanSystemConfig>(this);
  kivVlanSystemConfig_->notifierIs(bridgingConfig_);
  handleInitialized();
}

IgmpVlanManager::~IgmpVlanManager() = default;

void IgmpVlanManager::handleInitialized() {
  initialized_ = true;
  handleVlanSystemConfig();
}

void IgmpVlanManager::handleCombinedVlanConfigs(GlueSm* glueSm) {
  KIV_TRACE(glueTrace, 8, "void IgmpShim::handleCombinedVlanConfigs(IgmpShim::GlueSm*)");
  std::vector<Bridging::VlanId> vlans;
  for (auto& v : glueSm->services().topoVlanLib->topoVlanIter()) vlans.push_back(v.key());
  for (auto vlan : vlans) handleOneVlanConfig(vlan);
  // The second walk takes away the machines of VLANs that have left the topology.
  vlans.clear();
  for (auto& v : glueSm->vlanSmIter()) vlans.push_back(v.key());
  for (auto vlan : vlans) handleOneVlanConfig(vlan);
}

void IgmpVlanManager::handleOneVlanConfig(Bridging::VlanId vlan) {
  if (!glueSm_) return;
  if (glueSm_->topoVlan(vlan)) {
    glueSm_->doCreateGlueVlanSm(vlan);
  } else if (glueSm_->vlanSm(vlan)) {
    glueSm_->doDeleteGlueVlanSm(vlan);
  }
}

void IgmpVlanManager::handleVlanSystemConfig(Lomax::IntfId intf) {
  if (glueSm_ && initialized_) glueSm_->handleDevicePam(intf);
}

void IgmpVlanManager::handleVlanSystemConfig() {
  if (!glueSm_ || !initialized_ || !bridgingConfig_) return;
  std::vector<Lomax::IntfId> intfs;
  for (auto& c : bridgingConfig_->switchIntfConfigIter()) intfs.push_back(c.key());
  for (auto intf : intfs) glueSm_->handleDevicePam(intf);
}

Kiv::Ptr<IgmpVlanManager> igmpVlanManagerFactory(const Kiv::Name& name,
                                                 Kiv::Ptr<Bridging::Config const> bridgingConfig) {
  return Kiv::make<IgmpVlanManager>(name, std::move(bridgingConfig));
}

}  // namespace IgmpShim
