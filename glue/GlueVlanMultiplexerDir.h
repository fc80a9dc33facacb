// The multiplexers of all interfaces by interface, and what they share: the bridge's configuration
// (egress tagging) and the time limit of a receive loop.
#pragma once

#include "glue/BridgingConfig.h"
#include "glue/GlueVlanMultiplexer.h"
#include "kernel/Clock.h"
#include "kernel/HashMap.h"

namespace IgmpShim {

class GlueVlanMultiplexerDir : public Kiv::PtrInterface {
 public:
  // A receive loop that meets only frames of VLANs not served gives the thread back after this long.
  static constexpr Kiv::Seconds pktLoopQuantum = 0.5;

  GlueVlanMultiplexerDir(const Kiv::Name& name, Kiv::Ptr<Bridging::Config const> bridgingConfig);
  ~GlueVlanMultiplexerDir() override;

  const Kiv::Name& name() const { return name_; }
  const Kiv::Ptr<Bridging::Config const>& bridgingConfig() const { return bridgingConfig_; }

  VirtualIntfGlueVlanMultiplexer* multiplexer(Lomax::IntfId intf) const {
    auto* m = multiplexer_.find(intf);
    return m ? m->ptr() : nullptr;
  }
  void multiplexerIs(const Kiv::Ptr<VirtualIntfGlueVlanMultiplexer>& m);
  void multiplexerDel(Lomax::IntfId intf);
  void multiplexerDelAll();
  size_t multiplexerSize() const { return multiplexer_.size(); }
  auto multiplexerIter() const { return multiplexer_.iter(); }

 private:
  Kiv::Name name_;
  Kiv::Ptr<Bridging::Config const> bridgingConfig_;
  Kiv::HashMap2018<Lomax::IntfId, Kiv::Ptr<VirtualIntfGlueVlanMultiplexer>> multiplexer_;
};

}  // namespace IgmpShim
