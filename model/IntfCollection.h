// Sets of interfaces for the debug listings, and the agent's own interface addresses.
#pragma once

#include "kernel/EntityDecl.h"
#include "model/Enums.h"
#include "net/IntfId.h"
#include "net/IpAddr.h"

namespace Bridging::IgmpSnooping {

#define INTF_COLLECTION_ATTRS(X) X(values, intf, Intf, Lomax::IntfId, bool, false)

class IntfCollection : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(IntfCollection, INTF_COLLECTION_ATTRS)
};

#define ORDERED_INTF_COLLECTION_ATTRS(X) X(ordered, intf, Intf, Lomax::IntfId, IgmpIntfType, intfTypeDynamic)

class OrderedIntfCollection : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(OrderedIntfCollection, ORDERED_INTF_COLLECTION_ATTRS)
};

#define INTERFACE_STATUS_ATTRS(X) X(values, intfAddr, IntfAddr, Lomax::IpAddr, bool, false)

class InterfaceStatus : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(InterfaceStatus, INTERFACE_STATUS_ATTRS)
};

}  // namespace Bridging::IgmpSnooping
