// The VLAN glue's own image of what it publishes: each Ethernet group with, per port, the IP groups
// that keep the port in it, and per router port the routers on it. The sets are reference counts: a
// port leaves an Ethernet group with its last IP group.
#pragma once

#include "kernel/EntityDecl.h"
#include "net/EthAddr.h"
#include "net/IntfId.h"
#include "net/IpAddr.h"

namespace IgmpShim {

#define INTERFACE_STATUS_ATTRS(X) X(values, intfAddr, IntfAddr, Lomax::IpAddr, bool, false)

class InterfaceStatus : public Kiv::KeyedEntity<Lomax::IntfId> {
  KIV_ENTITY_KEYED(InterfaceStatus, Lomax::IntfId, intf, INTERFACE_STATUS_ATTRS)
};

#define GLUE_ETHERNET_GROUP_ATTRS(X) X(entities, groupIntf, GroupIntf, Lomax::IntfId, InterfaceStatus)

class EthernetGroup : public Kiv::KeyedEntity<Lomax::EthAddr> {
  KIV_ENTITY_KEYED(EthernetGroup, Lomax::EthAddr, addr, GLUE_ETHERNET_GROUP_ATTRS)
};

}  // namespace IgmpShim
