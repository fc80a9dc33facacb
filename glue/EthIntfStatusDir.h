// The interface status that the platform reports: every Ethernet interface with its link and whether
// the spanning tree lets it forward, and the device interfaces on which packet access is possible.
#pragma once

#include "kernel/EntityDecl.h"
#include "net/IntfId.h"

namespace Interface {

#define ETH_INTF_STATUS_ATTRS(X)         \
  X(scalar, linkUp, LinkUp, bool, false) \
  X(scalar, forwarding, Forwarding, bool, true)

// linkUp: the interface is up and its link runs. forwarding: the spanning tree lets the port take in
// and send frames (true for an interface outside any bridge).
class EthIntfStatus : public Kiv::KeyedEntity<Lomax::IntfId> {
  KIV_ENTITY_KEYED(EthIntfStatus, Lomax::IntfId, intf, ETH_INTF_STATUS_ATTRS)
};

#define ETH_INTF_STATUS_DIR_ATTRS(X) X(entities, intfStatus, IntfStatus, Lomax::IntfId, EthIntfStatus)

class EthIntfStatusDir : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(EthIntfStatusDir, ETH_INTF_STATUS_DIR_ATTRS)
};

#define DEVICE_INTF_STATUS_DIR_ATTRS(X) X(values, intf, Intf, Lomax::IntfId, bool, false)

// The interfaces of this namespace that packet access can serve; an absent key is no device.
class DeviceIntfStatusDir : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(DeviceIntfStatusDir, DEVICE_INTF_STATUS_DIR_ATTRS)
};

}  // namespace Interface
