// The bridge's own configuration as the glue reads it: per VLAN, its member ports and whether each
// sends tagged; per port, the VLAN of its untagged frames. The platform fills these entities.
#pragma once

#include "kernel/EntityDecl.h"
#include "net/EthAddr.h"
#include "net/IntfId.h"
#include "net/VlanId.h"
#include "net/VlanIdOrNone.h"

namespace Bridging {

#define VLAN_PORT_CONFIG_ATTRS(X) X(scalar, tagged, Tagged, bool, false)

// A port's membership of one VLAN.
class VlanPortConfig : public Kiv::KeyedEntity<Lomax::IntfId> {
  KIV_ENTITY_KEYED(VlanPortConfig, Lomax::IntfId, intf, VLAN_PORT_CONFIG_ATTRS)
};

#define BRIDGE_VLAN_CONFIG_ATTRS(X) X(entities, intf, Intf, Lomax::IntfId, VlanPortConfig)

class BridgeVlanConfig : public Kiv::KeyedEntity<VlanId> {
  KIV_ENTITY_KEYED(BridgeVlanConfig, VlanId, vlanId, BRIDGE_VLAN_CONFIG_ATTRS)
};

#define SWITCH_INTF_CONFIG_ATTRS(X) X(scalar, defaultVlan, DefaultVlan, VlanIdOrNone, VlanIdOrNone())

// A bridge port; defaultVlan is none when the port drops untagged frames.
class SwitchIntfConfig : public Kiv::KeyedEntity<Lomax::IntfId> {
  KIV_ENTITY_KEYED(SwitchIntfConfig, Lomax::IntfId, intf, SWITCH_INTF_CONFIG_ATTRS)
};

#define BRIDGING_CONFIG_ATTRS(X)                                                   \
  X(entities, vlanConfig, VlanConfig, VlanId, BridgeVlanConfig)                    \
  X(entities, switchIntfConfig, SwitchIntfConfig, Lomax::IntfId, SwitchIntfConfig) \
  X(scalar, bridgeMacAddr, BridgeMacAddr, Lomax::EthAddr, Lomax::EthAddr())

// The bridge's MAC address is the switch's own, the source of its L2 querier's frames.
class Config : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(Config, BRIDGING_CONFIG_ATTRS)
};

}  // namespace Bridging
