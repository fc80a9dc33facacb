// Parsing membership queries; every length is checked against the span before a byte is read.
#include "net/IgmpQuery.h"

#include "net/MessageType.h"
#include "net/NetU16.h"
#include "net/QQIC.h"

namespace Gmp::Igmp {

double IgmpQuery::maxResponseSeconds() const {
  if (version_ == igmpVersion3) return QQIC::decode(maxResponseCode_) / 10.0;
  return maxResponseCode_ / 10.0;
}

IgmpQuery doIgmpMembershipQueryParse(const Kiv::Ptr<Lomax::Pkt>& pkt) {
  const uint8_t* p = pkt->offsetFront();
  uint32_t len = pkt->offsetBytes();
  if (len < IgmpQuery::v12Bytes || p[0] != Lomax::messageTypeMembershipQuery) return IgmpQuery();
  Lomax::IpAddr group = Lomax::IpAddr::fromBytes(p + 4);
  if (len == IgmpQuery::v12Bytes) return IgmpQuery(p[1] ? igmpVersion2 : igmpVersion1, p[1], group);
  if (len < IgmpQuery::v3MinBytes) return IgmpQuery();
  uint16_t numSources = Lomax::NetU16::read(p + 10);
  if (IgmpQuery::v3MinBytes + 4u * numSources > len) return IgmpQuery();
  IgmpQuery q(igmpVersion3, p[1], group);
  q.suppressRouterSideProcessingIs(p[8] & 0x08);
  q.robustnessIs(p[8] & 0x07);
  q.queryIntervalCodeIs(p[9]);
  q.sourcesIs(SourceList(p + IgmpQuery::v3MinBytes, numSources));
  return q;
}

}  // namespace Gmp::Igmp
