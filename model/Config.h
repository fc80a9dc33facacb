// Configuration of snooping as the configuration agent writes it: global, per VLAN, per interface.
#pragma once

#include "kernel/EntityDecl.h"
#include "model/Enums.h"
#include "net/IntfId.h"
#include "net/IpAddr.h"
#include "net/VlanId.h"

namespace Bridging::IgmpSnooping {

#define IP_GROUP_ATTRS(X) X(values, intf, Intf, Lomax::IntfId, bool, false)

// A static group of a VLAN and the ports that hold it.
class IpGroup : public Kiv::KeyedEntity<Lomax::IpAddr> {
  KIV_ENTITY_KEYED(IpGroup, Lomax::IpAddr, addr, IP_GROUP_ATTRS)
};

#define VLAN_QUERIER_CONFIG_ATTRS(X)                                                                 \
  X(scalar, enabledConfigured, EnabledConfigured, uint32_t, 0)                                       \
  X(scalar, ipAddrConfigured, IpAddrConfigured, Lomax::IpAddr, Lomax::IpAddr())                      \
  X(scalar, queryIntervalConfigured, QueryIntervalConfigured, Kiv::Seconds, 0.0)                     \
  X(scalar, queryResponseIntervalConfigured, QueryResponseIntervalConfigured, Kiv::Seconds, 0.0)     \
  X(scalar, lastMemberQueryCountConfigured, LastMemberQueryCountConfigured, uint32_t, 0)             \
  X(scalar, lastMemberQueryIntervalConfigured, LastMemberQueryIntervalConfigured, Kiv::Seconds, 0.0) \
  X(scalar, startupQueryCountConfigured, StartupQueryCountConfigured, uint32_t, 0)                   \
  X(scalar, startupQueryIntervalConfigured, StartupQueryIntervalConfigured, Kiv::Seconds, 0.0)       \
  X(scalar, querierVersionConfigured, QuerierVersionConfigured, uint32_t, 0)                         \
  X(scalar, mtuConfigured, MtuConfigured, uint32_t, 0)

// A VLAN's own querier values; 0 (0.0.0.0 for the address) leaves a value to the global setting.
// enabledConfigured: 0 follows the global setting, 1 is on, any other value off.
class VlanQuerierConfig : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(VlanQuerierConfig, VLAN_QUERIER_CONFIG_ATTRS)
};

#define VLAN_CONFIG_ATTRS(X)                                                                \
  X(scalar, enabled, Enabled, VlanState, vlanStateDefault)                                  \
  X(scalar, immediateLeave, ImmediateLeave, immediateLeaveVlanState, immediateLeaveDefault) \
  X(scalar, maxGroups, MaxGroups, uint16_t, 0xffff)                                         \
  X(scalar, reportFloodingConfig, ReportFloodingConfig, VlanState, vlanStateDefault)        \
  X(values, switchPort, SwitchPort, Lomax::IntfId, bool, false)                             \
  X(values, routerIntf, RouterIntf, Lomax::IntfId, bool, false)                             \
  X(entities, ipGroup, IpGroup, Lomax::IpAddr, IpGroup)                                     \
  X(child, vlanQuerierConfig, VlanQuerierConfig, VlanQuerierConfig)

class VlanConfig : public Kiv::KeyedEntity<Bridging::VlanId> {
  KIV_ENTITY_KEYED(VlanConfig, Bridging::VlanId, vlanId, VLAN_CONFIG_ATTRS)
};

#define GLOBAL_QUERIER_CONFIG_ATTRS(X)                                           \
  X(scalar, enabled, Enabled, bool, false)                                       \
  X(scalar, ipAddr, IpAddr, Lomax::IpAddr, Lomax::IpAddr())                      \
  X(scalar, queryInterval, QueryInterval, Kiv::Seconds, 125.0)                   \
  X(scalar, queryResponseInterval, QueryResponseInterval, Kiv::Seconds, 10.0)    \
  X(scalar, lastMemberQueryCount, LastMemberQueryCount, uint32_t, 2)             \
  X(scalar, lastMemberQueryInterval, LastMemberQueryInterval, Kiv::Seconds, 1.0) \
  X(scalar, startupQueryCount, StartupQueryCount, uint32_t, 2)                   \
  X(scalar, startupQueryInterval, StartupQueryInterval, Kiv::Seconds, 31.25)     \
  X(scalar, querierVersion, QuerierVersion, uint32_t, 2)

class GlobalQuerierConfig : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(GlobalQuerierConfig, GLOBAL_QUERIER_CONFIG_ATTRS)
};

#define INTF_CONFIG_ATTRS(X) X(scalar, profileName, ProfileName, Kiv::String, Kiv::String())

// Per-interface configuration: the name of the interface's filter profile.
class IntfConfig : public Kiv::KeyedEntity<Lomax::IntfId> {
  KIV_ENTITY_KEYED(IntfConfig, Lomax::IntfId, intf, INTF_CONFIG_ATTRS)
};

#define CONFIG_ATTRS(X)                                                            \
  X(scalar, vlanDefaultEnabled, VlanDefaultEnabled, bool, true)                    \
  X(scalar, globalReportFloodingEnabled, GlobalReportFloodingEnabled, bool, false) \
  X(scalar, immediateLeave, ImmediateLeave, bool, false)                           \
  X(scalar, robustness, Robustness, uint32_t, 2)                                   \
  X(scalar, restartQueryInterval, RestartQueryInterval, Kiv::Seconds, 0.0)         \
  X(values, switchPort, SwitchPort, Lomax::IntfId, bool, false)                    \
  X(entities, intfConfig, IntfConfig, Lomax::IntfId, IntfConfig)                   \
  X(entities, vlanConfig, VlanConfig, Bridging::VlanId, VlanConfig)                \
  X(child, globalQuerierConfig, GlobalQuerierConfig, GlobalQuerierConfig)          \
  X(values, initialQueryTime, InitialQueryTime, uint32_t, uint32_t, 0)

// Global configuration; initialQueryTime holds, by index from 0, the times in milliseconds (counted
// from the first) at which a port that comes up is sent queries.
class Config : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(Config, CONFIG_ATTRS)
};

#define SW_FORCE_CONFIG_ATTRS(X) X(values, forceEnabledPorts, ForceEnabledPorts, Lomax::IntfId, bool, false)

class SwForceConfig : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(SwForceConfig, SW_FORCE_CONFIG_ATTRS)
};

#define COUNTER_CONFIG_ATTRS(X) \
  X(scalar, counterUpdateRequestTime, CounterUpdateRequestTime, Kiv::Seconds, 0.0)

class CounterConfig : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(CounterConfig, COUNTER_CONFIG_ATTRS)
};

#define HW_CONFIG_ATTRS(X)                                                   \
  X(scalar, swFloodPimWithCore, SwFloodPimWithCore, bool, false)             \
  X(scalar, swFloodLinkLocalWithCore, SwFloodLinkLocalWithCore, bool, false) \
  X(scalar, swFloodIgmpNoCore, SwFloodIgmpNoCore, bool, false)               \
  X(scalar, swFloodPimNoCore, SwFloodPimNoCore, bool, false)                 \
  X(scalar, swFloodOtherNoCore, SwFloodOtherNoCore, bool, false)

// Which classes of packet this hardware needs the agent to flood in software.
class HwConfig : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(HwConfig, HW_CONFIG_ATTRS)
};

}  // namespace Bridging::IgmpSnooping
