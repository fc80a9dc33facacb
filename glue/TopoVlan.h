// The topology service's view of one VLAN: its ports, whether each is blocked (spanning tree and the
// like) and in which directions it may carry traffic. The platform fills these entities.
#pragma once

#include "kernel/EntityDecl.h"
#include "net/AllowedTrafficDirection.h"
#include "net/IntfId.h"
#include "net/VlanId.h"

namespace Topology::Library::Vlan {

#define TOPO_PORT_ATTRS(X)                                                                       \
  X(scalar, blocked, Blocked, bool, false)                                                       \
  X(scalar, allowedTrafficDirection, AllowedTrafficDirection, Bridging::AllowedTrafficDirection, \
    Bridging::trafficDirectionBoth)

class Port : public Kiv::KeyedEntity<Lomax::IntfId> {
  KIV_ENTITY_KEYED(Port, Lomax::IntfId, intf, TOPO_PORT_ATTRS)
};

#define TOPO_VLAN_ATTRS(X) X(entities, port, Port, Lomax::IntfId, Port)

class TopoVlan : public Kiv::KeyedEntity<Bridging::VlanId> {
  KIV_ENTITY_KEYED(TopoVlan, Bridging::VlanId, vlanId, TOPO_VLAN_ATTRS)
};

}  // namespace Topology::Library::Vlan
