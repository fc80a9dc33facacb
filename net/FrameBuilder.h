// Builds every control frame the system sends or tests with: IGMP reports, leaves and queries of each
// version, PIM hello, DVMRP probe, MRD advertisement and termination. Each is a full Ethernet frame:
// RFC 1112 destination MAC, IP TTL 1, correct checksums, the Router Alert option where IGMP uses it,
// padded to the Ethernet minimum, tagged when the builder has a VLAN.
#pragma once

#include <cstdint>
#include <span>

#include "kernel/Ptr.h"
#include "net/EthAddr.h"
#include "net/IgmpGroupRecord.h"
#include "net/IgmpQuery.h"
#include "net/IpAddr.h"
#include "net/MessageType.h"
#include "net/Pkt.h"
#include "net/VlanIdOrNone.h"

namespace Lomax {

class FrameBuilder {
 public:
  static constexpr IpAddr allSystems{224, 0, 0, 1};
  static constexpr IpAddr allRouters{224, 0, 0, 2};
  static constexpr IpAddr allDvmrpRouters{224, 0, 0, 4};
  static constexpr IpAddr allPimRouters{224, 0, 0, 13};
  static constexpr IpAddr allV3Routers{224, 0, 0, 22};
  static constexpr IpAddr allSnoopers{224, 0, 0, 106};
  static constexpr uint8_t ipTos = 0xc0;

  // Frames carry srcMac and srcIp, and an 802.1Q tag unless vlan is none.
  FrameBuilder(EthAddr srcMac, IpAddr srcIp, Bridging::VlanIdOrNone vlan = {})
      : srcMac_(srcMac), srcIp_(srcIp), vlan_(vlan) {}

  Kiv::Ptr<Pkt> igmpV1Report(IpAddr group) const;
  Kiv::Ptr<Pkt> igmpV2Report(IpAddr group) const;
  Kiv::Ptr<Pkt> igmpV2Leave(IpAddr group) const;
  // Records of any type, unknown ones included, each with its sources.
  Kiv::Ptr<Pkt> igmpV3Report(std::span<const Gmp::Igmp::IgmpGroupRecord> records) const;
  // General when the group is 0.0.0.0, group-specific otherwise; by the query's version: version 1
  // sends code 0, version 2 the code, version 3 also the S flag, QRV, QQIC and sources.
  Kiv::Ptr<Pkt> igmpQuery(const Gmp::Igmp::IgmpQuery& query) const;
  Kiv::Ptr<Pkt> pimV2Hello(uint16_t holdtime) const;
  Kiv::Ptr<Pkt> dvmrpProbe(uint32_t generationId) const;
  Kiv::Ptr<Pkt> mrdAdvertisement(uint8_t interval, uint16_t queryInterval, uint16_t robustness) const;
  Kiv::Ptr<Pkt> mrdTermination() const;
  // Multicast data: a UDP datagram of payloadLen zero bytes to dst, with no UDP checksum.
  Kiv::Ptr<Pkt> udpDatagram(IpAddr dst, uint16_t port, uint16_t payloadLen) const;

 private:
  // The Ethernet and IP headers for a payload of len bytes, which the caller fills in at payload();
  // finish() then writes the checksums, pads and tags.
  class Frame;
  Kiv::Ptr<Pkt> igmpV12Message(MessageType type, IpAddr dst, IpAddr group, bool routerAlert) const;
  EthAddr srcMac_;
  IpAddr srcIp_;
  Bridging::VlanIdOrNone vlan_;
};

}  // namespace Lomax
