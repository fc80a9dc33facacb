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
  const uint32_t i = m->intf().internIndex();
  if (i >= byIndex_.size()) byIndex_.resize(i + 1, nullptr);
  byIndex_[i] = m.ptr();
}

void GlueVlanMultiplexerDir::multiplexerDel(Lomax::IntfId intf) {
  auto* m = multiplexer_.find(intf);
  if (!m) return;
  Kiv::Ptr<VirtualIntfGlueVlanMultiplexer> hold = *m;
  multiplexer_.erase(intf);
  byIndex_[intf.internIndex()] = nullptr;
  hold->managerIs(nullptr);
}

void GlueVlanMultiplexerDir::multiplexerDelAll() {
  for (auto& e : multiplexer_.iter()) (*e.value())->managerIs(nullptr);
  multiplexer_.clear();
  byIndex_.clear();
}

}  // namespace IgmpShim
