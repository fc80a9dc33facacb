// The interfaces of the bridge among the device interfaces: a device that is a switch port in the
// bridge's configuration is wanted in the output directory, any other is not.
#pragma once

#include <memory>

#include "glue/BridgingConfig.h"
#include "glue/EthIntfStatusDir.h"
#include "glue/PamDesiredIntfDir.h"
#include "kernel/StateMachine.h"

namespace IgmpShim {

class EthBridgeIntfFilter : public Kiv::StateMachine {
 public:
  EthBridgeIntfFilter(Kiv::Ptr<Interface::DeviceIntfStatusDir const> deviceIntfStatusDir,
                      Kiv::Ptr<Bridging::Config const> bridgingConfig,
                      Kiv::Ptr<Interface::PamDesiredIntfDir> bridgeIntfDir);
  ~EthBridgeIntfFilter() override;

  void handleIntf(Lomax::IntfId intf);
  // Every interface of the inputs and of the output.
  void handleIntf();

 private:
  class KivDeviceIntfStatusDir;
  class KivBridgingConfig;

  Kiv::Ptr<Interface::DeviceIntfStatusDir const> deviceIntfStatusDir_;
  Kiv::Ptr<Bridging::Config const> bridgingConfig_;
  Kiv::Ptr<Interface::PamDesiredIntfDir> bridgeIntfDir_;
  std::unique_ptr<KivDeviceIntfStatusDir> kivDeviceIntfStatusDir_;
  std::unique_ptr<KivBridgingConfig> kivBridgingConfig_;
};

}  // namespace IgmpShim
