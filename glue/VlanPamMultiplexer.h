// One packet access spread over VLANs by their 802.1Q tags: each VLAN has a VlanPam of its own, which
// receives the frames of its VLAN with the tag removed and sends frames tagged with its VLAN. The L2
// querier's link to the switch's own stack runs through one.
#pragma once

#include <deque>

#include "glue/Pam.h"
#include "kernel/HashMap.h"
#include "net/IntfId.h"

namespace Lomax {

class VlanPamMultiplexer;

class VlanPam : public Pam {
 public:
  VlanPam(const Kiv::Name& name, Bridging::VlanId vlan) : name_(name), vlan_(vlan) {}

  const Kiv::Name& name() const { return name_; }
  Bridging::VlanId vlan() const { return vlan_; }
  // The multiplexer that serves it; null while it is in none.
  VlanPamMultiplexer* multiplexer() const { return multiplexer_; }

  Kiv::Ptr<Pkt> rxPkt() override;
  // Sends in this VLAN, tagged, whatever vlan and tagged say: the multiplexer's link carries VLANs by
  // their tags. Without a multiplexer the frame is dropped.
  void txPkt(const Kiv::Ptr<Pkt>& pkt, Bridging::VlanId vlan, bool tagged) override;

 private:
  friend class VlanPamMultiplexer;
  void rxPktEnqueue(Kiv::Ptr<Pkt> pkt);

  Kiv::Name name_;
  Bridging::VlanId vlan_;
  VlanPamMultiplexer* multiplexer_ = nullptr;
  std::deque<Kiv::Ptr<Pkt>> rx_;
};

class VlanPamMultiplexer : public Kiv::PtrInterface, private Pam::Notifiee {
 public:
  VlanPamMultiplexer(IntfId intf, Kiv::Ptr<Pam> innerPam);
  ~VlanPamMultiplexer() override;

  IntfId intf() const { return intf_; }
  const Kiv::Ptr<Pam>& innerPam() const { return innerPam_; }

  VlanPam* vlanPam(Bridging::VlanId vlan) const;
  void vlanPamIs(const Kiv::Ptr<VlanPam>& pam);
  void vlanPamDel(Bridging::VlanId vlan);
  size_t vlanPamSize() const { return vlanPam_.size(); }

  // Reads what waits and hands each tagged frame, tag removed, to its VLAN's VlanPam; untagged frames
  // and frames of VLANs without one are dropped.
  void handleRxPkt();
  void handleTxPkt(Bridging::VlanId vlan, const Kiv::Ptr<Pkt>& pkt);

 private:
  void onRxPkt() override { handleRxPkt(); }

  IntfId intf_;
  Kiv::Ptr<Pam> innerPam_;
  Kiv::HashMap2018<Bridging::VlanId, Kiv::Ptr<VlanPam>> vlanPam_;
};

}  // namespace Lomax
