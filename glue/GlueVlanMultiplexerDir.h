// The multiplexers of all interfaces by interface, and what they share: the bridge's configuration
// (egress tagging) and the time limit of a receive loop.
#pragma once

#include "glue/BridgingConfig.h"
#include "glue/GlueVlanMultiplexer.h"
#include "kernel/Clock.h"
#include "kernel/HashMap.h"

#include <vector>

namespace IgmpShim {

class GlueVlanMultiplexerDir : public Kiv::PtrInterface {
 public:
  // A receive loop that meets only frames of VLANs not served gives the thread back after this long.
  static constexpr Kiv::Seconds pktLoopQuantum = 0.5;

  GlueVlanMultiplexerDir(const Kiv::Name& name, Kiv::Ptr<Bridging::Config const> bridgingConfig);
  ~GlueVlanMultiplexerDir() override;

  const Kiv::Name& name() const { return name_; }
  const Kiv::Ptr<Bridging::Config const>& bridgingConfig() const { return bridgingConfig_; }

  // By the interface's intern index: every frame sent asks.
  VirtualIntfGlueVlanMultiplexer* multiplexer(Lomax::IntfId intf) const {
    const uint32_t i = intf.internIndex();
    return i < byIndex_.size() && intf ? byIndex_[i] : nullptr;
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
  // The same multiplexers by intern index; null where there is none.
  std::vector<VirtualIntfGlueVlanMultiplexer*> byIndex_;
};

}  // namespace IgmpShim
