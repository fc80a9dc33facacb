// The agent-wide part that the VLAN glue reads, and a port's presence in a VLAN.
#include "glue/GlueSmBase.h"

#include "glue/GlueTrace.h"
#include "glue/GlueVlanSm.h"

namespace IgmpShim {

GlueSmBase::~GlueSmBase() = default;

void GlueSmBase::floodControlIs(Lomax::IntfId intf, Kiv::Ptr<IgmpSnooping::FloodControl> hook) {
  for (auto& e : floodControl_) {
    if (e.first == intf) {
      e.second = std::move(hook);
      return;
    }
  }
  floodControl_.emplace_back(intf, std::move(hook));
}

void GlueSmBase::floodControlDel(Lomax::IntfId intf) {
  std::erase_if(floodControl_, [intf](const FloodControlEntry& e) { return e.first == intf; });
}

// A port starts to deliver packets only after its core has accepted it, and stops before its core
// drops it.
void GlueSmBase::handleVlanIntf(Bridging::VlanId vlan, Lomax::IntfId intf) {
  KIV_ASSERT_TEXT(intf != Lomax::switchIntfId(), "intfId != switchIntfId()");
  GlueVlanSm* sm = vlanSm(vlan);
  if (!sm) return;
  KIV_TRACE(glueTrace, 8, " vlan " << vlan << " intfId " << intf);
  const bool active = isActiveVlanPort(this, vlan, intf);
  VirtualIntfGlueVlanMultiplexer* mux =
      glueVlanMultiplexerDir_ ? glueVlanMultiplexerDir_->multiplexer(intf) : nullptr;
  if (!active && mux) mux->vlanSmDel(vlan);
  sm->handleAddOrRemoveIntf(intf, active);
  if (active && mux) mux->vlanSmIs(Kiv::Ptr<GlueVlanSm>(sm));
}

bool GlueSmBase::isL2QuerierConfigured(Bridging::VlanId vlan) const {
  bool on = config_ && config_->globalQuerierConfig() && config_->globalQuerierConfig()->enabled();
  auto vlanConfig = config_ ? config_->vlanConfig(vlan) : nullptr;
  auto querier = vlanConfig ? vlanConfig->vlanQuerierConfig() : nullptr;
  if (querier && querier->enabledConfigured() != 0) on = querier->enabledConfigured() == 1;
  return on;
}

// The proxy needs a querier in its VLAN whatever the querier's own setting says. The order of the
// writes differs between the two modes: enabled first into proxy mode, proxy mode first out of it.
void GlueSmBase::setupQuerier(Bridging::VlanId vlan) {
  auto querier = querierConfigDir_
                     ? querierConfigDir_->querierConfig(Kiv::Name(Kiv::format("%d", vlan.value())))
                     : nullptr;
  if (!querier) return;
  if (isProxyConfigured(vlan)) {
    querier->enabledIs(true);
    querier->proxyModeIs(true);
  } else {
    querier->proxyModeIs(false);
    querier->enabledIs(isL2QuerierConfigured(vlan));
  }
}

void GlueSmBase::handleProxyVlanConfig(Bridging::VlanId vlan) {
  auto contextConfig = coreConfigDir_ ? coreConfigDir_->contextConfig(vlan) : nullptr;
  KIV_TRACE(glueTrace, 8,
            "contextConfig : " << (contextConfig ? "present" : "absent")
                               << " querierConfig : " << (querierConfigDir_ ? "present" : "absent"));
  if (contextConfig) contextConfig->proxyEnabledIs(isProxyConfigured(vlan));
  setupQuerier(vlan);
}

bool isActiveVlanPort(const GlueSmBase* glueSm, Bridging::VlanId vlan, Lomax::IntfId intf) {
  auto topo = glueSm->topoVlan(vlan);
  return topo && topo->port(intf);
}

}  // namespace IgmpShim
