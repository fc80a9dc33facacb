// The VLAN packet path: what happens to a frame between its multiplexer and the core, and to a frame
// that the core never sees. The cheap tests stand first; the checksum runs only on frames that are IP.
#include "core/CoreTrace.h"
#include "glue/GlueTrace.h"
#include "glue/GlueVlanSm.h"
#include "kernel/ActivityManager.h"
#include "net/IpHdr.h"
#include "net/NetU16.h"
#include "net/PktVlanTag.h"

namespace IgmpShim {

using namespace Bridging::IgmpSnooping;
using Lomax::IntfId;

namespace {
constexpr uint16_t minIpFrameBytes = Lomax::ethHeaderBytes + Lomax::IpHdr::minBytes;
}

IgmpContextIntfCounter* GlueVlanSm::intfCounterLookup(IntfId intf) {
  const uint32_t i = intf.internIndex();
  if (i >= intfCounters_.size()) intfCounters_.resize(i + 1);
  Kiv::Ptr<IgmpContextIntfCounter>& c = intfCounters_[i];
  c = igmpCounterDir_->intfCounter(intf.stringValue());
  return c.ptr();
}

void GlueVlanSm::doRxPkt(IntfId intf, Kiv::Ptr<Lomax::Pkt> pkt) {
  KIV_TRACE_FUNC(packetTrace);
  if (!pkt) {
    KIV_TRACE(packetTrace, 8, " return ");
    return;
  }
  const uint32_t index = intf.internIndex();
  const bool mayReceive = index >= rxForbidden_.size() || !rxForbidden_[index];
  if (coreSm_ && !coreSm_->enabledIntf(intf)) {
    KIV_TRACE(packetTrace, 7, "Received packet on " << intf << " but the intf is not enabled in coreSm ");
    KIV_TRACE(packetTrace, 8, " return ");
    return;
  }
  if (!mayReceive) {
    KIV_TRACE(packetTrace, 8, " return ");
    return;
  }
  IgmpContextIntfCounter* counter = intfCounter(intf);
  KIV_ASSERT_TEXT(counter, "counter");
  for (auto& hook : glueSm_->floodControl()) {
    if (hook.second->preProcessPkt(pkt)) {
      KIV_TRACE(packetTrace, 7, "Dropping tunneled packet - doing sync ");
      KIV_TRACE(packetTrace, 8, " return ");
      return;
    }
  }
  if (pkt->len() < minIpFrameBytes) {
    KIV_TRACE(packetTrace, 7, "Dropping packet with too few bytes " << pkt->len());
    counter->inPktTooShortInc();
    KIV_TRACE(packetTrace, 8, " return ");
    return;
  }
  // The offsets a frame brings from its multiplexer are not trusted.
  KIV_TRACE(packetTrace, 9,
            "Reset Offsets. Begin Offset: " << pkt->beginOffset() << " End Offset " << pkt->endOffset());
  pkt->beginOffsetIs(0);
  pkt->endOffsetIs(0);
  const uint16_t ethType = Lomax::NetU16::read(pkt->data() + 12);
  if (ethType != Lomax::ethTypeIp) {
    // A frame with a second tag ends here: only one tag was removed.
    KIV_TRACE(packetTrace, 7, "Dropping non-IP type 0x" << std::hex << ethType << std::dec);
    counter->inPktNonIpInc();
    KIV_TRACE(packetTrace, 8, " return ");
    return;
  }
  pkt->beginOffsetInc(Lomax::ethHeaderBytes);
  // A header that the frame cannot hold is short; one that is no IPv4 header is never summed. Nothing
  // of it is read before the view says it is there.
  const uint32_t have = pkt->offsetBytes();
  const std::optional<Lomax::IpHdr> view = Lomax::IpHdr::of(pkt->offsetFront(), have);
  if (!view && (have < Lomax::IpHdr::minBytes || (pkt->offsetFront()[0] & 0xfu) * 4u > have)) {
    KIV_TRACE(packetTrace, 7, "Dropping IP packet with too few bytes (have " << have << ")");
    counter->inPktTooShortInc();
    KIV_TRACE(packetTrace, 8, " return ");
    return;
  }
  if (!view || view->computedChecksum() != Lomax::zeroChecksum) {
    KIV_TRACE(packetTrace, 7, "Dropping IP packet with bad header checksum");
    counter->inPktBadIpChecksumInc();
    KIV_TRACE(packetTrace, 8, " return ");
    return;
  }
  const Lomax::IpHdr& ip = *view;

  if (pkt->offsetBytes() < ip.totalLen()) {
    KIV_TRACE(packetTrace, 7,
              "Dropping IP packet with too few bytes (have " << pkt->offsetBytes() << " want "
                                                             << ip.totalLen() << ")");
    counter->inPktTooShortInc();
    KIV_TRACE(packetTrace, 8, " return ");
    return;
  }
  const uint8_t protocol = ip.protocol();
  const HwConfig* hw = glueSm_->hwConfig().ptr();
  if (!coreSm_) {
    // Every packet of a VLAN without a core counts as unknown, IGMP too, flooded or not.
    counter->inPktUnknownInc();
    bool flood = false;
    if (hw) {
      flood = protocol == Lomax::ipProtocolIgmp  ? hw->swFloodIgmpNoCore()
              : protocol == Lomax::ipProtocolPim ? hw->swFloodPimNoCore()
                                                 : hw->swFloodOtherNoCore();
    }
    if (!flood) {
      KIV_TRACE(packetTrace, 7, "No sw Flooding on this hardware");
      KIV_TRACE(packetTrace, 8, " return ");
      return;
    }
    KIV_TRACE(packetTrace, 7, " No core. Flood to entire vlan. ");
    KIV_TRACE(linkLocalTrace, 7,
              " No core. "
                  << " Flood to entire vlan at " << Kiv::System::currentTime());
    doFlood(std::move(pkt), floodTypeVlan, intf, pktTypeOther);
    KIV_TRACE(packetTrace, 8, " return ");
    return;
  }
  if (protocol == Lomax::ipProtocolIgmp) {
    // The core owns all flooding of IGMP.
    coreSm_->doRxPkt(intf, std::move(pkt), flooder_);
  } else if (protocol == Lomax::ipProtocolPim) {
    coreSm_->doRxPkt(intf, pkt, flooder_);
    if (hw && hw->swFloodPimWithCore()) doFlood(std::move(pkt), floodTypeVlan, intf, pktTypePim);
  } else if (ip.dst().isReservedMulticast()) {
    const Lomax::IpAddr dst = ip.dst();
    KIV_TRACE(linkLocalTrace, 7,
              "Found a link local packet with dst " << dst << " at " << Kiv::System::currentTime());
    KIV_TRACE(linkLocalTrace, 7, "==============================================");
    if (hw && hw->swFloodLinkLocalWithCore()) {
      KIV_TRACE(linkLocalTrace, 7, "Calling doFlood on packet at " << Kiv::System::currentTime());
      doFlood(std::move(pkt), floodTypeVlan, intf, pktTypeLinkLocal);
    }
    KIV_TRACE(linkLocalTrace, 7, "Done with packet to dst " << dst << " at " << Kiv::System::currentTime());
    KIV_TRACE(linkLocalTrace, 7, "==============================================");
  } else {
    counter->inPktUnknownInc();
    KIV_TRACE(packetTrace, 7, "Ignore unknown protocol/ip pkts " << unsigned(protocol) << " ip " << ip.dst());
  }
  KIV_TRACE(packetTrace, 8, " return ");
}

void GlueVlanSm::doFlood(Kiv::Ptr<Lomax::Pkt> pkt, IgmpSnoopingFloodType type, IntfId incoming,
                         IgmpSnoopingPktType pktType) {
  KIV_TRACE_FUNC(packetTrace);
  KIV_TRACE(linkLocalTrace, 8, "doFlood at " << Kiv::System::currentTime());
  if (!flooder_) {
    KIV_TRACE(packetTrace, 6, "Dropping flood request, no flooder!");
    return;
  }
  KIV_TRACE(linkLocalTrace, 8, "Flooder check passed at " << Kiv::System::currentTime());
  flooder_->floodReqIs(Kiv::Ptr<IgmpSnoopingFloodReq>(
      new IgmpSnoopingFloodReq(type, incoming, Lomax::emptyIntfId, std::move(pkt), pktType)));
}

}  // namespace IgmpShim
