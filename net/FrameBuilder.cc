// The one place where control frames are built byte by byte.
#include "net/FrameBuilder.h"

#include <algorithm>
#include <cstring>

#include "net/IpHdr.h"
#include "net/IpToEthGroupMap.h"
#include "net/MessageHdr.h"
#include "net/MessageType.h"
#include "net/NetU16.h"
#include "net/PimCommonHdr.h"
#include "net/PktVlanTag.h"
#include "net/QQIC.h"

namespace Lomax {

namespace {
constexpr uint16_t minFrameBytes = 60;
constexpr uint8_t routerAlertOption[4] = {0x94, 0x04, 0x00, 0x00};
}  // namespace

class FrameBuilder::Frame {
 public:
  Frame(const FrameBuilder& b, IpAddr dst, uint8_t protocol, bool routerAlert, uint32_t payloadLen)
      : builder_(b),
        ipBytes_(static_cast<uint16_t>(IpHdr::minBytes + (routerAlert ? 4 : 0))),
        payloadLen_(payloadLen) {
    uint32_t len = ethHeaderBytes + ipBytes_ + payloadLen;
    KIV_ASSERT(len <= 0xffff - vlanTagBytes);
    pkt_ = globalPktManager().newPkt(static_cast<uint16_t>(std::max<uint32_t>(len, minFrameBytes)));
    uint8_t* d = pkt_->data();
    Bridging::IgmpSnooping::IpToEthGroupMap(dst).bytesOut(d);
    b.srcMac_.bytesOut(d + 6);
    NetU16::write(d + 12, ethTypeIp);
    uint8_t* ip = d + ethHeaderBytes;
    ip[0] = static_cast<uint8_t>(0x40 | ipBytes_ / 4);
    ip[1] = ipTos;
    NetU16::write(ip + 2, static_cast<uint16_t>(ipBytes_ + payloadLen));
    ip[8] = 1;
    ip[9] = protocol;
    b.srcIp_.bytesOut(ip + 12);
    dst.bytesOut(ip + 16);
    if (routerAlert) std::memcpy(ip + IpHdr::minBytes, routerAlertOption, sizeof routerAlertOption);
  }

  uint8_t* payload() const { return pkt_->data() + ethHeaderBytes + ipBytes_; }

  // A control message's checksum sits where its header says; a UDP datagram goes without one.
  Kiv::Ptr<Pkt> finish(bool messageChecksum = true) {
    std::optional<IpHdr> ip = IpHdr::of(pkt_->data() + ethHeaderBytes, pkt_->len() - ethHeaderBytes);
    KIV_ASSERT(ip);
    if (messageChecksum) {
      std::optional<MessageHdr> message = MessageHdr::of(payload(), payloadLen_);
      KIV_ASSERT(message);
      message->doChecksumUpdate(payloadLen_);
    }
    ip->doChecksumUpdate();
    if (!builder_.vlan_.isNone()) insertPktVlanTag(pkt_, Bridging::VlanId(builder_.vlan_.value()));
    return pkt_;
  }

 private:
  const FrameBuilder& builder_;
  uint16_t ipBytes_;
  uint32_t payloadLen_;
  Kiv::Ptr<Pkt> pkt_;
};

Kiv::Ptr<Pkt> FrameBuilder::igmpV12Message(MessageType type, IpAddr dst, IpAddr group,
                                           bool routerAlert) const {
  Frame f(*this, dst, ipProtocolIgmp, routerAlert, 8);
  f.payload()[0] = type;
  group.bytesOut(f.payload() + 4);
  return f.finish();
}

Kiv::Ptr<Pkt> FrameBuilder::udpDatagram(IpAddr dst, uint16_t port, uint16_t payloadLen) const {
  constexpr uint8_t ipProtocolUdp = 17;
  constexpr uint16_t udpHeaderBytes = 8;
  Frame f(*this, dst, ipProtocolUdp, false, udpHeaderBytes + payloadLen);
  std::memset(f.payload(), 0, udpHeaderBytes + payloadLen);
  NetU16::write(f.payload(), port);
  NetU16::write(f.payload() + 2, port);
  NetU16::write(f.payload() + 4, static_cast<uint16_t>(udpHeaderBytes + payloadLen));
  return f.finish(false);
}

// Version 1 predates the Router Alert option; version 2 sends it on every message (RFC 2236).
Kiv::Ptr<Pkt> FrameBuilder::igmpV1Report(IpAddr group) const {
  return igmpV12Message(messageTypeV1MembershipReport, group, group, false);
}

Kiv::Ptr<Pkt> FrameBuilder::igmpV2Report(IpAddr group) const {
  return igmpV12Message(messageTypeV2MembershipReport, group, group, true);
}

Kiv::Ptr<Pkt> FrameBuilder::igmpV2Leave(IpAddr group) const {
  return igmpV12Message(messageTypeV2LeaveGroup, allRouters, group, true);
}

Kiv::Ptr<Pkt> FrameBuilder::igmpV3Report(std::span<const Gmp::Igmp::IgmpGroupRecord> records) const {
  uint32_t len = 8;
  for (const auto& r : records) len += 8 + 4u * r.numSources();
  Frame f(*this, allV3Routers, ipProtocolIgmp, true, len);
  uint8_t* m = f.payload();
  m[0] = messageTypeV3MembershipReport;
  NetU16::write(m + 6, static_cast<uint16_t>(records.size()));
  uint8_t* r = m + 8;
  for (const auto& rec : records) {
    r[0] = rec.recordType();
    NetU16::write(r + 2, rec.numSources());
    rec.group().bytesOut(r + 4);
    if (rec.numSources()) std::memcpy(r + 8, rec.sources().wireBytes(), 4u * rec.numSources());
    r += 8 + 4u * rec.numSources();
  }
  return f.finish();
}

Kiv::Ptr<Pkt> FrameBuilder::igmpQuery(const Gmp::Igmp::IgmpQuery& q) const {
  bool v3 = q.version() == Gmp::Igmp::igmpVersion3;
  IpAddr dst = q.group().isZero() ? allSystems : q.group();
  uint32_t len = v3 ? 12 + 4u * q.numSources() : 8;
  Frame f(*this, dst, ipProtocolIgmp, q.version() != Gmp::Igmp::igmpVersion1, len);
  uint8_t* m = f.payload();
  m[0] = messageTypeMembershipQuery;
  m[1] = q.version() == Gmp::Igmp::igmpVersion1 ? 0 : q.maxResponseCode();
  q.group().bytesOut(m + 4);
  if (v3) {
    m[8] = static_cast<uint8_t>((q.suppressRouterSideProcessing() ? 0x08 : 0) | (q.robustness() & 0x07));
    m[9] = static_cast<uint8_t>(q.queryIntervalCode());
    NetU16::write(m + 10, q.numSources());
    if (q.numSources()) std::memcpy(m + 12, q.sources().wireBytes(), 4u * q.numSources());
  }
  return f.finish();
}

Kiv::Ptr<Pkt> FrameBuilder::pimV2Hello(uint16_t holdtime) const {
  Frame f(*this, allPimRouters, ipProtocolPim, false, 10);
  uint8_t* m = f.payload();
  m[0] = pimTypeV2Hello;
  // Option 1, Holdtime, two bytes long.
  NetU16::write(m + 4, 1);
  NetU16::write(m + 6, 2);
  NetU16::write(m + 8, holdtime);
  return f.finish();
}

Kiv::Ptr<Pkt> FrameBuilder::dvmrpProbe(uint32_t generationId) const {
  Frame f(*this, allDvmrpRouters, ipProtocolIgmp, false, 12);
  uint8_t* m = f.payload();
  m[0] = messageTypeDvmrp;
  m[1] = 1;
  // Minor version 0xff, major version 3.
  m[6] = 0xff;
  m[7] = 3;
  NetU16::write(m + 8, static_cast<uint16_t>(generationId >> 16));
  NetU16::write(m + 10, static_cast<uint16_t>(generationId));
  return f.finish();
}

Kiv::Ptr<Pkt> FrameBuilder::mrdAdvertisement(uint8_t interval, uint16_t queryInterval,
                                             uint16_t robustness) const {
  Frame f(*this, allSnoopers, ipProtocolIgmp, true, 8);
  uint8_t* m = f.payload();
  m[0] = messageTypeMrdAdvertisement;
  m[1] = interval;
  NetU16::write(m + 4, queryInterval);
  NetU16::write(m + 6, robustness);
  return f.finish();
}

Kiv::Ptr<Pkt> FrameBuilder::mrdTermination() const {
  Frame f(*this, allSnoopers, ipProtocolIgmp, true, 4);
  f.payload()[0] = messageTypeMrdTermination;
  return f.finish();
}

}  // namespace Lomax
