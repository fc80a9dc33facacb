// Copies the filter profile of one interface's configuration into the core's configuration.
#pragma once

#include "kernel/StateMachine.h"
#include "model/Config.h"

namespace IgmpShim {

class GlueIntfSm : public Kiv::StateMachine, public Kiv::HashLink<GlueIntfSm> {
 public:
  GlueIntfSm(Lomax::IntfId intf, Kiv::Ptr<Bridging::IgmpSnooping::IntfConfig const> configIntf,
             Kiv::Ptr<Bridging::IgmpSnooping::IntfConfig> coreIntf);

  Lomax::IntfId intf() const { return intf_; }
  const Lomax::IntfId& kivKey() const { return intf_; }
  const Kiv::Ptr<Bridging::IgmpSnooping::IntfConfig const>& configIntf() const { return configIntf_; }
  const Kiv::Ptr<Bridging::IgmpSnooping::IntfConfig>& coreIntf() const { return coreIntf_; }
  void handleProfileName();

 private:
  class KivConfigIntf : public Bridging::IgmpSnooping::IntfConfig::NotifieeConst {
   public:
    explicit KivConfigIntf(GlueIntfSm* sm) : NotifieeConst(sm) {}
    void onProfileName() override { static_cast<GlueIntfSm*>(kivOwner())->handleProfileName(); }
  };

  Lomax::IntfId intf_;
  Kiv::Ptr<Bridging::IgmpSnooping::IntfConfig const> configIntf_;
  Kiv::Ptr<Bridging::IgmpSnooping::IntfConfig> coreIntf_;
  KivConfigIntf kivConfigIntf_;
};

}  // namespace IgmpShim
