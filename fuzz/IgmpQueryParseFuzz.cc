// Fuzzes the membership query parser: it must never read past the span, and a valid query must come
// back the same through the frame builder.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "net/FrameBuilder.h"
#include "net/IgmpQuery.h"
#include "net/IpHdr.h"
#include "net/PktVlanTag.h"

namespace {

bool sameQuery(const Gmp::Igmp::IgmpQuery& a, const Gmp::Igmp::IgmpQuery& b) {
  if (a.valid() != b.valid() || a.version() != b.version() || a.group() != b.group() ||
      a.suppressRouterSideProcessing() != b.suppressRouterSideProcessing() ||
      a.robustness() != b.robustness() || a.queryIntervalCode() != b.queryIntervalCode() ||
      a.numSources() != b.numSources())
    return false;
  if (a.version() != Gmp::Igmp::igmpVersion1 && a.maxResponseCode() != b.maxResponseCode()) return false;
  for (uint16_t i = 0; i < a.numSources(); ++i) {
    if (a.sources()[i] != b.sources()[i]) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 0xffff - 64) return 0;
  // The packet holds exactly the input, so a read past the span is a read past the allocation's use.
  Kiv::Ptr<Lomax::Pkt> pkt = Lomax::globalPktManager().newPkt(std::span<const uint8_t>(data, size));
  Gmp::Igmp::IgmpQuery q = Gmp::Igmp::doIgmpMembershipQueryParse(pkt);
  if (!q.valid()) return 0;
  if (q.version() == Gmp::Igmp::igmpVersion3 && 12 + 4u * q.numSources() > size) std::abort();

  Lomax::FrameBuilder builder(Lomax::EthAddr(0x0200, 0, 1), Lomax::IpAddr(10, 0, 0, 1));
  Kiv::Ptr<Lomax::Pkt> built = builder.igmpQuery(q);
  Lomax::IpHdr ip =
      *Lomax::IpHdr::of(built->data() + Lomax::ethHeaderBytes, built->len() - Lomax::ethHeaderBytes);
  built->beginOffsetIs(static_cast<int16_t>(Lomax::ethHeaderBytes + ip.headerBytes()));
  built->endOffsetIs(static_cast<uint16_t>(built->len() - built->beginOffset() - ip.payloadLen()));
  if (!sameQuery(q, Gmp::Igmp::doIgmpMembershipQueryParse(built))) std::abort();
  return 0;
}
