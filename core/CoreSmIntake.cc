// The packet's road through the core: checks, counters, classification, state effects, and the flood.
#include <iomanip>

#include "core/CoreSm.h"
#include "core/CoreTrace.h"
#include "net/DvmrpHdr.h"
#include "net/GroupList.h"
#include "net/IgmpCommonHdr.h"
#include "net/IgmpV3Report.h"
#include "net/PimCommonHdr.h"

namespace Bridging::IgmpSnooping {

using Gmp::Igmp::IgmpVersion;
using Lomax::IntfId;
using Lomax::IpAddr;

namespace {
// Every version 1 or 2 message, and every road that has a length test, needs this much.
constexpr uint32_t minMessageBytes = 8;
// A DVMRP message with this code is a probe, which only routers send.
constexpr uint8_t dvmrpProbeCode = 1;
constexpr uint8_t pimV2Hello = 0x20;
constexpr Kiv::Seconds dvmrpRouterLife = 35.0;
constexpr Kiv::Seconds pimRouterLife = 105.0;
// An MRD advertisement's interval is multiplied by this to give the router's life.
constexpr double mrdLifeFactor = 3.025;
}  // namespace

void CoreSm::doRxPkt(IntfId intf, Kiv::Ptr<Lomax::Pkt> pkt, Kiv::Ptr<IgmpSnoopingFlooder> flooder) {
  KIV_TRACE_FUNC(packetTrace);
  KIV_ASSERT(pkt);
  KIV_ASSERT_TEXT(enabledIntf(intf), "enabledIntf( intf )");
  // Nothing of the header is read before it is known to be a whole version 4 header.
  const std::optional<Lomax::IpHdr> checked = Lomax::IpHdr::of(pkt->offsetFront(), pkt->offsetBytes());
  if (!checked) {
    const Kiv::Ptr<IgmpContextIntfCounter> counter = intfCounter(intf);
    KIV_ASSERT(counter);
    if (pkt->offsetBytes() && pkt->offsetFront()[0] >> 4 != 4) {
      KIV_TRACE(packetTrace, 6, "Dropping non-IPv4 packet on " << intf);
      counter->inPktNonIpInc(1);
    } else {
      KIV_TRACE(packetTrace, 6, "Dropping packet with a bad IP header length on " << intf);
      counter->inPktTooShortInc(1);
    }
    return;
  }
  const Lomax::IpHdr ipHdr = *checked;
  pkt->beginOffsetInc(static_cast<int16_t>(ipHdr.headerBytes()));
  const uint16_t payloadLen = ipHdr.payloadLen();
  if (pkt->offsetBytes() > payloadLen) {
    KIV_TRACE(packetTrace, 9, "Truncating pkt to ip len: " << pkt->offsetBytes() << " vs. " << payloadLen);
    pkt->endOffsetInc(static_cast<uint16_t>(pkt->offsetBytes() - payloadLen));
  }
  switch (ipHdr.protocol()) {
    case Lomax::ipProtocolIgmp:
      doParseIgmp(intf, std::move(pkt), ipHdr, std::move(flooder));
      break;
    case Lomax::ipProtocolPim:
      doParsePim(intf, std::move(pkt), ipHdr);
      break;
    default: {
      KIV_TRACE(packetTrace, 6, "Ignoring IP protocol " << unsigned(ipHdr.protocol()) << " on " << intf);
      const Kiv::Ptr<IgmpContextIntfCounter> counter = intfCounter(intf);
      KIV_ASSERT(counter);
      counter->inPktUnknownInc(1);
    }
  }
}

bool CoreSm::isProxySuppressed(IntfId intf) const {
  return contextConfig_ && contextConfig_->proxyEnabled() && intf != Lomax::switchIntfId();
}

void CoreSm::doFlood(Kiv::Ptr<Lomax::Pkt> pkt, IgmpSnoopingFloodType floodType, IntfId incomingIntfId,
                     IntfId outgoingIntfId, IgmpSnoopingPktType pktType, IpAddr optionalGroupAddress,
                     bool needsPreProcess, const Kiv::Ptr<IgmpSnoopingFlooder>& flooder) {
  KIV_TRACE(packetTrace, 8,
            "CoreSm::doFlood " << floodType << " " << pktType << " in " << incomingIntfId << " out "
                               << outgoingIntfId);
  if (!flooder) {
    KIV_TRACE(packetTrace, 6, "Dropping flood request, no flooder!");
    return;
  }
  Kiv::Ptr<IgmpSnoopingFloodReq> req(
      new IgmpSnoopingFloodReq(floodType, incomingIntfId, outgoingIntfId, std::move(pkt), pktType));
  req->needsPreProcessIs(needsPreProcess);
  if (floodType == floodTypeMembers) req->optionalGroupAddressIs(optionalGroupAddress);
  flooder->floodReqIs(std::move(req));
}

void CoreSm::doFloodReport(const char* what, const Kiv::Ptr<Lomax::Pkt>& pkt, IntfId intf,
                           IgmpSnoopingPktType pktType, const Kiv::Ptr<IgmpSnoopingFlooder>& flooder) {
  if (isProxySuppressed(intf)) {
    KIV_TRACE(packetTrace, 6, "Not forwarding " << what << ", IGMP snooping proxy enabled " << intf);
    return;
  }
  doFlood(pkt, status_->reportFloodingEnabled() ? floodTypeRouterAndSwitchPort : floodTypeRouter, intf,
          Lomax::emptyIntfId, pktType, IpAddr(), false, flooder);
}

const Kiv::Ptr<IgmpContextIntfCounter>& CoreSm::intfCounter(IntfId intf) {
  const uint32_t i = intf.internIndex();
  if (i >= intfCounters_.size()) intfCounters_.resize(i + 1);
  Kiv::Ptr<IgmpContextIntfCounter>& c = intfCounters_[i];
  // A counter taken out of the directory has lost its parent; one may have been put in its place.
  if (!c || c->parent() != counterDir_.ptr()) c = counterDir_->intfCounter(intf.stringValue());
  return c;
}

void CoreSm::doParseIgmp(IntfId intf, Kiv::Ptr<Lomax::Pkt> pkt, Lomax::IpHdr ipHdr,
                         Kiv::Ptr<IgmpSnoopingFlooder> flooder) {
  KIV_TRACE_FUNC(packetTrace);
  const Kiv::Ptr<IgmpContextIntfCounter> counter = intfCounter(intf);
  KIV_ASSERT(counter);
  const uint32_t span = pkt->offsetBytes();
  if (span < 4) {
    KIV_TRACE(packetTrace, 6, "Dropping too-small IGMP packet on " << intf);
    counter->inPktTooShortInc(1);
    return;
  }
  // Over the IP length, not the span: a span shorter than the IP length is short of bytes and fails.
  const uint16_t payloadLen = ipHdr.payloadLen();
  if (span < payloadLen ||
      !(Lomax::IgmpCommonHdr::of(pkt->offsetFront(), span)->computedChecksum(payloadLen) ==
        Lomax::zeroChecksum)) {
    KIV_TRACE(packetTrace, 6, "Dropping packet with bad IGMP checksum on " << intf);
    counter->inPktBadIgmpChecksumInc(1);
    return;
  }
  // Only the roads that passed tooSmall read through it: it holds nothing for a message under 8 bytes.
  const std::optional<Lomax::IgmpV12Hdr> v12 = Lomax::IgmpV12Hdr::of(pkt->offsetFront(), span);
  const IpAddr source = ipHdr.src();
  const uint8_t type = pkt->offsetFront()[0];
  auto tooSmall = [&](const char* text) {
    if (v12) return false;
    KIV_TRACE(packetTrace, 6, text << intf);
    counter->inPktTooShortInc(1);
    return true;
  };

  switch (type) {
    case Lomax::messageTypeMembershipQuery: {
      KIV_TRACE(packetTrace, 9, "Processing a query");
      if (tooSmall("Dropping too-small IGMP Query on ")) return;
      Gmp::Igmp::IgmpQuery query;
      if (v12->maxResponseTime() == 0) {
        KIV_TRACE(packetTrace, 9, "Processing a V1 query");
        counter->inPktIgmpV1QueryInc(1);
        query = Gmp::Igmp::IgmpQuery(Gmp::Igmp::igmpVersion1, v12->maxResponseTime(), v12->group());
      } else if (span <= minMessageBytes) {
        KIV_TRACE(packetTrace, 9, "Processing a V2 query");
        counter->inPktIgmpV2QueryInc(1);
        query = Gmp::Igmp::IgmpQuery(Gmp::Igmp::igmpVersion2, v12->maxResponseTime(), v12->group());
      } else {
        KIV_TRACE(packetTrace, 9, "Processing a V3 query");
        counter->inPktIgmpV3QueryInc(1);
        query = Gmp::Igmp::doIgmpMembershipQueryParse(pkt);
        if (!query.valid()) {
          KIV_TRACE(packetTrace, 6, "Dropping an invalid V3 query");
          counter->inPktTooShortInc(1);
          return;
        }
        KIV_TRACE(packetTrace, 9, "Processing a valid V3 query");
      }
      GroupAddressFloodTypePair pair =
          doIgmpMembershipQueryProcess(query, intf, GroupAddressFloodTypePair{IpAddr(), floodTypeVlan});
      if (!source.isZero()) {
        doQuerierElection(intf, ipHdr, *v12, query.version());
        doMulticastRouter(source, intf, status_->otherQuerierPresentInterval(), routerTypeQuery);
      }
      // Only a general query is kept for the restart replay and the spoofer; a group-specific one that
      // is flooded to the VLAN is not one to send as if it were general.
      if (query.group().isZero()) status_->latestQueryIs(pkt->stringValue());
      if (isProxySuppressed(intf)) {
        KIV_TRACE(packetTrace, 6, "Not forwarding query, IGMP snooping proxy enabled " << intf);
        return;
      }
      doFlood(pkt, pair.floodType, intf, Lomax::emptyIntfId, pktTypeQuery, pair.groupAddress, false, flooder);
      return;
    }
    case Lomax::messageTypeV1MembershipReport:
    case Lomax::messageTypeV2MembershipReport: {
      if (tooSmall("Dropping too-small IGMP Report on ")) return;
      IgmpVersion version = Gmp::Igmp::igmpVersion2;
      if (type == Lomax::messageTypeV1MembershipReport) {
        counter->inPktIgmpV1ReportInc(1);
        version = Gmp::Igmp::igmpVersion1;
      } else {
        counter->inPktIgmpV2ReportInc(1);
      }
      KIV_TRACE(packetTrace, 9, "Processing a valid V1 or V2 report");
      // A version 1 or 2 join is an exclude of nothing.
      Gmp::Igmp::IgmpGroupRecord record(Gmp::Igmp::recordTypeModeIsExclude, v12->group());
      if (!doIgmpMembershipReportProcess(record, intf, source, version, counter)) {
        KIV_TRACE(packetTrace, 6, "Dropping join report from  " << source << " for group " << v12->group());
        return;
      }
      doFloodReport("report", pkt, intf, pktTypeReport, flooder);
      return;
    }
    case Lomax::messageTypeV3MembershipReport: {
      counter->inPktIgmpV3ReportInc(1);
      KIV_TRACE(packetTrace, 9, "Parsing a V3 report");
      // Parsed into the storage of the last report, so that a warm core parses with no allocation; a
      // report that arrives while this one is processed (a flood looped back) takes fresh storage.
      struct Lease {
        Gmp::Igmp::IgmpV3Report& spare;
        Gmp::Igmp::IgmpV3Report report = std::move(spare);
        ~Lease() {
          report.clear();
          spare = std::move(report);
        }
      } lease{spareV3Report_};
      Gmp::Igmp::IgmpV3Report& report = lease.report;
      if (!Gmp::Igmp::doIgmpV3MembershipReportParse(pkt, report)) {
        KIV_TRACE(packetTrace, 6, "Dropping an invalid V3 report");
        counter->inPktTooShortInc(1);
        return;
      }
      KIV_TRACE(packetTrace, 9, "Processing a valid V3 report");
      Gmp::Igmp::GroupList dropped;
      bool anyDropped = false;
      for (const Gmp::Igmp::IgmpGroupRecord& record : report.records()) {
        if (doIgmpMembershipReportProcess(record, intf, source, Gmp::Igmp::igmpVersion3, counter)) continue;
        KIV_TRACE(packetTrace, 6, "Dropping join report from  " << source << " for group " << record.group());
        anyDropped = true;
        dropped.groupListIs(record.group(), true);
        dropped.groupCountInc(1);
      }
      if (anyDropped) {
        if (dropped.groupCount() == report.numberOfRecords()) {
          KIV_TRACE(packetTrace, 6, "Dropping V3 report as all groups were dropped");
          return;
        }
        if (!Gmp::Igmp::doIgmpV3MembershipReportFilterEdit(pkt, dropped, ipHdr)) {
          KIV_TRACE(packetTrace, 6, "Dropping a V3 report due to failed rewrite");
          return;
        }
      }
      doFloodReport("report", pkt, intf, pktTypeReport, flooder);
      return;
    }
    case Lomax::messageTypeV2LeaveGroup: {
      if (tooSmall("Dropping too-small IGMPv2 Leave on ")) return;
      IgmpSnoopingPktType pktType = pktTypeOther;
      if (isPeerLink(intf)) {
        KIV_TRACE(packetTrace, 6, "ignoring report from peerLink intd: " << intf);
      } else {
        KIV_TRACE(packetTrace, 9, "Processing a valid V2 leave");
        if (contextConfig_ && contextConfig_->immediateLeave() && !v12->group().isZero()) {
          doIgmpGroupNoInfo(v12->group(), intf, source);
        }
        peerNotifyNegStateSrc(v12->group(), intf, source, IpAddr());
        pktType = pktTypeLeave;
      }
      counter->inPktIgmpV2LeaveInc(1);
      doFloodReport("leave", pkt, intf, pktType, flooder);
      return;
    }
    case Lomax::messageTypeDvmrp: {
      if (tooSmall("Dropping too-small DVMRP packet on ")) return;
      counter->inPktDvmrpInc(1);
      if (Lomax::DvmrpHdr::of(pkt->offsetFront(), span)->code() == dvmrpProbeCode) {
        doMulticastRouter(source, intf, dvmrpRouterLife, routerTypeDvmrp);
      }
      break;
    }
    case Lomax::messageTypeMrdAdvertisement: {
      if (tooSmall("Dropping too-small IGMP MRD packet on ")) return;
      doMulticastRouter(source, intf, pkt->offsetFront()[1] * mrdLifeFactor, routerTypeMrd);
      counter->inPktMrdInc(1);
      break;
    }
    case Lomax::messageTypeMrdTermination:
      doMulticastRouter(source, intf, 0.0, routerTypeMrd);
      counter->inPktMrdInc(1);
      break;
    default:
      KIV_TRACE(packetTrace, 6, "Flooding unknown IGMP type 0x" << std::hex << unsigned(type) << std::dec);
      counter->inPktIgmpOtherInc(1);
      break;
  }
  // DVMRP, MRD and unknown messages go to the whole VLAN, whatever the proxy says.
  doFlood(pkt, floodTypeVlan, intf, Lomax::emptyIntfId, pktTypeOther, IpAddr(), false, flooder);
}

void CoreSm::doParsePim(IntfId intf, Kiv::Ptr<Lomax::Pkt> pkt, Lomax::IpHdr ipHdr) {
  KIV_TRACE_FUNC(packetTrace);
  const Kiv::Ptr<IgmpContextIntfCounter> counter = intfCounter(intf);
  KIV_ASSERT(counter);
  const std::optional<Lomax::PimCommonHdr> pim =
      Lomax::PimCommonHdr::of(pkt->offsetFront(), pkt->offsetBytes());
  if (!pim || pkt->offsetBytes() < ipHdr.payloadLen() ||
      !(pim->computedChecksum(ipHdr.payloadLen()) == Lomax::zeroChecksum)) {
    KIV_TRACE(packetTrace, 6, "Ignoring packet with bad PIM checksum on " << intf);
    counter->inPktBadPimChecksumInc(1);
    return;
  }
  if (!ipHdr.src().isZero() && pim->messageType() == pimV2Hello) {
    doMulticastRouter(ipHdr.src(), intf, pimRouterLife, routerTypePim);
  }
  counter->inPktPimInc(1);
}

}  // namespace Bridging::IgmpSnooping
