// Forwarding-state export: IP groups and routers of the core's status become Ethernet groups and
// router ports in the published VlanStatus. The local image (ethernetGroup, routerInterface) follows
// the status at all times; what is published follows the image while the core is confident.
#include "glue/GlueTrace.h"
#include "glue/GlueVlanSm.h"
#include "glue/GlueVlanSmReactors.h"
#include "model/Logs.h"
#include "net/IpToEthGroupMap.h"

namespace IgmpShim {

using namespace Bridging::IgmpSnooping;
using Lomax::EthAddr;
using Lomax::IntfId;
using Lomax::IpAddr;

// --- routers ---------------------------------------------------------------------------------------

RouterSm::RouterSm(IpAddr addr, Kiv::Ptr<MulticastRouter const> router, GlueVlanSm* glueVlanSm)
    : addr_(addr), glueVlanSm_(glueVlanSm), kivRouter_(this) {
  kivRouter_.kivInterestIs(MulticastRouter::NotifieeConst::kivInterestOf<KivRouter>());
  kivRouter_.notifierIs(router);
}

void RouterSm::initializedIs(bool on) {
  if (on == initialized_) return;
  initialized_ = on;
  handleIntf();
}

void RouterSm::handleIntf() {
  if (!initialized_) return;
  glueVlanSm_->handleRouter(addr_);
}

// --- groups ------------------------------------------------------------------------------------------

Kiv::Ptr<IgmpShim::EthernetGroup> GlueVlanSm::ethernetGroup(EthAddr eth) const {
  auto* g = ethernetGroup_.find(eth);
  return g ? *g : nullptr;
}

Kiv::Ptr<IgmpShim::EthernetGroup> GlueVlanSm::ethernetGroupIs(EthAddr eth) {
  Kiv::Ptr<IgmpShim::EthernetGroup> g = Kiv::make<IgmpShim::EthernetGroup>(eth);
  ethernetGroup_.set(eth, g);
  handleEthGroup(eth);
  return g;
}

void GlueVlanSm::ethernetGroupDel(EthAddr eth) {
  if (!ethernetGroup_.erase(eth)) return;
  handleEthGroup(eth);
}

void GlueVlanSm::handleIgmpGroup(IpAddr ip) {
  if (!initialized_ || !coreStatus_) return;
  auto group = coreStatus_->group(ip);
  if (group) {
    auto* reactor = igmpGroup_.find(ip);
    if (!reactor || (*reactor)->notifier() != group) {
      Kiv::Ptr<KivIgmpGroup> r(new KivIgmpGroup(this));
      r->kivInterestIs(IgmpGroup::NotifieeConst::kivInterestOf<KivIgmpGroup>());
      igmpGroup_.set(ip, r);
      // The attach sweep runs handleIgmpGroup(ip) once more, which finds the reactor in place.
      r->notifierIs(group);
      return;
    }
    for (auto& i : group->intfIter()) handleMemberIntf(ip, i.key());
    return;
  }
  igmpGroup_.erase(ip);
  // The ports that the lost group held are found in the glue's own image.
  auto eth = ethernetGroup(IpToEthGroupMap(ip));
  if (!eth) return;
  std::vector<IntfId> ports;
  for (auto& i : eth->groupIntfIter()) {
    if (i->intfAddr(ip)) ports.push_back(i.key());
  }
  for (IntfId intf : ports) handleMemberIntf(ip, intf);
}

void GlueVlanSm::handleIgmpGroup() {
  if (!initialized_ || !coreStatus_) {
    KIV_TRACE(glueTrace, 8, "Return due to not initialized");
    return;
  }
  for (auto& g : coreStatus_->groupIter()) handleIgmpGroup(g.key());
  std::vector<std::pair<IpAddr, IntfId>> held;
  for (auto& e : ethernetGroup_.iter()) {
    for (auto& i : (*e.value())->groupIntfIter()) {
      for (auto& a : i->intfAddrIter()) held.emplace_back(a.key(), i.key());
    }
  }
  for (auto& [ip, intf] : held) handleMemberIntf(ip, intf);
  std::vector<IpAddr> stale;
  for (auto& r : igmpGroup_.iter()) {
    if (!coreStatus_->group(r.key())) stale.push_back(r.key());
  }
  for (IpAddr ip : stale) igmpGroup_.erase(ip);
}

// Recomputes one (IP group, port) pair from the present status. A port enters an Ethernet group with
// its first IP group and leaves it with its last; the group goes with its last port.
void GlueVlanSm::handleMemberIntf(IpAddr ip, IntfId intf) {
  if (!coreStatus_) return;
  const EthAddr eth = IpToEthGroupMap(ip);
  Kiv::Ptr<IgmpShim::EthernetGroup> grp = ethernetGroup(eth);
  KIV_TRACE(glueTrace, 8, "Vlan " << vlanId() << " " << ip << " " << intf);
  if (!coreStatus_->confident()) {
    // A reactor of the core may tell of a change before the glue hears that confidence is gone: the
    // bridge floods before anything is withdrawn.
    if (state_ == snoopingStateActive) stateIs(snoopingStateFlooding);
    if (ethernetGroup_.empty()) return;
    KIV_TRACE(glueTrace, 7, "Not confident in snooping; deleting all mcast groups from vlan " << vlanId());
    std::vector<EthAddr> all;
    for (auto& e : ethernetGroup_.iter()) all.push_back(e.key());
    for (EthAddr a : all) {
      KIV_TRACE(glueTrace, 7, "Deleting " << a);
      ethernetGroupDel(a);
    }
    return;
  }
  auto group = coreStatus_->group(ip);
  if (group && group->intf(intf)) {
    if (!grp) {
      KIV_TRACE(glueTrace, 7, "Adding " << eth << " to eth mcast groups for vlan " << vlanId());
      grp = ethernetGroupIs(eth);
    }
    auto entry = grp->groupIntf(intf);
    if (!entry) {
      KIV_TRACE(glueTrace, 7, "Adding " << intf << " to mcast group " << eth << " for vlan " << vlanId());
      entry = grp->groupIntfIs(intf);
      entry->intfAddrIs(ip, true);
      handleEthGroupIntf(eth, intf);
    } else {
      entry->intfAddrIs(ip, true);
    }
    KIV_TRACE(glueTrace, 8, "Intf " << intf << " has members of " << ip << " on vlan " << vlanId());
    return;
  }
  auto entry = grp ? grp->groupIntf(intf) : nullptr;
  if (!entry) return;
  entry->intfAddrDel(ip);
  if (entry->intfAddrSize() == 0) {
    KIV_TRACE(glueTrace, 7, "Intf " << intf << " has no more clients for " << eth << " on vlan " << vlanId());
    grp->groupIntfDel(intf);
    handleEthGroupIntf(eth, intf);
    KIV_TRACE(glueTrace, 7, "Removed " << intf << " from mcast group " << eth << " on vlan " << vlanId());
  }
  if (grp->groupIntfSize() == 0) {
    KIV_TRACE(glueTrace, 7, "Removing " << eth << " from eth mcast groups for vlan " << vlanId());
    ethernetGroupDel(eth);
  }
}

void GlueVlanSm::handleEthGroup(EthAddr eth) {
  if (!igmpVlanStatus_) return;
  if (state_ == snoopingStateActive) {
    if (auto published = igmpVlanStatus_->ethGroup(eth)) {
      std::vector<IntfId> ports;
      for (auto& i : published->groupIntfIter()) ports.push_back(i.key());
      for (IntfId intf : ports) handleEthGroupIntf(eth, intf);
    }
  }
  if (auto grp = ethernetGroup(eth)) {
    for (auto& i : grp->groupIntfIter()) handleEthGroupIntf(eth, i.key());
  }
}

void GlueVlanSm::handleEthGroup() {
  if (!igmpVlanStatus_) return;
  std::vector<EthAddr> all;
  for (auto& g : igmpVlanStatus_->ethGroupIter()) all.push_back(g.key());
  for (auto& g : ethernetGroup_.iter()) all.push_back(g.key());
  // Published groups are swept whatever the state, so that leaving the active state withdraws them.
  for (EthAddr eth : all) {
    if (auto published = igmpVlanStatus_->ethGroup(eth)) {
      std::vector<IntfId> ports;
      for (auto& i : published->groupIntfIter()) ports.push_back(i.key());
      for (IntfId intf : ports) handleEthGroupIntf(eth, intf);
    }
    if (auto grp = ethernetGroup(eth)) {
      for (auto& i : grp->groupIntfIter()) handleEthGroupIntf(eth, i.key());
    }
  }
}

// The merge of local and peer: an entry stays published while either side wants it.
void GlueVlanSm::handleEthGroupIntf(EthAddr eth, IntfId intf) {
  if (!initialized_) return;
  if (!glueSm_->smStateRebuilt() && (!coreSm_ || coreSm_->coreSmStateRebuilding())) return;
  if (!igmpVlanStatus_) return;
  auto grp = ethernetGroup(eth);
  if (grp && grp->groupIntf(intf) && state_ != snoopingStateFlooding) {
    addEthGroupIntf(eth, intf);
  } else if (isPeerEthGroupIntf(eth, intf)) {
    KIV_TRACE(glueTrace, 7,
              "Not deleting member " << intf << "for group " << eth << " because it's in peer's status");
  } else {
    delEthGroupIntf(eth, intf);
  }
}

void GlueVlanSm::addEthGroupIntf(EthAddr eth, IntfId intf) {
  auto published = igmpVlanStatus_->ethGroup(eth);
  if (!published) {
    published = igmpVlanStatus_->ethGroupIs(eth);
    KIV_TRACE(glueTrace, 7, "Selective igmp forwarding for " << eth << " on vlan " << vlanId());
  }
  published->groupIntfIs(intf, true);
  KIV_TRACE(glueTrace, 7,
            "Forwarding mcast traffic on intf " << intf << " for " << eth << " on vlan " << vlanId());
}

void GlueVlanSm::delEthGroupIntf(EthAddr eth, IntfId intf) {
  auto published = igmpVlanStatus_->ethGroup(eth);
  if (!published) return;
  if (published->groupIntf(intf)) {
    published->groupIntfDel(intf);
    KIV_TRACE(glueTrace, 7,
              "Not forwarding mcast traffic on intf " << intf << " for " << eth << " on vlan " << vlanId());
  }
  if (published->groupIntfSize() == 0) {
    KIV_TRACE(glueTrace, 7, "No longer forwarding mcast traffic for " << eth << " on vlan " << vlanId());
    igmpVlanStatus_->ethGroupDel(eth);
  }
}

void GlueVlanSm::addRouterIntf(IntfId intf) {
  KIV_TRACE(glueTrace, 7, " adding routerIntf " << intf << " to vlan status " << vlanId());
  igmpVlanStatus_->routerIntfIs(intf, true);
}

void GlueVlanSm::delRouterIntf(IntfId intf) {
  KIV_TRACE(glueTrace, 7, " removing routerIntf " << intf << " from vlan status " << vlanId());
  igmpVlanStatus_->routerIntfDel(intf);
}

bool GlueVlanSm::isPeerEthGroupIntf(EthAddr, IntfId) const { return false; }

bool GlueVlanSm::isPeerRouterIntf(IntfId) const { return false; }

// --- routers ---------------------------------------------------------------------------------------

void GlueVlanSm::handleRouter(IpAddr ip) {
  if (!initialized_ || !coreStatus_) return;
  auto router = coreStatus_->router(ip);
  RouterSm* sm = addrIntfMap_.find(ip);
  if (router && !sm) {
    KIV_TRACE(glueTrace, 7, "Creating Router State Machine for " << ip);
    // In the map before it starts, since its start asks for this router again.
    Kiv::smIs(addrIntfMap_, *this, ip, Kiv::Ptr<MulticastRouter const>(router), this)->initializedIs(true);
    return;
  }
  if (router && sm) {
    const IntfId now = router->intf();
    const IntfId old = sm->intf();
    if (old && old != now) handleRouterIntf(old, ip, false);
    if (now) {
      sm->intfIs(now);
      handleRouterIntf(now, ip, true);
    }
    return;
  }
  if (!router && sm) {
    handleRouterIntf(sm->intf(), ip, false);
    Kiv::smDel(addrIntfMap_, ip);
  }
}

void GlueVlanSm::handleRouter() {
  if (!initialized_ || !coreStatus_) {
    KIV_TRACE(glueTrace, 8, "Return due to not initialized");
    return;
  }
  std::vector<IpAddr> all;
  for (auto& sm : addrIntfMap_.iter()) all.push_back(sm.key());
  for (auto& r : coreStatus_->routerIter()) all.push_back(r.key());
  for (IpAddr ip : all) handleRouter(ip);
}

void GlueVlanSm::handleRouterIntf(IntfId intf, IpAddr ip, bool add) {
  if (add) {
    if (!intf) return;
    auto* entry = routerInterface_.find(intf);
    Kiv::Ptr<InterfaceStatus> status = entry ? *entry : nullptr;
    if (!status) {
      KIV_TRACE(glueTrace, 7, "Adding router intf " << intf << " to vlan " << vlanId());
      status = Kiv::make<InterfaceStatus>(intf);
      routerInterface_.set(intf, status);
      routerPorts_.push_back(intf);
      handleRouterInterface(intf);
    }
    KIV_TRACE(glueTrace, 7, "Router " << ip << " on intf " << intf << " on vlan " << vlanId());
    status->intfAddrIs(ip, true);
    return;
  }
  auto* entry = routerInterface_.find(intf);
  if (!entry || !(*entry)->intfAddr(ip)) return;
  KIV_TRACE(glueTrace, 7, "Router " << ip << " no longer at intf " << intf);
  (*entry)->intfAddrDel(ip);
  if ((*entry)->intfAddrSize() == 0) {
    routerInterface_.erase(intf);
    std::erase(routerPorts_, intf);
    handleRouterInterface(intf);
    KIV_TRACE(glueTrace, 7, "Removed router intf " << intf << " from vlan " << vlanId());
  }
}

Kiv::Ptr<InterfaceStatus> GlueVlanSm::routerInterface(IntfId intf) const {
  auto* entry = routerInterface_.find(intf);
  return entry ? *entry : nullptr;
}

// Decides what the bridge sees of one router port. Under report flooding no router port is published.
void GlueVlanSm::handleRouterInterface(IntfId intf) {
  if (!coreStatus_ || intf == Lomax::switchIntfId() || intf == Lomax::cpuIntfId()) return;
  if (!glueSm_->smStateRebuilt()) return;
  if (state_ != snoopingStateFlooding && state_ != snoopingStateActive) return;
  KIV_ASSERT_TEXT(igmpVlanStatus_, "igmpVlanStatus() != __null");
  const bool reportFlooding = coreStatus_->reportFloodingEnabled();
  if (reportFlooding) {
    // Report flooding is for pure layer 2 networks: a PIM, DVMRP or MRD router is not expected there.
    for (auto& r : coreStatus_->routerIter()) {
      if (r->routerType() != routerTypeQuery) {
        Kiv::log(IGMPSNOOPING_NOT_EXPECT_ROUTER, vlanId().value());
        break;
      }
    }
  }
  if (routerInterface(intf) && !reportFlooding) {
    addRouterIntf(intf);
  } else if (isPeerRouterIntf(intf)) {
    KIV_TRACE(glueTrace, 7, "Not deleting router " << intf << " because it's in peer's status");
  } else {
    delRouterIntf(intf);
  }
}

void GlueVlanSm::handleRouterInterface() {
  if (state_ != snoopingStateFlooding && state_ != snoopingStateActive) return;
  KIV_ASSERT_TEXT(igmpVlanStatus_, "igmpVlanStatus() != __null");
  std::vector<IntfId> all;
  for (auto& r : routerInterface_.iter()) all.push_back(r.key());
  for (auto& r : igmpVlanStatus_->routerIntfIter()) all.push_back(r.key());
  for (IntfId intf : all) handleRouterInterface(intf);
}

// --- confidence and publishing state ---------------------------------------------------------------

// Losing confidence turns flooding on before any group is withdrawn; regaining it puts the groups in
// place before flooding stops (handleState does the publishing of both).
void GlueVlanSm::handleConfident() {
  if (!initialized_ || !coreSm_ || !coreStatus_) return;
  KIV_TRACE(glueTrace, 7,
            " for Vlan " << vlanId() << " state: " << state_ << " confident " << coreStatus_->confident());
  if (coreStatus_->confident()) {
    handleRouter();
    handleStaticRouter();
    handleIgmpGroup();
    KIV_TRACE(glueTrace, 6, "Confident; using snooped mcast groups & routers for vlan " << vlanId());
    stateIs(snoopingStateActive);
  } else {
    KIV_TRACE(glueTrace, 6, "Not confident; deleting all mcast groups & routers from vlan " << vlanId());
    stateIs(snoopingStateFlooding);
    handleRouter();
    handleStaticRouter();
    handleIgmpGroup();
  }
}

void GlueVlanSm::stateIs(IgmpSnoopingState s) {
  if (s == state_) return;
  state_ = s;
  handleState();
}

// The order of these writes guards against a loss of traffic in either direction: flood on before
// groups off, groups on before flood off.
void GlueVlanSm::handleState() {
  KIV_TRACE(glueTrace, 7, " vlan " << vlanId() << ",state: " << state_);
  if (!glueSm_->smStateRebuilt()) return;
  switch (state_) {
    case snoopingStateDefault:
      KIV_ASSERT_TEXT(!igmpVlanStatus_, "igmpVlanStatus() == __null");
      break;
    case snoopingStateFlooding:
      KIV_ASSERT_TEXT(igmpVlanStatus_, "igmpVlanStatus() != __null");
      igmpVlanStatus_->useVlanFloodsetIs(true);
      handleFloodset();
      handleRouterInterface();
      break;
    case snoopingStateActive:
      KIV_ASSERT_TEXT(igmpVlanStatus_, "igmpVlanStatus() != __null");
      handleFloodset();
      if (igmpVlanStatus_) handleRouterInterface();
      break;
    default:
      KIV_TRACE(glueTrace, 1, "IgmpSnooping shim layer does not yet support Topology Change!");
      Kiv::assertionFailed("false", __FILE__, __LINE__, __PRETTY_FUNCTION__);
  }
  if (coreStatus_) {
    handleEthGroup();
    coreStatus_->glueStateIs(state_);
  }
  if (state_ != snoopingStateFlooding && igmpVlanStatus_) igmpVlanStatus_->useVlanFloodsetIs(false);
}

void GlueVlanSm::handleFloodset() {
  if (state_ != snoopingStateFlooding) return;
  if (topoVlan_) {
    for (auto& p : topoVlan_->portIter()) handleFloodset(p.key());
  }
  if (igmpVlanStatus_) {
    for (auto& r : igmpVlanStatus_->routerIntfIter()) handleFloodset(r.key());
  }
}

// While the VLAN floods, the bridge's flood set is the VLAN's; only the topology change state, which
// is never entered, would mirror ports into the router ports.
void GlueVlanSm::handleFloodset(IntfId) {
  if (!glueSm_->smStateRebuilt()) return;
  if (state_ == snoopingStateFlooding) KIV_ASSERT_TEXT(igmpVlanStatus_, "igmpVlanStatus() != __null");
}

}  // namespace IgmpShim
