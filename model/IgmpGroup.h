// The membership tree of a VLAN: group, the interfaces that have it, the reporters on each interface,
// and the sources of a reporter's include list.
#pragma once

#include "kernel/EntityDecl.h"
#include "model/Enums.h"
#include "net/Igmp.h"
#include "net/IntfId.h"
#include "net/IpAddr.h"

namespace Bridging::IgmpSnooping {
class IgmpSourceMembership;
class IgmpMembership;
class IgmpIntfStatus;
}  // namespace Bridging::IgmpSnooping

// Every report looks up its interface among the few of its group, its reporter among the few on that
// interface, and a version 3 record each of its sources: a parent keeps those buckets in itself, filled
// to two each before it takes an array elsewhere in memory.
template <>
inline constexpr uint8_t Kiv::entityBucketsLog2<Bridging::IgmpSnooping::IgmpIntfStatus> = 2;
template <>
inline constexpr uint8_t Kiv::entityBucketsLog2<Bridging::IgmpSnooping::IgmpMembership> = 3;
template <>
inline constexpr uint8_t Kiv::entityBucketsLog2<Bridging::IgmpSnooping::IgmpSourceMembership> = 1;

namespace Bridging::IgmpSnooping {

#define IGMP_SOURCE_MEMBERSHIP_ATTRS(X) X(scalar, sourceAge, SourceAge, uint32_t, 0)

// A source of a membership; sourceAge counts general queries since a report named it.
class IgmpSourceMembership : public Kiv::KeyedEntity<Lomax::IpAddr> {
  KIV_ENTITY_KEYED(IgmpSourceMembership, Lomax::IpAddr, source, IGMP_SOURCE_MEMBERSHIP_ATTRS)
};

// The one-byte attributes come first: they fill the padding behind the key.
#define IGMP_MEMBERSHIP_ATTRS(X)                                                             \
  X(scalar, state, State, IgmpMembershipState, membershipStateMember)                        \
  X(scalar, igmpVersion, IgmpVersion, Gmp::Igmp::IgmpVersion, Gmp::Igmp::IgmpVersion(0))     \
  X(scalar, filterMode, FilterMode, Gmp::Igmp::IgmpFilterMode, Gmp::Igmp::filterModeExclude) \
  X(scalar, firstReport, FirstReport, Kiv::Seconds, 0.0)                                     \
  X(scalar, lastReport, LastReport, Kiv::Seconds, 0.0)                                       \
  X(scalar, expire, Expire, Kiv::Seconds, 0.0)                                               \
  X(entities, source, Source, Lomax::IpAddr, IgmpSourceMembership)

// One reporter's membership of a group on an interface.
class IgmpMembership : public Kiv::KeyedEntity<Lomax::IpAddr> {
  KIV_ENTITY_KEYED(IgmpMembership, Lomax::IpAddr, reporter, IGMP_MEMBERSHIP_ATTRS)
};

#define IGMP_INTF_STATUS_ATTRS(X)                                                            \
  X(scalar, staticEntry, StaticEntry, bool, false)                                           \
  X(scalar, lowestVersion, LowestVersion, Gmp::Igmp::IgmpVersion, Gmp::Igmp::IgmpVersion(0)) \
  X(entities, membership, Membership, Lomax::IpAddr, IgmpMembership)                         \
  X(values, oldIntf, OldIntf, Lomax::IpAddr, Lomax::IntfId, Lomax::IntfId())                 \
  X(values, oldIntfRefCount, OldIntfRefCount, Lomax::IntfId, uint32_t, 0)

// A group on one interface; a static entry stays when its last membership goes.
class IgmpIntfStatus : public Kiv::KeyedEntity<Lomax::IntfId> {
  KIV_ENTITY_KEYED(IgmpIntfStatus, Lomax::IntfId, intf, IGMP_INTF_STATUS_ATTRS)
};

#define IGMP_GROUP_ATTRS(X) X(entities, intf, Intf, Lomax::IntfId, IgmpIntfStatus)

class IgmpGroup : public Kiv::KeyedEntity<Lomax::IpAddr> {
  KIV_ENTITY_KEYED(IgmpGroup, Lomax::IpAddr, addr, IGMP_GROUP_ATTRS)
};

}  // namespace Bridging::IgmpSnooping
