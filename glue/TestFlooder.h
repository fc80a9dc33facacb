// A flooder that needs no VLAN glue, for a bare core: floods to the whole VLAN go to every multiplexer
// of the directory, all others to the ports of the core's routers. Nothing in the agent makes one.
#pragma once

#include "core/CoreSm.h"
#include "core/IgmpSnoopingFlooder.h"
#include "glue/GlueVlanMultiplexerDir.h"
#include "kernel/HashMap.h"

namespace IgmpShim {

class TestFlooder : public Bridging::IgmpSnooping::IgmpSnoopingFlooder {
 public:
  using FloodReq = Bridging::IgmpSnooping::IgmpSnoopingFloodReq;

  TestFlooder(const Kiv::Name& name, Kiv::Ptr<GlueVlanMultiplexerDir> dir,
              Kiv::Ptr<Bridging::IgmpSnooping::CoreSm> coreSm);
  ~TestFlooder() override;

  const Kiv::Ptr<GlueVlanMultiplexerDir>& glueVlanMultiplexerDir() const { return glueVlanMultiplexerDir_; }
  const Kiv::Ptr<Bridging::IgmpSnooping::CoreSm>& coreSm() const { return coreSm_; }

  // The router ports found at the last flood to the routers.
  uint32_t routerIntf(Lomax::IntfId intf) const {
    const uint32_t* v = routerIntf_.find(intf);
    return v ? *v : 0;
  }
  void routerIntfIs(Lomax::IntfId intf, uint32_t v) { routerIntf_.set(intf, v); }
  void routerIntfDel(Lomax::IntfId intf) { routerIntf_.erase(intf); }
  void routerIntfDelAll() { routerIntf_.clear(); }
  size_t routerIntfSize() const { return routerIntf_.size(); }

  void floodReqIs(Kiv::Ptr<FloodReq> req) override;

 private:
  // Each port gets a shallow copy of its own.
  void doTxPkt(VirtualIntfGlueVlanMultiplexer* mux, const FloodReq& req);

  Kiv::Ptr<GlueVlanMultiplexerDir> glueVlanMultiplexerDir_;
  Kiv::Ptr<Bridging::IgmpSnooping::CoreSm> coreSm_;
  Kiv::HashMap2018<Lomax::IntfId, uint32_t> routerIntf_;
};

}  // namespace IgmpShim
