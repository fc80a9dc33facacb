// What the core asks of whoever forwards its packets: a flood request, and the flooder that takes it.
#pragma once

#include <ostream>

#include "kernel/Entity.h"
#include "model/Enums.h"
#include "net/IntfId.h"
#include "net/IpAddr.h"
#include "net/Pkt.h"

namespace Bridging::IgmpSnooping {

// One packet to be flooded, and where.
class IgmpSnoopingFloodReq : public Kiv::PtrInterface {
 public:
  IgmpSnoopingFloodReq(IgmpSnoopingFloodType floodType, Lomax::IntfId incomingIntfId,
                       Lomax::IntfId outgoingIntfId, Kiv::Ptr<Lomax::Pkt> orig, IgmpSnoopingPktType pktType);

  IgmpSnoopingFloodType floodType() const { return floodType_; }
  // Left out of every destination set but floodTypeSinglePort; empty for the agent's own packets.
  Lomax::IntfId incomingIntfId() const { return incomingIntfId_; }
  // The destination of floodTypeSinglePort, empty otherwise.
  Lomax::IntfId outgoingIntfId() const { return outgoingIntfId_; }
  const Kiv::Ptr<Lomax::Pkt>& orig() const { return orig_; }
  IgmpSnoopingPktType pktType() const { return pktType_; }
  // The IP group of floodTypeMembers.
  Lomax::IpAddr optionalGroupAddress() const { return optionalGroupAddress_; }
  void optionalGroupAddressIs(Lomax::IpAddr a) { optionalGroupAddress_ = a; }
  bool needsPreProcess() const { return needsPreProcess_; }
  void needsPreProcessIs(bool on) { needsPreProcess_ = on; }

  // One is made for every packet that travels on: they come from a pool.
  static void* operator new(size_t size);
  static void operator delete(void* p, size_t size);

 private:
  IgmpSnoopingFloodType floodType_;
  Lomax::IntfId incomingIntfId_;
  Lomax::IntfId outgoingIntfId_;
  Kiv::Ptr<Lomax::Pkt> orig_;
  IgmpSnoopingPktType pktType_;
  Lomax::IpAddr optionalGroupAddress_;
  bool needsPreProcess_ = false;
};

std::ostream& operator<<(std::ostream& os, const IgmpSnoopingFloodReq& r);

// Base of everything that takes flood requests. This base only keeps the last request, which is all a
// core needs to run on its own; the flooders that send override floodReqIs.
class IgmpSnoopingFlooder : public Kiv::NamedEntity {
 public:
  explicit IgmpSnoopingFlooder(const Kiv::Name& name) : NamedEntity(name) {}
  const Kiv::TypeInfo& typeInfo() const override;

  const Kiv::Ptr<IgmpSnoopingFloodReq>& floodReq() const { return floodReq_; }
  virtual void floodReqIs(Kiv::Ptr<IgmpSnoopingFloodReq> req) { floodReq_ = std::move(req); }
  // A count for observers; the flooders of this system leave it at zero.
  uint32_t pktCount() const { return pktCount_; }
  void pktCountIs(uint32_t n) { pktCount_ = n; }
  void pktCountInc(uint32_t n = 1) { pktCount_ += n; }

 private:
  Kiv::Ptr<IgmpSnoopingFloodReq> floodReq_;
  uint32_t pktCount_ = 0;
};

}  // namespace Bridging::IgmpSnooping
