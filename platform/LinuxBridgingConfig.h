// The bridge's configuration filled from the Linux bridge the agent serves: its ports are the switch
// ports, each with its PVID as the VLAN of untagged frames, and its VLANs with their members and
// tagging (without VLAN filtering, VLAN 1 with every port untagged).
#pragma once

#include "glue/BridgingConfig.h"
#include "platform/BridgeTopology.h"

namespace Platform {

class LinuxBridgingConfig {
 public:
  explicit LinuxBridgingConfig(Kiv::Ptr<Bridging::Config> config) : config_(std::move(config)) {}

  // Makes the configuration that of this view, changing only what differs: a VLAN or port that stays
  // is not replaced. VLAN 4095 and above, which the agent cannot serve, are left out.
  void viewIs(const BridgeTopology::View& view);

  const Kiv::Ptr<Bridging::Config>& config() const { return config_; }

 private:
  Kiv::Ptr<Bridging::Config> config_;
};

}  // namespace Platform
