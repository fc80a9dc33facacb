// Device interfaces filtered down to the bridge's ports.
#include "glue/EthBridgeIntfFilter.h"

#include <vector>

namespace IgmpShim {

class EthBridgeIntfFilter::KivDeviceIntfStatusDir : public Interface::DeviceIntfStatusDir::NotifieeConst {
 public:
  explicit KivDeviceIntfStatusDir(EthBridgeIntfFilter* f) : NotifieeConst(f), f_(f) {}
  void onIntf(const Lomax::IntfId& intf) override { f_->handleIntf(intf); }
  void onIntfkivImmediate() override { f_->handleIntf(); }

 private:
  EthBridgeIntfFilter* f_;
};

class EthBridgeIntfFilter::KivBridgingConfig : public Bridging::Config::NotifieeConst {
 public:
  explicit KivBridgingConfig(EthBridgeIntfFilter* f) : NotifieeConst(f), f_(f) {}
  void onSwitchIntfConfig(const Lomax::IntfId& intf) override { f_->handleIntf(intf); }
  void onSwitchIntfConfigkivImmediate() override { f_->handleIntf(); }

 private:
  EthBridgeIntfFilter* f_;
};

EthBridgeIntfFilter::EthBridgeIntfFilter(Kiv::Ptr<Interface::DeviceIntfStatusDir const> deviceIntfStatusDir,
                                         Kiv::Ptr<Bridging::Config const> bridgingConfig,
                                         Kiv::Ptr<Interface::PamDesiredIntfDir> bridgeIntfDir)
    : deviceIntfStatusDir_(std::move(deviceIntfStatusDir)),
      bridgingConfig_(std::move(bridgingConfig)),
      bridgeIntfDir_(std::move(bridgeIntfDir)),
      kivDeviceIntfStatusDir_(std::make_unique<KivDeviceIntfStatusDir>(this)),
      kivBridgingConfig_(std::make_unique<KivBridgingConfig>(this)) {
  kivDeviceIntfStatusDir_->notifierIs(deviceIntfStatusDir_);
  kivBridgingConfig_->notifierIs(bridgingConfig_);
}

EthBridgeIntfFilter::~EthBridgeIntfFilter() = default;

void EthBridgeIntfFilter::handleIntf(Lomax::IntfId intf) {
  const bool wanted = deviceIntfStatusDir_ && deviceIntfStatusDir_->intf(intf) && bridgingConfig_ &&
                      bridgingConfig_->switchIntfConfig(intf);
  wanted ? bridgeIntfDir_->intfDesiredIs(intf, true) : bridgeIntfDir_->intfDesiredDel(intf);
}

void EthBridgeIntfFilter::handleIntf() {
  std::vector<Lomax::IntfId> intfs;
  if (deviceIntfStatusDir_) {
    for (auto& e : deviceIntfStatusDir_->intfIter()) intfs.push_back(e.key());
  }
  for (auto& e : bridgeIntfDir_->intfDesiredIter()) intfs.push_back(e.key());
  for (auto intf : intfs) handleIntf(intf);
}

}  // namespace IgmpShim
