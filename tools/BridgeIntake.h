// The frames of one Linux bridge's ports into the cores, until the VLAN glue and its multiplexers
// take this place: the bridge's ports from rtnetlink, their IGMP and PIM frames from packet access,
// each to its VLAN's core through CoreFeed::rxFrame.
#pragma once

#include <memory>
#include <string>

#include "platform/BridgeTopology.h"
#include "platform/LinkWatcher.h"
#include "platform/PacketAccess.h"
#include "tools/CoreFeed.h"

namespace Tools {

class BridgeIntake {
 public:
  // Throws Kiv::Exception when Linux refuses the sockets (not root, say).
  BridgeIntake(const std::string& bridge, CoreFeed& feed);
  ~BridgeIntake();

  Platform::PacketAccess& packetAccess() { return *pam_; }

 private:
  void handleTopology(const Platform::BridgeTopology::View& view);
  void handleFrames(std::span<const Platform::PacketAccess::RxFrame> frames);

  CoreFeed& feed_;
  Platform::LinkWatcher links_;
  std::unique_ptr<Platform::PacketAccess> pam_;
  std::unique_ptr<Platform::BridgeTopology> topology_;
  Platform::BridgeTopology::View view_;
};

}  // namespace Tools
