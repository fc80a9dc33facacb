// The multiplexers' common part: the blocked set and verified transmit.
#include "glue/VlanPktMultiplexer.h"

namespace Lomax {

VlanPktMultiplexer::VlanPktMultiplexer(IntfId intf, Kiv::Ptr<Pam> innerPam)
    : intf_(intf), innerPam_(std::move(innerPam)) {
  if (innerPam_) innerPam_->notifieeIs(this);
}

VlanPktMultiplexer::~VlanPktMultiplexer() {
  if (innerPam_ && innerPam_->notifiee() == this) innerPam_->notifieeIs(nullptr);
}

void VlanPktMultiplexer::blockedIs(Bridging::VlanId vlan, bool on) {
  if (on) {
    blocked_.set(vlan, true);
  } else {
    blocked_.erase(vlan);
  }
}

void VlanPktMultiplexer::handleVerifiedTxPkt(Bridging::VlanId vlan, const Kiv::Ptr<Pkt>& pkt, bool tagged) {
  if (!innerPam_) return;
  if (copyPktBeforeTx_) {
    innerPam_->txPkt(globalPktManager().newShallowCopy(pkt), vlan, tagged);
  } else {
    innerPam_->txPkt(pkt, vlan, tagged);
  }
}

}  // namespace Lomax
