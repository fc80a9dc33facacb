// Bridge ports and their frames, to the cores.
#include "tools/BridgeIntake.h"

namespace Tools {

BridgeIntake::BridgeIntake(const std::string& bridge, CoreFeed& feed) : feed_(feed) {
  pam_ = std::make_unique<Platform::PacketAccess>(Platform::PacketAccess::Settings{},
                                                  [this](auto frames) { handleFrames(frames); });
  topology_ = std::make_unique<Platform::BridgeTopology>(links_, bridge,
                                                         [this](const auto& view) { handleTopology(view); });
  links_.start();
}

BridgeIntake::~BridgeIntake() = default;

void BridgeIntake::handleTopology(const Platform::BridgeTopology::View& view) {
  for (const auto& port : view_.ports) pam_->wantedIntfIs(port.ifindex, false);
  view_ = view;
  for (const auto& port : view_.ports) {
    const bool on = port.operUp && !port.blocked;
    pam_->wantedIntfIs(port.ifindex, on);
    for (const auto& vlan : view_.vlans) {
      for (const auto& member : vlan.members) {
        if (member.ifindex == port.ifindex && Bridging::VlanId::isValid(vlan.vid))
          feed_.portIs(Bridging::VlanId(vlan.vid), Lomax::IntfId(Kiv::String(port.name)), on);
      }
    }
  }
}

void BridgeIntake::handleFrames(std::span<const Platform::PacketAccess::RxFrame> frames) {
  for (const auto& f : frames) {
    const Platform::BridgeTopology::Port* port = nullptr;
    for (const auto& p : view_.ports) {
      if (p.ifindex == f.ifindex) port = &p;
    }
    if (!port || !port->pvid || !Bridging::VlanId::isValid(port->pvid)) continue;
    Bridging::VlanId vlan;
    if (!CoreFeed::untag(f.pkt, Bridging::VlanId(port->pvid), vlan)) continue;
    feed_.rxFrame(vlan, Lomax::IntfId(Kiv::String(port->name)), f.pkt);
  }
}

}  // namespace Tools
