// Receive: sort frames by VLAN and deliver them; transmit: tag as the bridge says.
#include "glue/GlueVlanMultiplexer.h"

#include "core/CoreTrace.h"
#include "glue/GlueTrace.h"
#include "glue/GlueVlanMultiplexerDir.h"
#include "glue/GlueVlanSm.h"
#include "kernel/ActivityManager.h"
#include "kernel/Notifiee.h"
#include "net/PktVlanTag.h"

namespace IgmpShim {

using Bridging::VlanId;
using Bridging::IgmpSnooping::packetTrace;
using Lomax::IntfId;

VirtualIntfGlueVlanMultiplexer::VirtualIntfGlueVlanMultiplexer(IntfId intf, Kiv::Ptr<Lomax::Pam> innerPam)
    : VlanPktMultiplexer(intf, std::move(innerPam)) {
  copyPktBeforeTxIs(true);
}

VirtualIntfGlueVlanMultiplexer::~VirtualIntfGlueVlanMultiplexer() = default;

GlueVlanSm* VirtualIntfGlueVlanMultiplexer::vlanSm(VlanId vlan) const {
  auto* s = vlanSm_.find(vlan);
  return s ? s->sm.ptr() : nullptr;
}

void VirtualIntfGlueVlanMultiplexer::vlanSmIs(const Kiv::Ptr<GlueVlanSm>& sm) {
  vlanSm_.set(sm->vlanId(), Served{sm, nullptr});
  handleVlanIntf(sm->vlanId());
}

void VirtualIntfGlueVlanMultiplexer::vlanSmDel(VlanId vlan) {
  vlanSm_.erase(vlan);
  handleVlanIntf(vlan);
}

void VirtualIntfGlueVlanMultiplexer::vlanSmDelAll() {
  vlanSm_.clear();
  blockedDelAll();
}

// Frames of served VLANs are drained without a limit; only a run of frames for VLANs not served is cut
// at pktLoopQuantum, since no one else gets the thread while this loop runs. What the limit leaves
// stays in the Pam, whose readiness brings the loop back.
void VirtualIntfGlueVlanMultiplexer::handleRxPkt() {
  Kiv::KeepAlive hold(this);
  const Kiv::Seconds end = Kiv::System::currentTime() + GlueVlanMultiplexerDir::pktLoopQuantum;
  while (Kiv::Ptr<Lomax::Pkt> pkt = rxPkt()) {
    uint16_t vlan = Lomax::vlanIdFromEthPkt(pkt);
    if (vlan > VlanId::maxValue) {
      KIV_TRACE(packetTrace, 7, "Dropping packet with out of range vlan " << vlan << " on port " << intf());
      continue;
    }
    if (vlan == 0) {
      doUpdateDefaultVlan();
      vlan = defaultVlan();
      if (vlan == 0) {
        KIV_TRACE(packetTrace, 7, "Dropping untagged pkt on trunk with native vlan tagging ");
        continue;
      }
    }
    const VlanId vid(vlan);
    if (blocked(vid)) {
      KIV_TRACE(packetTrace, 7, " vlan " << vid << " blocked on port " << intf());
      continue;
    }
    auto* s = vlanSm_.find(vid);
    if (!s) {
      KIV_TRACE(packetTrace, 7,
                "Ignoring pkt for vlan " << vid << " on " << intf() << " at " << Kiv::System::currentTime());
      if (Kiv::System::currentTime() >= end) return;
      continue;
    }
    Kiv::Ptr<GlueVlanSm> vsm = s->sm;
    Lomax::stripPktVlanTag(pkt);
    KIV_TRACE(packetTrace, 8, "Delivering pkt for vlan " << vid);
    vsm->doRxPkt(intf(), std::move(pkt));
  }
}

// The pseudo-interface has no default VLAN: every untagged frame on it is dropped.
void VirtualIntfGlueVlanMultiplexer::doUpdateDefaultVlan() {
  KIV_ASSERT_TEXT(defaultVlan() == 0, "defaultVlan() == 0");
}

// Towards the switch's own stack a frame keeps its tag, which is how its VLAN stays known.
void VirtualIntfGlueVlanMultiplexer::handleTxPkt(VlanId vlan, Kiv::Ptr<Lomax::Pkt> pkt) {
  KIV_TRACE(glueTrace, 8, " on " << intf() << " for vlan " << vlan << " at " << Kiv::System::currentTime());
  KIV_ASSERT_TEXT(intf() == Lomax::switchIntfId(), "intf() == switchIntfId()");
  if (!pkt || !vlanSm_.find(vlan)) return;
  if (blocked(vlan)) {
    KIV_TRACE(glueTrace, 7, " vlan " << vlan << " blocked on port " << intf());
    return;
  }
  KIV_TRACE(glueTrace, 8, "About to handleVerifiedTxPkt at " << Kiv::System::currentTime());
  handleVerifiedTxPkt(vlan, pkt, true);
}

void VirtualIntfGlueVlanMultiplexer::handleVlanIntf(VlanId vlan) {
  KIV_TRACE(glueTrace, 8, " vlan " << vlan);
  GlueVlanSm* sm = vlanSm(vlan);
  auto port = sm && sm->topoVlan() ? sm->topoVlan()->port(intf()) : nullptr;
  blockedIs(vlan, port && port->blocked());
}

void VirtualIntfGlueVlanMultiplexer::handleVlanIntf() {
  for (auto& e : vlanSm_.iter()) handleVlanIntf(e.key());
}

void GlueVlanMultiplexer::doUpdateDefaultVlan() {
  defaultVlanIs(switchIntfConfig_ ? switchIntfConfig_->defaultVlan().value() : 0);
}

void GlueVlanMultiplexer::handleTxPkt(VlanId vlan, Kiv::Ptr<Lomax::Pkt> pkt) {
  KIV_TRACE(glueTrace, 8, " on " << intf() << " for vlan " << vlan);
  KIV_ASSERT_TEXT(intf() != Lomax::switchIntfId(), "intf() != switchIntfId()");
  Served* s = pkt ? served(vlan) : nullptr;
  if (!s) return;
  if (blocked(vlan)) {
    KIV_TRACE(glueTrace, 7, " vlan " << vlan << " blocked on port " << intf());
    return;
  }
  const Bridging::Config* bridging = manager() ? manager()->bridgingConfig().ptr() : nullptr;
  const Kiv::Entity* bridgeVlan = s->egress ? s->egress->parent() : nullptr;
  if (!bridging || !bridgeVlan || bridgeVlan->parent() != bridging) {
    auto vlanConfig = bridging ? bridging->vlanConfig(vlan) : nullptr;
    s->egress = vlanConfig ? vlanConfig->intf(intf()) : nullptr;
  }
  if (!s->egress) {
    KIV_TRACE(glueTrace, 7, "Skip txPkt since we couldn't find egress tag.");
    return;
  }
  handleVerifiedTxPkt(vlan, pkt, s->egress->tagged());
}

}  // namespace IgmpShim
