// What a switch advertises to its MLAG peer, and, in the peer's copy, what it hears: groups, router
// ports and negative membership state, per VLAN.
#pragma once

#include <ostream>

#include "kernel/EntityDecl.h"
#include "model/Status.h"
#include "net/Igmp.h"
#include "net/IpAddr.h"

namespace Bridging::IgmpSnooping {

// A reporter's filter mode and the writer's time when it took it down; the default has time 0.
struct IgmpV3ModeState {
  Gmp::Igmp::IgmpFilterMode filterMode = Gmp::Igmp::filterModeExclude;
  Kiv::Seconds lastRcvd = 0.0;
  bool operator==(const IgmpV3ModeState&) const = default;
};
std::ostream& operator<<(std::ostream& os, const IgmpV3ModeState& v);

#define REPORTER_STATUS_ATTRS(X)                            \
  X(scalar, mode, Mode, IgmpV3ModeState, IgmpV3ModeState()) \
  X(values, src, Src, Lomax::IpAddr, Kiv::Seconds, 0.0)

class ReporterStatus : public Kiv::KeyedEntity<Lomax::IpAddr> {
  KIV_ENTITY_KEYED(ReporterStatus, Lomax::IpAddr, reporter, REPORTER_STATUS_ATTRS)
};

#define INTF_MEMBERSHIP_STATUS_ATTRS(X) X(entities, repStatus, RepStatus, Lomax::IpAddr, ReporterStatus)

class IntfMembershipStatus : public Kiv::KeyedEntity<Lomax::IntfId> {
  KIV_ENTITY_KEYED(IntfMembershipStatus, Lomax::IntfId, intf, INTF_MEMBERSHIP_STATUS_ATTRS)
};

#define GROUP_MEMBERSHIP_STATUS_ATTRS(X) \
  X(entities, intfStatus, IntfStatus, Lomax::IntfId, IntfMembershipStatus)

class GroupMembershipStatus : public Kiv::KeyedEntity<Lomax::IpAddr> {
  KIV_ENTITY_KEYED(GroupMembershipStatus, Lomax::IpAddr, group, GROUP_MEMBERSHIP_STATUS_ATTRS)
};

#define SYNC_VLAN_STATUS_ATTRS(X)                                \
  X(entities, ethGroup, EthGroup, Lomax::EthAddr, EthernetGroup) \
  X(values, routerIntf, RouterIntf, Lomax::IntfId, bool, false)  \
  X(entities, negStatus, NegStatus, Lomax::IpAddr, GroupMembershipStatus)

class SyncVlanStatus : public Kiv::KeyedEntity<Bridging::VlanId> {
  KIV_ENTITY_KEYED(SyncVlanStatus, Bridging::VlanId, vlanId, SYNC_VLAN_STATUS_ATTRS)
};

#define SYNC_STATUS_ATTRS(X) X(entities, vlanStatus, VlanStatus, Bridging::VlanId, SyncVlanStatus)

class SyncStatus : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(SyncStatus, SYNC_STATUS_ATTRS)
};

}  // namespace Bridging::IgmpSnooping

namespace Kiv {
template <>
struct ValueTraits<Bridging::IgmpSnooping::IgmpV3ModeState> {
  using V = Bridging::IgmpSnooping::IgmpV3ModeState;
  static constexpr const char* typeName = "IgmpV3ModeState";
  static std::string text(const V& v);
  static bool fromText(std::string_view s, V& v);
  static void binary(std::string& out, const V& v);
  static bool fromBinary(std::string_view& in, V& v);
};
}  // namespace Kiv
