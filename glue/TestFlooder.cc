// Flooding for a bare core, from the multiplexer directory and the core's routers alone.
#include "glue/TestFlooder.h"

#include <vector>

#include "core/CoreTrace.h"

namespace IgmpShim {

using namespace Bridging::IgmpSnooping;
using Lomax::IntfId;

TestFlooder::TestFlooder(const Kiv::Name& name, Kiv::Ptr<GlueVlanMultiplexerDir> dir, Kiv::Ptr<CoreSm> coreSm)
    : IgmpSnoopingFlooder(name), glueVlanMultiplexerDir_(std::move(dir)), coreSm_(std::move(coreSm)) {}

TestFlooder::~TestFlooder() = default;

void TestFlooder::floodReqIs(Kiv::Ptr<FloodReq> reqPtr) {
  const FloodReq& req = *reqPtr;
  const IntfId incoming = req.incomingIntfId();
  if (req.floodType() == floodTypeVlan) {
    KIV_TRACE(packetTrace, 7, "Flooding to entire VLAN except " << incoming);
    std::vector<Kiv::Ptr<VirtualIntfGlueVlanMultiplexer>> targets;
    for (auto& m : glueVlanMultiplexerDir_->multiplexerIter()) {
      if (m.key() != incoming) targets.push_back(*m.value());
    }
    for (auto& mux : targets) doTxPkt(mux.ptr(), req);
    return;
  }
  const auto& status = coreSm_->status();
  KIV_TRACE(packetTrace, 7,
            "Flooding to router interfaces (" << (status ? status->routerSize() : 0) << " routers known)");
  std::vector<IntfId> old;
  for (auto& r : routerIntf_.iter()) old.push_back(r.key());
  for (IntfId intf : old) {
    KIV_TRACE(packetTrace, 8, "Deleting RouterIntf " << intf);
    routerIntfDel(intf);
  }
  if (status) {
    for (auto& r : status->routerIter()) {
      KIV_TRACE(packetTrace, 8, "Adding RouterIntf " << r->intf());
      routerIntfIs(r->intf(), 1);
    }
  }
  std::vector<IntfId> routers;
  for (auto& r : routerIntf_.iter()) {
    if (r.key() != incoming) routers.push_back(r.key());
  }
  for (IntfId intf : routers) {
    if (auto* mux = glueVlanMultiplexerDir_->multiplexer(intf)) doTxPkt(mux, req);
  }
}

void TestFlooder::doTxPkt(VirtualIntfGlueVlanMultiplexer* mux, const FloodReq& req) {
  KIV_TRACE(packetTrace, 8, "Flooding to RouterIntf " << mux->intf());
  mux->handleTxPkt(coreSm_->vlanId(), Lomax::globalPktManager().newShallowCopy(req.orig()));
}

}  // namespace IgmpShim
