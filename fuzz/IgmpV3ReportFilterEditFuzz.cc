// Fuzzes the report rewrite. Input: one byte whose bits pick records to drop (record i by bit i % 8), then
// the IGMP message, which goes behind an Ethernet and IP header. A report that does not parse must be
// refused and left as it was; one that does must rewrite into a report that parses, whose checksums
// verify, and whose kept records are unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "net/IgmpCommonHdr.h"
#include "net/IgmpV3Report.h"
#include "net/IpHdr.h"
#include "net/PktVlanTag.h"

namespace {

struct Kept {
  Gmp::Igmp::RecordType type;
  Lomax::IpAddr group;
  std::vector<uint8_t> sources;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr uint16_t ipAt = Lomax::ethHeaderBytes, ipBytes = Lomax::IpHdr::minBytes;
  if (size < 1 || size - 1 > 0xffff - ipAt - ipBytes - 64) return 0;
  uint8_t mask = data[0];
  uint16_t igmpLen = static_cast<uint16_t>(size - 1);
  Kiv::Ptr<Lomax::Pkt> pkt =
      Lomax::globalPktManager().newPkt(static_cast<uint16_t>(ipAt + ipBytes + igmpLen));
  uint8_t* d = pkt->data();
  d[12] = 0x08;
  d[ipAt] = 0x45;
  d[ipAt + 8] = 1;
  d[ipAt + 9] = Lomax::ipProtocolIgmp;
  Lomax::IpHdr ip = *Lomax::IpHdr::of(d + ipAt, pkt->len() - ipAt);
  ip.totalLenIs(static_cast<uint16_t>(ipBytes + igmpLen));
  ip.doChecksumUpdate();
  std::memcpy(d + ipAt + ipBytes, data + 1, igmpLen);
  pkt->beginOffsetIs(ipAt + ipBytes);

  Gmp::Igmp::IgmpV3Report report = Gmp::Igmp::doIgmpV3MembershipReportParse(pkt);
  Gmp::Igmp::GroupList drop;
  for (size_t i = 0; i < report.records().size(); ++i) {
    if (mask >> (i % 8) & 1) drop.groupListIs(report.records()[i].group(), true);
  }
  std::vector<Kept> kept;
  for (const auto& r : report.records()) {
    if (drop.groupList(r.group())) continue;
    const uint8_t* s = r.sources().wireBytes();
    kept.push_back({r.recordType(), r.group(), std::vector<uint8_t>(s, s + 4u * r.numSources())});
  }
  std::vector<uint8_t> before(d, d + pkt->len());

  bool edited = Gmp::Igmp::doIgmpV3MembershipReportFilterEdit(pkt, drop, ip);
  if (edited != report.valid()) std::abort();
  if (!edited) {
    if (std::vector<uint8_t>(pkt->data(), pkt->data() + pkt->len()) != before) std::abort();
    return 0;
  }
  ip = *Lomax::IpHdr::of(pkt->data() + ipAt, pkt->len() - ipAt);
  if (ip.computedChecksum() != Lomax::zeroChecksum || ip.payloadLen() != pkt->offsetBytes()) std::abort();
  if (Lomax::IgmpCommonHdr::of(pkt->offsetFront(), pkt->offsetBytes())
          ->computedChecksum(pkt->offsetBytes()) != Lomax::zeroChecksum)
    std::abort();
  Gmp::Igmp::IgmpV3Report after = Gmp::Igmp::doIgmpV3MembershipReportParse(pkt);
  if (!after.valid() || after.records().size() != kept.size()) std::abort();
  for (size_t i = 0; i < kept.size(); ++i) {
    const auto& r = after.records()[i];
    const uint8_t* s = r.sources().wireBytes();
    if (r.recordType() != kept[i].type || r.group() != kept[i].group ||
        std::vector<uint8_t>(s, s + 4u * r.numSources()) != kept[i].sources)
      std::abort();
  }
  return 0;
}
