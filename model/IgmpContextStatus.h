// The snooping state of one VLAN, which survives a restart of the agent, and its parent collection.
#pragma once

#include <ostream>

#include "kernel/EntityDecl.h"
#include "model/IgmpGroup.h"
#include "model/MulticastRouter.h"
#include "net/VlanId.h"

namespace Bridging::IgmpSnooping {

// The report that first saw no querier, kept for the no-querier log.
struct NoQuerierLogInfo {
  Lomax::IpAddr reporter;
  Lomax::IntfId intf;
  Lomax::IpAddr group;
  bool operator==(const NoQuerierLogInfo&) const = default;
};
std::ostream& operator<<(std::ostream& os, const NoQuerierLogInfo& v);

#define IGMP_CONTEXT_STATUS_ATTRS(X)                                                           \
  X(scalar, noQuerierLogInfo, NoQuerierLogInfo, NoQuerierLogInfo, NoQuerierLogInfo())          \
  X(child, querier, Querier, MulticastRouter)                                                  \
  X(scalar, queryResponseInterval, QueryResponseInterval, Kiv::Seconds, 10.0)                  \
  X(scalar, confident, Confident, bool, false)                                                 \
  X(entities, router, Router, Lomax::IpAddr, MulticastRouter)                                  \
  X(scalar, reportFloodingEnabled, ReportFloodingEnabled, bool, false)                         \
  X(entities, group, Group, Lomax::IpAddr, IgmpGroup)                                          \
  X(scalar, groupLimitExceeded, GroupLimitExceeded, bool, false)                               \
  X(scalar, groupLimitExceededExpire, GroupLimitExceededExpire, Kiv::Seconds, 0.0)             \
  X(scalar, querierNotPresentExpire, QuerierNotPresentExpire, Kiv::Seconds, Kiv::infinity)     \
  X(scalar, querierVersion, QuerierVersion, Gmp::Igmp::IgmpVersion, Gmp::Igmp::IgmpVersion(0)) \
  X(scalar, lastQueryRobustness, LastQueryRobustness, uint32_t, 0)                             \
  X(scalar, lastQueryQueryInterval, LastQueryQueryInterval, uint32_t, 0)                       \
  X(scalar, latestQuery, LatestQuery, Kiv::String, Kiv::String())                              \
  X(counter, newIgmpReport, NewIgmpReport, uint32_t)                                           \
  X(ordered, groupList, GroupList, Lomax::IpAddr, bool, false)                                 \
  X(ordered, peerGroupList, PeerGroupList, Lomax::IpAddr, bool, false)                         \
  X(values, switchPort, SwitchPort, Lomax::IntfId, bool, false)                                \
  X(scalar, glueState, GlueState, IgmpSnoopingState, snoopingStateDefault)                     \
  X(scalar, coreSmStateRebuilding, CoreSmStateRebuilding, bool, false)                         \
  X(scalar, configuredRobustness, ConfiguredRobustness, uint32_t, 0)                           \
  X(scalar, configuredQueryInterval, ConfiguredQueryInterval, uint32_t, 0)                     \
  X(scalar, configuredRestartQueryInterval, ConfiguredRestartQueryInterval, Kiv::Seconds, 0.0)

class IgmpContextStatus : public Kiv::KeyedEntity<Bridging::VlanId> {
  KIV_ENTITY_KEYED(IgmpContextStatus, Bridging::VlanId, vlanId, IGMP_CONTEXT_STATUS_ATTRS)

 public:
  // Used when neither the querier nor the configuration gives a value (RFC 3376 defaults).
  static constexpr uint32_t defaultRobustness = 2;
  static constexpr uint32_t defaultQueryInterval = 125;

  // The querier's values win when its last version 3 query carried them (RFC 3376 4.1.6, 4.1.7),
  // then the configured ones, then the protocol defaults.
  uint32_t robustness() const;
  uint32_t queryInterval() const;
  // The configured restart query interval, or a quarter of the query interval in force (the
  // protocol's startup query interval) when none is configured.
  Kiv::Seconds restartQueryInterval() const;
  // Group Membership Interval: robustness x query interval + one query response interval.
  Kiv::Seconds groupMembershipInterval() const;
  // Other Querier Present Interval: robustness x query interval + half a query response interval.
  Kiv::Seconds otherQuerierPresentInterval() const;
};

#define IGMP_PROTOCOL_STATUS_ATTRS(X) \
  X(entities, contextStatus, ContextStatus, Bridging::VlanId, IgmpContextStatus)

class IgmpProtocolStatus : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(IgmpProtocolStatus, IGMP_PROTOCOL_STATUS_ATTRS)
};

}  // namespace Bridging::IgmpSnooping

namespace Kiv {
template <>
struct ValueTraits<Bridging::IgmpSnooping::NoQuerierLogInfo> {
  using V = Bridging::IgmpSnooping::NoQuerierLogInfo;
  static constexpr const char* typeName = "NoQuerierLogInfo";
  static std::string text(const V& v);
  static bool fromText(std::string_view s, V& v);
  static void binary(std::string& out, const V& v);
  static bool fromBinary(std::string_view& in, V& v);
};
}  // namespace Kiv
