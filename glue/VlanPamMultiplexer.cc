// VLANs over one packet access, sorted by tag.
#include "glue/VlanPamMultiplexer.h"

#include "core/CoreTrace.h"
#include "kernel/Notifiee.h"
#include "kernel/Trace.h"
#include "net/PktVlanTag.h"

namespace Lomax {

using Bridging::IgmpSnooping::packetTrace;

Kiv::Ptr<Pkt> VlanPam::rxPkt() {
  if (rx_.empty()) return nullptr;
  Kiv::Ptr<Pkt> pkt = std::move(rx_.front());
  rx_.pop_front();
  return pkt;
}

void VlanPam::txPkt(const Kiv::Ptr<Pkt>& pkt, Bridging::VlanId, bool) {
  if (multiplexer_) multiplexer_->handleTxPkt(vlan_, pkt);
}

void VlanPam::rxPktEnqueue(Kiv::Ptr<Pkt> pkt) {
  rx_.push_back(std::move(pkt));
  doRxReady();
}

VlanPamMultiplexer::VlanPamMultiplexer(IntfId intf, Kiv::Ptr<Pam> innerPam)
    : intf_(intf), innerPam_(std::move(innerPam)) {
  if (innerPam_) innerPam_->notifieeIs(this);
}

VlanPamMultiplexer::~VlanPamMultiplexer() {
  if (innerPam_ && innerPam_->notifiee() == this) innerPam_->notifieeIs(nullptr);
  for (auto& p : vlanPam_.iter()) (*p.value())->multiplexer_ = nullptr;
}

VlanPam* VlanPamMultiplexer::vlanPam(Bridging::VlanId vlan) const {
  auto* p = vlanPam_.find(vlan);
  return p ? p->ptr() : nullptr;
}

void VlanPamMultiplexer::vlanPamIs(const Kiv::Ptr<VlanPam>& pam) {
  if (VlanPam* old = vlanPam(pam->vlan()); old && old != pam.ptr()) old->multiplexer_ = nullptr;
  pam->multiplexer_ = this;
  vlanPam_.set(pam->vlan(), pam);
}

void VlanPamMultiplexer::vlanPamDel(Bridging::VlanId vlan) {
  if (VlanPam* old = vlanPam(vlan)) old->multiplexer_ = nullptr;
  vlanPam_.erase(vlan);
}

void VlanPamMultiplexer::handleRxPkt() {
  Kiv::KeepAlive hold(this);
  while (Kiv::Ptr<Pkt> pkt = innerPam_->rxPkt()) {
    const uint16_t vlan = vlanIdFromEthPkt(pkt);
    if (vlan == 0 || vlan > Bridging::VlanId::maxValue) {
      KIV_TRACE(packetTrace, 7, "Dropping packet with no usable vlan " << vlan << " on " << intf_);
      continue;
    }
    auto* pam = vlanPam_.find(Bridging::VlanId(vlan));
    if (!pam) {
      KIV_TRACE(packetTrace, 7, "Ignoring pkt for vlan " << vlan << " on " << intf_);
      continue;
    }
    Kiv::Ptr<VlanPam> target = *pam;
    stripPktVlanTag(pkt);
    target->rxPktEnqueue(std::move(pkt));
  }
}

void VlanPamMultiplexer::handleTxPkt(Bridging::VlanId vlan, const Kiv::Ptr<Pkt>& pkt) {
  if (innerPam_ && pkt) innerPam_->txPkt(pkt, vlan, true);
}

}  // namespace Lomax
