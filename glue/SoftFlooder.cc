// Destination sets of the flood types, worked out from the VLAN's snooping state. A port appears in
// one step only for one request, so that no port gets a frame twice.
#include "glue/SoftFlooder.h"

#include <iostream>

#include "core/CoreTrace.h"
#include "glue/GlueTrace.h"
#include "glue/GlueVlanMultiplexerDir.h"
#include "glue/GlueVlanSm.h"
#include "kernel/ActivityManager.h"
#include "net/IpHdr.h"
#include "net/PktVlanTag.h"

namespace IgmpShim {

using namespace Bridging::IgmpSnooping;
using IgmpSnooping::FloodControl;
using Lomax::IntfId;

SoftFlooder::SoftFlooder(const Kiv::Name& name, GlueVlanSm* glueVlanSm, Kiv::Ptr<GlueVlanMultiplexerDir> dir)
    : IgmpSnoopingFlooder(name), glueVlanSm_(glueVlanSm), glueVlanMultiplexerDir_(std::move(dir)) {}

SoftFlooder::~SoftFlooder() = default;

void SoftFlooder::enabledIntfIs(IntfId intf, bool on) {
  const uint32_t i = intf.internIndex();
  if (on) {
    enabledIntf_.set(intf, true);
    if (i >= enabledByIndex_.size()) enabledByIndex_.resize(i + 1, 0);
    enabledByIndex_[i] = 1;
  } else {
    enabledIntf_.erase(intf);
    if (i < enabledByIndex_.size()) enabledByIndex_[i] = 0;
  }
}

void SoftFlooder::enabledIntfDelAll() {
  enabledIntf_.clear();
  enabledByIndex_.clear();
}

// Hooks tell link-local multicast from the rest. A packet that the VLAN floods without a core comes as
// pktTypeOther whatever it is, so on hardware that floods both kinds the frame itself decides.
FloodControl::PktType SoftFlooder::floodControlPktType(const FloodReq& req) const {
  if (glueVlanSm_->glueSm()->floodControl().empty()) return FloodControl::floodCtrlOther;
  if (req.pktType() == pktTypeLinkLocal) return FloodControl::floodCtrlLinkLocal;
  const auto& hw = glueVlanSm_->glueSm()->hwConfig();
  if (req.pktType() != pktTypeOther || !hw || !hw->swFloodLinkLocalWithCore() || !hw->swFloodOtherNoCore()) {
    return FloodControl::floodCtrlOther;
  }
  KIV_TRACE(packetTrace, 8,
            "floodControlPktType"
                << " needs to determine if this pkt is "
                << "link-local multicast");
  const Lomax::Pkt& pkt = *req.orig();
  if (pkt.len() < Lomax::ethHeaderBytes + Lomax::IpHdr::minBytes) return FloodControl::floodCtrlOther;
  if (Lomax::NetU16::read(pkt.data() + 12) != Lomax::ethTypeIp) return FloodControl::floodCtrlOther;
  const std::optional<Lomax::IpHdr> view =
      Lomax::IpHdr::of(pkt.data() + Lomax::ethHeaderBytes, pkt.len() - Lomax::ethHeaderBytes);
  if (!view) return FloodControl::floodCtrlOther;
  const Lomax::IpHdr& ip = *view;
  if (ip.protocol() == Lomax::ipProtocolIgmp || ip.protocol() == Lomax::ipProtocolPim ||
      !ip.dst().isReservedMulticast()) {
    return FloodControl::floodCtrlOther;
  }
  KIV_TRACE(packetTrace, 8,
            "floodControlPktType"
                << " has determined that this pkt is "
                << "link-local multicast");
  return FloodControl::floodCtrlLinkLocal;
}

void SoftFlooder::floodReqIs(Kiv::Ptr<FloodReq> reqPtr) {
  const FloodReq& req = *reqPtr;
  const auto& hooks = glueVlanSm_->glueSm()->floodControl();
  if (req.needsPreProcess()) {
    for (auto& h : hooks) h.second->preProcessPkt(req.orig());
  }
  const FloodControl::PktType ctrlType = floodControlPktType(req);
  const IntfId incoming = req.incomingIntfId();
  switch (req.floodType()) {
    case floodTypeVlan:
      KIV_TRACE(packetTrace, 7, "Flooding to entire VLAN except " << incoming);
      for (auto& e : enabledIntf_.iter()) {
        if (e.key() == incoming) continue;
        KIV_TRACE(packetTrace, 8, "**** Flooding to " << e.key());
        doTxPkt(e.key(), req, ctrlType);
      }
      break;
    case floodTypeRouter:
      doFloodToRouters(req, nullptr, nullptr, ctrlType, false);
      break;
    case floodTypeRouterAndSwitchPort:
      doFloodToRouters(req, nullptr, nullptr, ctrlType, true);
      break;
    case floodTypeMembers: {
      KIV_TRACE(packetTrace, 7, "Flooding to group members except " << incoming);
      // A secondary VLAN's groups live in its primary's core.
      const IgmpContextStatus* status = nullptr;
      if (glueVlanSm_->primaryVlan().isNone()) {
        status = glueVlanSm_->coreStatus().ptr();
      } else if (glueVlanSm_->coreSm()) {
        status = glueVlanSm_->coreSm()->status().ptr();
      }
      auto group = status ? status->group(req.optionalGroupAddress()) : nullptr;
      if (group) {
        for (auto& i : group->intfIter()) {
          if (i.key() != incoming) doTxPkt(i.key(), req, ctrlType);
        }
      }
      // The peer's members of the Ethernet group join here once the peer's status is taken in.
      doFloodToRouters(req, group.ptr(), nullptr, ctrlType, false);
      break;
    }
    default:
      KIV_TRACE(packetTrace, 7, "Flooding to interface " << req.outgoingIntfId());
      doTxPkt(req.outgoingIntfId(), req, ctrlType);
      break;
  }
}

void SoftFlooder::doFloodToRouters(const FloodReq& req, const IgmpGroup* group,
                                   const Bridging::IgmpSnooping::EthernetGroup* ethGroup,
                                   FloodControl::PktType floodCtrlPktType, bool includeSwitchPort) {
  // Router state of a private VLAN lives in its primary.
  const GlueVlanSm* routerVlan = glueVlanSm_;
  if (!glueVlanSm_->primaryVlan().isNone()) {
    routerVlan = glueVlanSm_->glueSm()->vlanSm(Bridging::VlanId(glueVlanSm_->primaryVlan().value()));
    KIV_ASSERT_TEXT(routerVlan, "vsm");
  }
  const IntfId incoming = req.incomingIntfId();
  auto served = [group, ethGroup](IntfId intf) {
    return (group && group->intf(intf)) || (ethGroup && ethGroup->groupIntf(intf));
  };
  KIV_TRACE(packetTrace, 7,
            "Flooding to router interfaces (" << routerVlan->routerInterfaceSize() << " routers known)");
  // By index, and the size read each time: a hook may take a router port away while a frame is sent.
  const std::vector<IntfId>& routers = routerVlan->routerPorts();
  for (size_t k = 0; k < routers.size(); ++k) {
    const IntfId intf = routers[k];
    if (intf == incoming || !enabledIntf(intf) || served(intf)) continue;
    KIV_TRACE(packetTrace, 8, "Flooding to RouterInterface " << intf);
    doTxPkt(intf, req, floodCtrlPktType);
  }
  const auto& status = routerVlan->coreStatus();
  if (includeSwitchPort && status) {
    for (auto& s : status->switchPortIter()) {
      const IntfId intf = s.key();
      if (intf == incoming || routerVlan->routerInterface(intf) || !enabledIntf(intf)) continue;
      KIV_TRACE(packetTrace, 8, "Flooding to Switch Port " << intf);
      doTxPkt(intf, req, floodCtrlPktType);
    }
  }
  for (auto& h : glueVlanSm_->glueSm()->floodControl()) {
    const IntfId extra = h.second->additionalRouterIntf(incoming);
    if (!extra || extra == incoming || routerVlan->routerInterface(extra)) continue;
    if (includeSwitchPort && status && status->switchPort(extra)) continue;
    if (!glueVlanMultiplexerDir_->multiplexer(extra) || served(extra)) continue;
    KIV_TRACE(packetTrace, 8, "Flooding to additional RouterInterface " << extra);
    doTxPkt(extra, req, floodCtrlPktType);
  }
}

void SoftFlooder::doTxPkt(IntfId intf, const FloodReq& req, FloodControl::PktType floodCtrlPktType) {
  for (auto& h : glueVlanSm_->glueSm()->floodControl()) {
    if (!h.second->floodAllowed(req.orig(), floodCtrlPktType, req.incomingIntfId(), intf)) {
      KIV_TRACE(packetTrace, 7, "Flooding restricted from " << req.incomingIntfId() << " to " << intf);
      KIV_TRACE(packetTrace, 8,
                "Flooding restricted from " << req.incomingIntfId() << " to " << intf << " at "
                                            << Kiv::System::currentTime());
      return;
    }
  }
  VirtualIntfGlueVlanMultiplexer* mux = glueVlanMultiplexerDir_->multiplexer(intf);
  if (!mux) {
    std::cerr << "multiplexer for intf " << intf << " not found." << std::endl;
    Kiv::assertionFailed("false && \"multiplexer absent.\"", __FILE__, __LINE__, __PRETTY_FUNCTION__);
  }
  mux->handleTxPkt(glueVlanSm_->vlanId(), req.orig());
  if (IgmpContextIntfCounter* counter = glueVlanSm_->intfCounter(intf)) {
    switch (req.pktType()) {
      case pktTypeQuery:
        counter->outPktIgmpQueryInc();
        break;
      case pktTypeReport:
        counter->outPktIgmpReportInc();
        break;
      case pktTypeLeave:
        counter->outPktIgmpLeaveInc();
        break;
      default:
        counter->outPktOtherInc();
        break;
    }
  }
  KIV_TRACE(packetTrace, 9, "Done flooding interface at " << Kiv::System::currentTime());
}

}  // namespace IgmpShim
