// The VLAN's L2 querier as the VLAN glue sees it: the querier's configuration, each value the VLAN's
// own when it has one and the global one otherwise, and the querier's packet path. The querier sends
// and receives through a VlanPam on GlueSm's l2QuerierMultiplexer, whose link reaches the multiplexer
// of the pseudo-interface "Switch"; there the VLAN takes its frames as a port's, and floods to it.
#include "core/CoreTrace.h"
#include "glue/GlueTrace.h"
#include "glue/GlueVlanSm.h"
#include "glue/GlueVlanSmReactors.h"

namespace IgmpShim {

using namespace Bridging::IgmpSnooping;

namespace {
// A querier's first queries come at a quarter of its query interval.
constexpr double startupIntervalShare = 0.25;
}  // namespace

Kiv::Name GlueVlanSm::querierName() const { return Kiv::format("%d", unsigned(vlanId().value())); }

Kiv::Ptr<Igmp::QuerierConfig> GlueVlanSm::querierConfig() const {
  const auto& dir = glueSm_->querierConfigDir();
  return dir ? dir->querierConfig(querierName()) : nullptr;
}

const VlanQuerierConfig* GlueVlanSm::vlanQuerierConfig() const {
  return igmpVlanConfig_ ? igmpVlanConfig_->vlanQuerierConfig().ptr() : nullptr;
}

const GlobalQuerierConfig& GlueVlanSm::globalQuerierConfig() const {
  static const Kiv::Ptr<GlobalQuerierConfig> defaults = Kiv::make<GlobalQuerierConfig>("defaults");
  const auto& config = glueSm_->config();
  return config && config->globalQuerierConfig() ? *config->globalQuerierConfig() : *defaults;
}

// The VLAN has no robustness of its own: the global one applies.
uint32_t GlueVlanSm::robustness() const {
  return glueSm_->config() ? glueSm_->config()->robustness() : IgmpContextStatus::defaultRobustness;
}

void GlueVlanSm::handleVlanQuerierConfig() {
  const VlanQuerierConfig* own = vlanQuerierConfig();
  if (kivVlanQuerierConfig_->notifier().ptr() != own) {
    kivVlanQuerierConfig_->notifierIs(Kiv::Ptr<VlanQuerierConfig const>(own));
  }
  handleQuerierIpAddr();
  handleQuerierQueryInterval();
  handleQuerierQueryResponseInterval();
  handleQuerierLastMemberQueryInterval();
  handleQuerierLastMemberQueryCount();
  handleQuerierStartupQueryCount();
  handleQuerierVersion();
  handleMtu();
  handleQuerierEnabled();
}

void GlueVlanSm::handleQuerierSecondaryVlan() {
  if (!initialized_) return;
  if (auto querier = querierConfig()) querier->primaryVlanIs(primaryVlan_);
}

void GlueVlanSm::handleQuerierIpAddr() {
  if (!initialized_) return;
  auto querier = querierConfig();
  if (!querier) return;
  const VlanQuerierConfig* own = vlanQuerierConfig();
  querier->ipAddrIs(own && own->ipAddrConfigured() != Lomax::IpAddr() ? own->ipAddrConfigured()
                                                                      : globalQuerierConfig().ipAddr());
}

void GlueVlanSm::handleMacAddr() {
  if (!initialized_) return;
  auto querier = querierConfig();
  const auto& dir = glueSm_->glueVlanMultiplexerDir();
  if (!querier || !dir || !dir->bridgingConfig()) return;
  querier->macAddrIs(dir->bridgingConfig()->bridgeMacAddr());
}

void GlueVlanSm::handleQuerierQueryResponseInterval() {
  if (!initialized_) return;
  auto querier = querierConfig();
  if (!querier) return;
  const VlanQuerierConfig* own = vlanQuerierConfig();
  querier->queryResponseIntervalIs(own && own->queryResponseIntervalConfigured() != 0.0
                                       ? own->queryResponseIntervalConfigured()
                                       : globalQuerierConfig().queryResponseInterval());
}

void GlueVlanSm::handleQuerierLastMemberQueryInterval() {
  if (!initialized_) return;
  auto querier = querierConfig();
  if (!querier) return;
  const VlanQuerierConfig* own = vlanQuerierConfig();
  querier->lastMemberQueryIntervalIs(own && own->lastMemberQueryIntervalConfigured() != 0.0
                                         ? own->lastMemberQueryIntervalConfigured()
                                         : globalQuerierConfig().lastMemberQueryInterval());
}

void GlueVlanSm::handleQuerierLastMemberQueryCount() {
  if (!initialized_) return;
  auto querier = querierConfig();
  if (!querier) return;
  const VlanQuerierConfig* own = vlanQuerierConfig();
  uint32_t count = own ? own->lastMemberQueryCountConfigured() : 0;
  if (count == 0) count = globalQuerierConfig().lastMemberQueryCount();
  querier->lastMemberQueryCountIs(count ? count : robustness());
}

void GlueVlanSm::handleQuerierStartupQueryInterval() {
  if (!initialized_) return;
  auto querier = querierConfig();
  if (!querier) return;
  const VlanQuerierConfig* own = vlanQuerierConfig();
  const GlobalQuerierConfig& global = globalQuerierConfig();
  Kiv::Seconds interval = 0.0;
  if (own && own->startupQueryIntervalConfigured() != 0.0) {
    interval = own->startupQueryIntervalConfigured();
  } else if (own && own->queryIntervalConfigured() != 0.0) {
    interval = startupIntervalShare * own->queryIntervalConfigured();
  } else if (global.startupQueryInterval() != 0.0) {
    interval = global.startupQueryInterval();
  } else {
    interval = startupIntervalShare * global.queryInterval();
  }
  querier->startupQueryIntervalIs(interval);
}

void GlueVlanSm::handleQuerierStartupQueryCount() {
  if (!initialized_) return;
  auto querier = querierConfig();
  if (!querier) return;
  const VlanQuerierConfig* own = vlanQuerierConfig();
  uint32_t count = own ? own->startupQueryCountConfigured() : 0;
  if (count == 0) count = globalQuerierConfig().startupQueryCount();
  querier->startupQueryCountIs(count ? count : robustness());
}

void GlueVlanSm::handleQuerierVersion() {
  if (!initialized_) return;
  auto querier = querierConfig();
  if (!querier) return;
  const VlanQuerierConfig* own = vlanQuerierConfig();
  querier->querierVersionIs(own && own->querierVersionConfigured() != 0
                                ? own->querierVersionConfigured()
                                : globalQuerierConfig().querierVersion());
}

// The global configuration has no frame size: without the VLAN's own the querier chooses.
void GlueVlanSm::handleMtu() {
  if (!initialized_) return;
  auto querier = querierConfig();
  if (!querier) return;
  const VlanQuerierConfig* own = vlanQuerierConfig();
  querier->mtuIs(own ? own->mtuConfigured() : 0);
}

void GlueVlanSm::handleProxyVlanConfig() {
  if (!initialized_) return;
  glueSm_->handleProxyVlanConfig(vlanId());
}

// The querier's queries and reports reach the VLAN like a port's, through the pseudo-interface
// "Switch". Its configuration exists while the VLAN wants a querier, its own or the proxy's; the
// packet path is made while that configuration says enabled and the VLAN has a core, and is taken down
// as soon as either goes, so that a setting's effect does not depend on whether it came before the
// core or after.
void GlueVlanSm::handleQuerierEnabled() {
  if (!initialized_) return;
  const Bridging::VlanId vlan = vlanId();
  const auto& dir = glueSm_->querierConfigDir();
  Kiv::Ptr<Igmp::QuerierConfig> querier = querierConfig();
  if (dir) {
    const bool wanted = glueSm_->isL2QuerierConfigured(vlan) || glueSm_->isProxyConfigured(vlan);
    if (wanted && !querier) {
      querier = dir->querierConfigIs(querierName());
      KIV_TRACE(glueTrace, 6, "l2 querier config created for " << vlan);
      handleQuerierSecondaryVlan();
      handleQuerierIpAddr();
      handleMacAddr();
      handleRobustness();
      handleQuerierQueryInterval();
      handleQuerierQueryResponseInterval();
      handleQuerierLastMemberQueryInterval();
      handleQuerierVersion();
      handleMtu();
    } else if (!wanted && querier) {
      querier->pamIs(nullptr);
      dir->querierConfigDel(querierName());
      querier = nullptr;
    }
  }
  glueSm_->setupQuerier(vlan);
  doQuerierPacketPath();
}

void GlueVlanSm::doQuerierPacketPath() {
  if (!initialized_) return;
  const Bridging::VlanId vlan = vlanId();
  Kiv::Ptr<Igmp::QuerierConfig> querier = querierConfig();
  const auto& muxDir = glueSm_->glueVlanMultiplexerDir();
  VirtualIntfGlueVlanMultiplexer* switchVpm = muxDir ? muxDir->multiplexer(Lomax::switchIntfId()) : nullptr;
  const auto& l2Mux = glueSm_->l2QuerierMultiplexer();
  if (!querier || !querier->enabled()) {
    KIV_TRACE(glueTrace, 7, "l2 querier disabled for vlan " << vlan);
    handleAddOrRemoveIntf(Lomax::switchIntfId(), false);
    if (switchVpm) switchVpm->vlanSmDel(vlan);
    if (l2Mux) l2Mux->vlanPamDel(vlan);
    if (querier) querier->pamIs(nullptr);
    return;
  }
  KIV_TRACE(glueTrace, 7, "l2 querier enabled for vlan " << vlan);
  Kiv::Ptr<Lomax::VlanPam> pam;
  if (coreSm_ && l2Mux) {
    pam = Kiv::Ptr<Lomax::VlanPam>(l2Mux->vlanPam(vlan));
    if (!pam) {
      pam = Kiv::make<Lomax::VlanPam>(querierName(), vlan);
      l2Mux->vlanPamIs(pam);
    }
  } else if (l2Mux) {
    l2Mux->vlanPamDel(vlan);
  }
  if (switchVpm) {
    KIV_ASSERT_TEXT(!switchVpm->blocked(vlan), "!switchVpm->blocked( vlanId() )");
    if (switchVpm->vlanSm(vlan) != this) switchVpm->vlanSmIs(Kiv::Ptr<GlueVlanSm>(this));
  }
  handleAddOrRemoveIntf(Lomax::switchIntfId(), true);
  querier->pamIs(pam);
}

}  // namespace IgmpShim
