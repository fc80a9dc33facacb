// A multicast router learnt in a VLAN, or the elected querier.
#pragma once

#include "kernel/EntityDecl.h"
#include "model/Enums.h"
#include "net/IntfId.h"
#include "net/IpAddr.h"

namespace Bridging::IgmpSnooping {

#define MULTICAST_ROUTER_ATTRS(X)                             \
  X(scalar, intf, Intf, Lomax::IntfId, Lomax::IntfId())       \
  X(scalar, oldIntf, OldIntf, Lomax::IntfId, Lomax::IntfId()) \
  X(scalar, firstHeard, FirstHeard, Kiv::Seconds, 0.0)        \
  X(scalar, lastHeard, LastHeard, Kiv::Seconds, 0.0)          \
  X(scalar, life, Life, Kiv::Seconds, 0.0)                    \
  X(scalar, expire, Expire, Kiv::Seconds, 0.0)                \
  X(scalar, routerType, RouterType, MulticastRouterType, routerTypeQuery)

class MulticastRouter : public Kiv::KeyedEntity<Lomax::IpAddr> {
  KIV_ENTITY_KEYED(MulticastRouter, Lomax::IpAddr, addr, MULTICAST_ROUTER_ATTRS)
};

}  // namespace Bridging::IgmpSnooping
