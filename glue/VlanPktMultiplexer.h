// The packet access of one interface spread over VLANs: the interface's Pam, the VLANs in which the
// interface is blocked, and transmit of a frame in a VLAN with or without its tag. Subclasses read
// and sort received frames (handleRxPkt) and choose the tagging of transmitted ones (handleTxPkt).
#pragma once

#include "glue/Pam.h"
#include "kernel/HashMap.h"
#include "net/IntfId.h"

namespace Lomax {

class VlanPktMultiplexer : public Kiv::PtrInterface, private Pam::Notifiee {
 public:
  VlanPktMultiplexer(IntfId intf, Kiv::Ptr<Pam> innerPam);
  ~VlanPktMultiplexer() override;

  IntfId intf() const { return intf_; }
  const Kiv::Ptr<Pam>& innerPam() const { return innerPam_; }

  bool blocked(Bridging::VlanId vlan) const { return blocked_.find(vlan) != nullptr; }
  void blockedIs(Bridging::VlanId vlan, bool on);
  void blockedDel(Bridging::VlanId vlan) { blocked_.erase(vlan); }
  void blockedDelAll() { blocked_.clear(); }
  size_t blockedSize() const { return blocked_.size(); }

  // Transmit hands the Pam a copy of its own, since one frame goes to many interfaces.
  bool copyPktBeforeTx() const { return copyPktBeforeTx_; }
  void copyPktBeforeTxIs(bool on) { copyPktBeforeTx_ = on; }

  // Called when the Pam has frames.
  virtual void handleRxPkt() = 0;
  virtual void handleTxPkt(Bridging::VlanId vlan, Kiv::Ptr<Pkt> pkt) = 0;
  // Puts the frame on the wire in vlan, tagged or not: the checks are the caller's.
  void handleVerifiedTxPkt(Bridging::VlanId vlan, const Kiv::Ptr<Pkt>& pkt, bool tagged);

 protected:
  Kiv::Ptr<Pkt> rxPkt() { return innerPam_->rxPkt(); }

 private:
  void onRxPkt() override { handleRxPkt(); }

  IntfId intf_;
  Kiv::Ptr<Pam> innerPam_;
  Kiv::HashMap2018<Bridging::VlanId, bool> blocked_;
  bool copyPktBeforeTx_ = false;
};

}  // namespace Lomax
