// Flood requests and the base flooder.
#include "core/IgmpSnoopingFlooder.h"

namespace Bridging::IgmpSnooping {

IgmpSnoopingFloodReq::IgmpSnoopingFloodReq(IgmpSnoopingFloodType floodType, Lomax::IntfId incomingIntfId,
                                           Lomax::IntfId outgoingIntfId, Kiv::Ptr<Lomax::Pkt> orig,
                                           IgmpSnoopingPktType pktType)
    : floodType_(floodType),
      incomingIntfId_(incomingIntfId),
      outgoingIntfId_(outgoingIntfId),
      orig_(std::move(orig)),
      pktType_(pktType) {
  if (!orig_) Kiv::throwRangeException("null ValidPtr");
}

std::ostream& operator<<(std::ostream& os, const IgmpSnoopingFloodReq& r) {
  return os << "floodType " << r.floodType() << " in " << r.incomingIntfId() << " out " << r.outgoingIntfId()
            << " pktType " << r.pktType() << " group " << r.optionalGroupAddress() << " preProcess "
            << r.needsPreProcess();
}

const Kiv::TypeInfo& IgmpSnoopingFlooder::typeInfo() const {
  static const Kiv::TypeInfo info{"IgmpSnoopingFlooder", {}};
  return info;
}

}  // namespace Bridging::IgmpSnooping
