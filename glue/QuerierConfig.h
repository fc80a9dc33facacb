// The L2 querier's side of the agent: per VLAN, the configuration that the glue writes for the
// switch's own querier (under the VLAN's number as a name), and the status that the querier keeps.
// The querier itself is the platform's; it sends and receives through the packet access that the
// glue hands it in its configuration (pam).
#pragma once

#include "glue/VlanPamMultiplexer.h"
#include "kernel/Clock.h"
#include "kernel/EntityDecl.h"
#include "net/EthAddr.h"
#include "net/IpAddr.h"
#include "net/VlanIdOrNone.h"

namespace Igmp {

#define QUERIER_CONFIG_ATTRS(X)                                                  \
  X(scalar, enabled, Enabled, bool, false)                                       \
  X(scalar, proxyMode, ProxyMode, bool, false)                                   \
  X(scalar, robustness, Robustness, uint32_t, 2)                                 \
  X(scalar, queryInterval, QueryInterval, Kiv::Seconds, 125.0)                   \
  X(scalar, queryResponseInterval, QueryResponseInterval, Kiv::Seconds, 10.0)    \
  X(scalar, lastMemberQueryInterval, LastMemberQueryInterval, Kiv::Seconds, 1.0) \
  X(scalar, lastMemberQueryCount, LastMemberQueryCount, uint32_t, 2)             \
  X(scalar, startupQueryInterval, StartupQueryInterval, Kiv::Seconds, 31.25)     \
  X(scalar, startupQueryCount, StartupQueryCount, uint32_t, 2)                   \
  X(scalar, querierVersion, QuerierVersion, uint32_t, 2)                         \
  X(scalar, ipAddr, IpAddr, Lomax::IpAddr, Lomax::IpAddr())                      \
  X(scalar, mtu, Mtu, uint32_t, 0)                                               \
  X(scalar, macAddr, MacAddr, Lomax::EthAddr, Lomax::EthAddr())                  \
  X(scalar, primaryVlan, PrimaryVlan, Bridging::VlanIdOrNone, Bridging::VlanIdOrNone())

// One VLAN's querier. mtu 0 leaves the frame size to the querier.
class QuerierConfig : public Kiv::KeyedEntity<Kiv::Name> {
  KIV_ENTITY_KEYED(QuerierConfig, Kiv::Name, vlanName, QUERIER_CONFIG_ATTRS)

  // The querier's packet access in its VLAN while the VLAN's snooping core runs, else null. It lives
  // in this process only and is not stored with the entity: the querier reads it when it sends.
  const Kiv::Ptr<Lomax::VlanPam>& pam() const { return pam_; }
  void pamIs(Kiv::Ptr<Lomax::VlanPam> p) { pam_ = std::move(p); }

 private:
  Kiv::Ptr<Lomax::VlanPam> pam_;
};

#define QUERIER_CONFIG_DIR_ATTRS(X) X(entities, querierConfig, QuerierConfig, Kiv::Name, QuerierConfig)

class QuerierConfigDir : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(QuerierConfigDir, QUERIER_CONFIG_DIR_ATTRS)
};

#define QUERIER_STATUS_ATTRS(X) X(scalar, querierAddr, QuerierAddr, Lomax::IpAddr, Lomax::IpAddr())

// What the querier of one VLAN knows: the elected querier's address. The glue only hands it over.
class QuerierStatus : public Kiv::KeyedEntity<Kiv::Name> {
  KIV_ENTITY_KEYED(QuerierStatus, Kiv::Name, vlanName, QUERIER_STATUS_ATTRS)
};

#define QUERIER_STATUS_DIR_ATTRS(X) X(entities, querierStatus, QuerierStatus, Kiv::Name, QuerierStatus)

class QuerierStatusDir : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(QuerierStatusDir, QUERIER_STATUS_DIR_ATTRS)
};

}  // namespace Igmp
