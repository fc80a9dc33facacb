// The agent's own effective configuration, per VLAN and per interface.
#pragma once

#include "model/Config.h"

namespace Bridging::IgmpSnooping {

#define IGMP_CONTEXT_CONFIG_ATTRS(X)                                       \
  X(scalar, proxyEnabled, ProxyEnabled, bool, false)                       \
  X(scalar, queryInterval, QueryInterval, Kiv::Seconds, 0.0)               \
  X(scalar, restartQueryInterval, RestartQueryInterval, Kiv::Seconds, 0.0) \
  X(scalar, robustness, Robustness, uint32_t, 0)                           \
  X(scalar, immediateLeave, ImmediateLeave, bool, false)                   \
  X(scalar, deferConfidence, DeferConfidence, bool, false)                 \
  X(scalar, maxGroups, MaxGroups, uint16_t, 0xffff)

// Effective values that the core of one VLAN reads.
class IgmpContextConfig : public Kiv::KeyedEntity<Bridging::VlanId> {
  KIV_ENTITY_KEYED(IgmpContextConfig, Bridging::VlanId, vlanId, IGMP_CONTEXT_CONFIG_ATTRS)
};

#define IGMP_PROTOCOL_CONFIG_ATTRS(X)                                            \
  X(entities, contextConfig, ContextConfig, Bridging::VlanId, IgmpContextConfig) \
  X(entities, intfConfig, IntfConfig, Lomax::IntfId, IntfConfig)

class IgmpProtocolConfig : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(IgmpProtocolConfig, IGMP_PROTOCOL_CONFIG_ATTRS)
};

}  // namespace Bridging::IgmpSnooping
