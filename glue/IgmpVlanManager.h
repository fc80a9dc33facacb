// The fan-in of the VLAN collections: which VLANs have a GlueVlanSm (the topology library's VLANs, with
// their snooping configuration), and the bridge's ports whose configuration reaches the multiplexers.
// It lives from before GlueSm, which introduces itself with glueSmIs once it is initialised.
#pragma once

#include <memory>

#include "glue/BridgingConfig.h"
#include "kernel/StateMachine.h"
#include "net/VlanId.h"

namespace IgmpShim {

class GlueSm;

class IgmpVlanManager : public Kiv::StateMachine {
 public:
  IgmpVlanManager(const Kiv::Name& name, Kiv::Ptr<Bridging::Config const> bridgingConfig);
  ~IgmpVlanManager() override;

  const Kiv::Name& name() const { return name_; }
  const Kiv::Ptr<Bridging::Config const>& vlanSystemConfig() const { return bridgingConfig_; }
  // The GlueSm owns this manager's use: a plain pointer, so that the two do not keep each other alive.
  GlueSm* glueSm() const { return glueSm_; }
  void glueSmIs(GlueSm* glueSm) { glueSm_ = glueSm; }
  bool initialized() const { return initialized_; }

  // Every VLAN of the topology library, then every VLAN that still has a machine, without a time limit.
  void handleCombinedVlanConfigs(GlueSm* glueSm);
  // Creates, updates or removes one VLAN's machine.
  void handleOneVlanConfig(Bridging::VlanId vlan);
  void handleVlanSystemConfig(Lomax::IntfId intf);
  void handleVlanSystemConfig();

 private:
  class KivVlanSystemConfig;
  void handleInitialized();

  Kiv::Name name_;
  Kiv::Ptr<Bridging::Config const> bridgingConfig_;
  GlueSm* glueSm_ = nullptr;
  bool initialized_ = false;
  std::unique_ptr<KivVlanSystemConfig> kivVlanSystemConfig_;
};

Kiv::Ptr<IgmpVlanManager> igmpVlanManagerFactory(const Kiv::Name& name,
                                                 Kiv::Ptr<Bridging::Config const> bridgingConfig);

}  // namespace IgmpShim
