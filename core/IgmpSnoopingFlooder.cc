// Flood requests and the base flooder.
#include "core/IgmpSnoopingFlooder.h"

#include "kernel/BlockPool.h"

namespace Bridging::IgmpSnooping {

namespace {
// Never destroyed: requests may still be released by static destructors elsewhere.
Kiv::BlockPool& floodReqPool() {
  static Kiv::BlockPool* pool = new Kiv::BlockPool(sizeof(IgmpSnoopingFloodReq), 1024);
  return *pool;
}
}  // namespace

void* IgmpSnoopingFloodReq::operator new(size_t size) {
  return size == sizeof(IgmpSnoopingFloodReq) ? floodReqPool().blockNew() : ::operator new(size);
}

void IgmpSnoopingFloodReq::operator delete(void* p, size_t size) {
  size == sizeof(IgmpSnoopingFloodReq) ? floodReqPool().blockDel(p) : ::operator delete(p);
}

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
