// Forwarding state that the agent exports for the bridge: per VLAN, multicast MAC entries, router
// ports and whether unknown multicast floods.
#pragma once

#include "kernel/EntityDecl.h"
#include "net/EthAddr.h"
#include "net/IntfId.h"
#include "net/VlanId.h"

namespace Bridging::IgmpSnooping {

#define ETHERNET_GROUP_ATTRS(X) X(values, groupIntf, GroupIntf, Lomax::IntfId, bool, false)

class EthernetGroup : public Kiv::KeyedEntity<Lomax::EthAddr> {
  KIV_ENTITY_KEYED(EthernetGroup, Lomax::EthAddr, addr, ETHERNET_GROUP_ATTRS)
};

#define VLAN_STATUS_ATTRS(X)                                     \
  X(entities, ethGroup, EthGroup, Lomax::EthAddr, EthernetGroup) \
  X(values, routerIntf, RouterIntf, Lomax::IntfId, bool, false)  \
  X(scalar, useVlanFloodset, UseVlanFloodset, bool, false)

class VlanStatus : public Kiv::KeyedEntity<Bridging::VlanId> {
  KIV_ENTITY_KEYED(VlanStatus, Bridging::VlanId, vlanId, VLAN_STATUS_ATTRS)
};

#define STATUS_ATTRS(X)                                             \
  X(entities, vlanStatus, VlanStatus, Bridging::VlanId, VlanStatus) \
  X(scalar, counterUpdateTime, CounterUpdateTime, Kiv::Seconds, 0.0)

class Status : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(Status, STATUS_ATTRS)
};

}  // namespace Bridging::IgmpSnooping
