// Frames of a capture straight into the snooping cores, one per VLAN, for igmpsnoop-replay: a capture
// has no bridge behind it, so there is no topology for the VLAN glue to follow. Each core keeps its
// state in the mounted protocol status and counts into the agent's counters; nothing is forwarded.
#pragma once

#include <map>

#include "agent/AgentCreator.h"
#include "core/CoreSm.h"
#include "net/Pkt.h"

namespace Tools {

class CoreFeed {
 public:
  CoreFeed(const IgmpSnoopingAgent::AgentMounts& mounts, Kiv::Ptr<Bez::TimerWheel> timerWheel);
  ~CoreFeed();
  CoreFeed(const CoreFeed&) = delete;
  CoreFeed& operator=(const CoreFeed&) = delete;

  // Switches a port of a VLAN on or off in the VLAN's core, which is made with its first port.
  void portIs(Bridging::VlanId vlan, Lomax::IntfId intf, bool enabled);
  // A frame received on intf in vlan: Ethernet header first, without a tag. A port not yet on is
  // switched on first.
  void rxFrame(Bridging::VlanId vlan, Lomax::IntfId intf, const Kiv::Ptr<Lomax::Pkt>& frame);
  // The VLAN of a frame as the wire carries it: its 802.1Q tag's, which is taken out, or untaggedVlan.
  // False for a frame too short to hold an Ethernet header or with VLAN 0 or 4095 in its tag.
  static bool untag(const Kiv::Ptr<Lomax::Pkt>& frame, Bridging::VlanId untaggedVlan, Bridging::VlanId& vlan);

  Kiv::Ptr<Bridging::IgmpSnooping::CoreSm> core(Bridging::VlanId vlan) const;
  const std::map<Bridging::VlanId, Kiv::Ptr<Bridging::IgmpSnooping::CoreSm>>& cores() const { return cores_; }
  // Flood requests the cores made (forwarding is the bridge's own here).
  uint64_t floodRequests() const { return flooder_->pktCount(); }

 private:
  class CountingFlooder;
  IgmpSnoopingAgent::AgentMounts mounts_;
  Kiv::Ptr<Bez::TimerWheel> timerWheel_;
  Kiv::Ptr<Bez::TimerWheel> timerWheel2_;
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpSnoopingFlooder> flooder_;
  std::map<Bridging::VlanId, Kiv::Ptr<Bridging::IgmpSnooping::CoreSm>> cores_;
};

}  // namespace Tools
