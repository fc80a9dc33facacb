// Fuzzes the version 3 report parser: it must never read past the span, and a valid report's records
// must come back the same through the frame builder.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "net/FrameBuilder.h"
#include "net/IgmpV3Report.h"
#include "net/IpHdr.h"
#include "net/PktVlanTag.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 0xffff - 64) return 0;
  Kiv::Ptr<Lomax::Pkt> pkt = Lomax::globalPktManager().newPkt(std::span<const uint8_t>(data, size));
  Gmp::Igmp::IgmpV3Report report = Gmp::Igmp::doIgmpV3MembershipReportParse(pkt);
  if (!report.valid()) return 0;
  if (report.records().size() != report.numberOfRecords()) std::abort();
  const uint8_t* front = pkt->offsetFront();
  for (const auto& r : report.records()) {
    const uint8_t* end = r.sources().wireBytes() + 4u * r.numSources();
    if (r.sources().wireBytes() < front || end > front + size) std::abort();
  }

  Lomax::FrameBuilder builder(Lomax::EthAddr(0x0200, 0, 1), Lomax::IpAddr(10, 0, 0, 1));
  Kiv::Ptr<Lomax::Pkt> built = builder.igmpV3Report(report.records());
  Lomax::IpHdr ip =
      *Lomax::IpHdr::of(built->data() + Lomax::ethHeaderBytes, built->len() - Lomax::ethHeaderBytes);
  built->beginOffsetIs(static_cast<int16_t>(Lomax::ethHeaderBytes + ip.headerBytes()));
  built->endOffsetIs(static_cast<uint16_t>(built->len() - built->beginOffset() - ip.payloadLen()));
  Gmp::Igmp::IgmpV3Report again = Gmp::Igmp::doIgmpV3MembershipReportParse(built);
  if (!again.valid() || again.numberOfRecords() != report.numberOfRecords()) std::abort();
  for (size_t i = 0; i < report.records().size(); ++i) {
    const auto &a = report.records()[i], &b = again.records()[i];
    if (a.recordType() != b.recordType() || a.group() != b.group() || a.numSources() != b.numSources())
      std::abort();
    for (uint16_t s = 0; s < a.numSources(); ++s) {
      if (a.sources()[s] != b.sources()[s]) std::abort();
    }
  }
  return 0;
}
