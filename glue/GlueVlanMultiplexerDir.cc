// The directory of multiplexers.
#include "glue/GlueVlanMultiplexerDir.h"

namespace IgmpShim {

GlueVlanMultiplexerDir::GlueVlanMultiplexerDir(const Kiv::Name& name,
                                               Kiv::Ptr<Bridging::Config const> bridgingConfig)
    : name_(name), bridgingConfig_(std::move(bridgingConfig)) {}

GlueVlanMultiplexerDir::~GlueVlanMultiplexerDir() { multiplexerDelAll(); }

void GlueVlanMultiplexerDir::multiplexerIs(const Kiv::Ptr<VirtualIntfGlueVlanMultiplexer>& m) {
  if (auto* old = multiplexer_.find(m->intf())) (*old)->managerIs(nullptr);
  m->managerIs(this);
  multiplexer_.set(m->intf(), m);
}

void GlueVlanMultiplexerDir::multiplexerDel(Lomax::IntfId intf) {
  auto* m = multiplexer_.find(intf);
  if (!m) return;
  Kiv::Ptr<VirtualIntfGlueVlanMultiplexer> hold = *m;
  multiplexer_.erase(intf);
  hold->managerIs(nullptr);
}

void GlueVlanMultiplexerDir::multiplexerDelAll() {
  for (auto& e : multiplexer_.iter()) (*e.value())->managerIs(nullptr);
  multiplexer_.clear();
}

}  // namespace IgmpShim
