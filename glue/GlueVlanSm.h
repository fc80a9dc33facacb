// The VLAN glue: one GlueVlanSm per VLAN of the topology, between the VLAN's ports and its snooping
// core on one side and the bridge on the other.
//
// What it holds: the VLAN's flooder (always), its core with the core's configuration and status (while
// snooping runs in the VLAN), and its own image of what it publishes: the Ethernet groups with the IP
// groups that keep each port in them, and the router ports with the routers on each. Nothing of it
// needs saving: it is recomputed from the core's status, which survives a restart. While the VLAN wants
// an L2 querier it also writes the querier's configuration, and gives the querier a packet path that
// reaches the VLAN through the pseudo-interface "Switch" like a port.
//
// How a frame flows: a port's multiplexer hands it, tag removed, to doRxPkt, which admits it, checks
// its Ethernet and IP headers and gives IGMP and PIM to the core; the rest is flooded or counted as the
// hardware's flags say. The core's answers come back as flood requests on the flooder.
//
// How state flows: reactors on the core's status turn each (IP group, port) into a port of an Ethernet
// group (handleMemberIntf) and publish it into VlanStatus (handleEthGroupIntf) while the core is
// confident; routers go the same way into router ports. The order of the writes keeps the bridge from
// losing traffic in either direction: flood on before groups off, groups on before flood off.
#pragma once

#include "core/CoreSm.h"
#include "glue/EthernetGroup.h"
#include "glue/GlueSmBase.h"
#include "glue/SoftFlooder.h"
#include "glue/TopoVlan.h"
#include "kernel/StateMachine.h"
#include "model/Config.h"
#include "model/IgmpContextStatus.h"
#include "model/IgmpCounterDir.h"
#include "model/IgmpProtocolConfig.h"
#include "model/Status.h"
#include "net/VlanIdOrNone.h"

namespace IgmpShim {

class GlueVlanSm;

// Follows one router of the core's status: where it is, and where it was last seen.
class RouterSm : public Kiv::StateMachine, public Kiv::HashLink<RouterSm> {
 public:
  RouterSm(Lomax::IpAddr addr, Kiv::Ptr<Bridging::IgmpSnooping::MulticastRouter const> router,
           GlueVlanSm* glueVlanSm);
  Lomax::IpAddr addr() const { return addr_; }
  const Lomax::IpAddr& kivKey() const { return addr_; }
  void kivCheckParams(const Kiv::Ptr<Bridging::IgmpSnooping::MulticastRouter const>&, GlueVlanSm*) const {}
  Lomax::IntfId intf() const { return intf_; }
  void intfIs(Lomax::IntfId i) { intf_ = i; }
  bool initialized() const { return initialized_; }
  // Set once the machine is in its VLAN's map: from then on it reports its router's moves.
  void initializedIs(bool on);
  void handleIntf();

 private:
  class KivRouter : public Bridging::IgmpSnooping::MulticastRouter::NotifieeConst {
   public:
    explicit KivRouter(RouterSm* sm) : NotifieeConst(sm) {}
    void onIntf() override { static_cast<RouterSm*>(kivOwner())->handleIntf(); }
  };
  Lomax::IpAddr addr_;
  Lomax::IntfId intf_;
  GlueVlanSm* glueVlanSm_;
  bool initialized_ = false;
  KivRouter kivRouter_;
};

class GlueVlanSm : public Kiv::StateMachine {
 public:
  using TopoVlan = Topology::Library::Vlan::TopoVlan;
  using VlanConfig = Bridging::IgmpSnooping::VlanConfig;
  using VlanStatus = Bridging::IgmpSnooping::VlanStatus;
  using IgmpContextStatus = Bridging::IgmpSnooping::IgmpContextStatus;
  using IgmpSnoopingState = Bridging::IgmpSnooping::IgmpSnoopingState;
  // The address under which a configured router port counts its static router.
  static constexpr Lomax::IpAddr staticRouterAddr{127, 0, 0, 1};

  // Builds the machine without running a handler; glueVlanSmFactory builds and starts it.
  GlueVlanSm(Kiv::Ptr<TopoVlan const> topoVlan, Bridging::VlanIdOrNone primaryVlan,
             Kiv::Ptr<VlanConfig const> igmpVlanConfig, Kiv::Ptr<VlanStatus> igmpVlanStatus,
             Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig> igmpProtocolConfig,
             Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus> igmpProtocolStatus,
             Kiv::Ptr<IgmpContextStatus> coreStatus,
             Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir> igmpCounterDir, GlueSmBase* glueSm);
  ~GlueVlanSm() override;

  // The VLAN of topoVlan, or 1 while there is none.
  Bridging::VlanId vlanId() const { return topoVlan_ ? topoVlan_->vlanId() : Bridging::VlanId(); }
  const Kiv::Ptr<TopoVlan const>& topoVlan() const { return topoVlan_; }
  Bridging::VlanIdOrNone primaryVlan() const { return primaryVlan_; }
  const Kiv::Ptr<VlanConfig const>& igmpVlanConfig() const { return igmpVlanConfig_; }
  void igmpVlanConfigIs(Kiv::Ptr<VlanConfig const> c);
  const Kiv::Ptr<VlanStatus>& igmpVlanStatus() const { return igmpVlanStatus_; }
  const Kiv::Ptr<Bridging::IgmpSnooping::CoreSm>& coreSm() const { return coreSm_; }
  const Kiv::Ptr<IgmpContextStatus>& coreStatus() const { return coreStatus_; }
  const Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir>& igmpCounterDir() const { return igmpCounterDir_; }
  const Kiv::Ptr<SoftFlooder>& flooder() const { return flooder_; }
  GlueSmBase* glueSm() const { return glueSm_; }
  IgmpSnoopingState state() const { return state_; }
  void stateIs(IgmpSnoopingState s);
  bool initialized() const { return initialized_; }

  // The counters of intf, or null; kept by intern index, so that the name is looked up once. A counter
  // taken out of the directory has lost its parent; one may have been put in its place.
  Bridging::IgmpSnooping::IgmpContextIntfCounter* intfCounter(Lomax::IntfId intf) {
    const uint32_t i = intf.internIndex();
    if (i < intfCounters_.size()) [[likely]] {
      Bridging::IgmpSnooping::IgmpContextIntfCounter* c = intfCounters_[i].ptr();
      if (c && c->parent() == igmpCounterDir_.ptr()) [[likely]]
        return c;
    }
    return intfCounterLookup(intf);
  }

  // The packet path.
  void doRxPkt(Lomax::IntfId intf, Kiv::Ptr<Lomax::Pkt> pkt);
  void doFlood(Kiv::Ptr<Lomax::Pkt> pkt, Bridging::IgmpSnooping::IgmpSnoopingFloodType type,
               Lomax::IntfId incoming, Bridging::IgmpSnooping::IgmpSnoopingPktType pktType);

  // Per-VLAN configuration.
  void handleInitialized();
  void handleSmStateInitialized();
  void handleIgmpSnoopingEnabled();
  void handleChangeToSnoopingState(Bridging::VlanId vlan);
  void handleInitializeCore();
  void handleCleanupCore();
  void handleMaxGroups();
  void handleVlanImmediateLeave();
  void handleRestartQueryInterval();
  void handleRobustness();
  void handleQuerierQueryInterval();
  void handleReportFloodingEnabled();

  // The L2 querier: its configuration's values, and its packet path through "Switch".
  // The key of the VLAN's entry in GlueSm's querierConfigDir.
  Kiv::Name querierName() const;
  Kiv::Ptr<Igmp::QuerierConfig> querierConfig() const;
  void handleVlanQuerierConfig();
  void handleQuerierSecondaryVlan();
  void handleQuerierIpAddr();
  void handleMacAddr();
  void handleQuerierQueryResponseInterval();
  void handleQuerierLastMemberQueryInterval();
  void handleQuerierLastMemberQueryCount();
  void handleQuerierStartupQueryInterval();
  void handleQuerierStartupQueryCount();
  void handleQuerierVersion();
  void handleMtu();
  void handleQuerierEnabled();
  void handleProxyVlanConfig();
  void handleIgmpIpGroup(Lomax::IpAddr ip);
  void handleIgmpIpGroup();
  void handleStaticIntfs(Lomax::IpAddr ip);
  void handleStaticMember(Lomax::IntfId intf);
  void handleStaticMember();
  void handleStaticIntf(Lomax::IpAddr ip, Lomax::IntfId intf);
  void handleStaticRouter(Lomax::IntfId intf);
  void handleStaticRouter();
  void handleSwitchPort(Lomax::IntfId intf);
  void handleSwitchPort();

  // Forwarding-state export.
  void handleIgmpGroup(Lomax::IpAddr ip);
  void handleIgmpGroup();
  void handleIgmpGroupIntfs(Lomax::IpAddr ip, Lomax::IntfId intf) { handleMemberIntf(ip, intf); }
  void handleMemberIntf(Lomax::IpAddr ip, Lomax::IntfId intf);
  Kiv::Ptr<EthernetGroup> ethernetGroup(Lomax::EthAddr eth) const;
  size_t ethernetGroupSize() const { return ethernetGroup_.size(); }
  void handleEthGroup(Lomax::EthAddr eth);
  void handleEthGroup();
  void handleEthGroupIntf(Lomax::EthAddr eth, Lomax::IntfId intf);
  void addEthGroupIntf(Lomax::EthAddr eth, Lomax::IntfId intf);
  void delEthGroupIntf(Lomax::EthAddr eth, Lomax::IntfId intf);
  void addRouterIntf(Lomax::IntfId intf);
  void delRouterIntf(Lomax::IntfId intf);
  // The peer's image stays empty until the peer's status is taken in.
  bool isPeerEthGroupIntf(Lomax::EthAddr eth, Lomax::IntfId intf) const;
  bool isPeerRouterIntf(Lomax::IntfId intf) const;
  void handleRouter(Lomax::IpAddr ip);
  void handleRouter();
  void handleRouterIntf(Lomax::IntfId intf, Lomax::IpAddr ip, bool add);
  Kiv::Ptr<InterfaceStatus> routerInterface(Lomax::IntfId intf) const;
  size_t routerInterfaceSize() const { return routerInterface_.size(); }
  auto routerInterfaceIter() const { return routerInterface_.iter(); }
  // The keys of routerInterface in the order they came: what each flood to the routers walks.
  const std::vector<Lomax::IntfId>& routerPorts() const { return routerPorts_; }
  void handleRouterInterface(Lomax::IntfId intf);
  void handleRouterInterface();
  void handleConfident();
  void handleState();
  void handleFloodset();
  void handleFloodset(Lomax::IntfId intf);

  // Port state.
  void handleVlanIntf(Lomax::IntfId intf);
  void handleVlanIntf();
  void handleAddOrRemoveIntf(Lomax::IntfId intf, bool add);
  void handleTopoPort(Lomax::IntfId intf);
  void handleTopoPortBlocked(Lomax::IntfId intf);
  void handleTopoPortDirection(Lomax::IntfId intf);

 protected:
  void kivZombieChildren(bool on) override;

 private:
  class KivIgmpVlanConfig;
  class KivVlanQuerierConfig;
  class KivCoreStatus;
  class KivIgmpGroup;
  class KivStaticGroup;
  class KivTopoVlan;
  class KivGlueTopoPort;
  void ethernetGroupDel(Lomax::EthAddr eth);
  Bridging::IgmpSnooping::IgmpContextIntfCounter* intfCounterLookup(Lomax::IntfId intf);
  // Makes or takes down the querier's packet path as its configuration and the core say.
  void doQuerierPacketPath();
  void rxForbiddenIs(Lomax::IntfId intf);
  Kiv::Ptr<EthernetGroup> ethernetGroupIs(Lomax::EthAddr eth);
  // The VLAN's own querier values, or null.
  const Bridging::IgmpSnooping::VlanQuerierConfig* vlanQuerierConfig() const;
  // The global querier values, or their defaults.
  const Bridging::IgmpSnooping::GlobalQuerierConfig& globalQuerierConfig() const;
  uint32_t robustness() const;

  Kiv::Ptr<TopoVlan const> topoVlan_;
  Bridging::VlanIdOrNone primaryVlan_;
  Kiv::Ptr<VlanConfig const> igmpVlanConfig_;
  Kiv::Ptr<VlanStatus> igmpVlanStatus_;
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig> igmpProtocolConfig_;
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus> igmpProtocolStatus_;
  Kiv::Ptr<IgmpContextStatus> coreStatus_;
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir> igmpCounterDir_;
  GlueSmBase* glueSm_;
  Kiv::Ptr<Bridging::IgmpSnooping::CoreSm> coreSm_;
  Kiv::Ptr<SoftFlooder> flooder_;
  // The interfaces' counters by intern index: the packet path looks them up by name once.
  std::vector<Kiv::Ptr<Bridging::IgmpSnooping::IgmpContextIntfCounter>> intfCounters_;
  // By intern index: the topology port may not receive (its direction, followed by the port's reactor).
  std::vector<uint8_t> rxForbidden_;
  Kiv::HashMap2018<Lomax::EthAddr, Kiv::Ptr<EthernetGroup>> ethernetGroup_;
  Kiv::HashMap2018<Lomax::IntfId, Kiv::Ptr<InterfaceStatus>> routerInterface_;
  std::vector<Lomax::IntfId> routerPorts_;
  Kiv::SmMap<Lomax::IpAddr, RouterSm> addrIntfMap_;
  Kiv::HashMap2018<Lomax::IpAddr, Kiv::Ptr<KivIgmpGroup>> igmpGroup_;
  Kiv::HashMap2018<Lomax::IpAddr, Kiv::Ptr<KivStaticGroup>> staticGroup_;
  Kiv::HashMap2018<Lomax::IntfId, Kiv::Ptr<KivGlueTopoPort>> glueTopoPort_;
  Kiv::Ptr<KivIgmpVlanConfig> kivIgmpVlanConfig_;
  Kiv::Ptr<KivVlanQuerierConfig> kivVlanQuerierConfig_;
  Kiv::Ptr<KivCoreStatus> kivCoreStatus_;
  Kiv::Ptr<KivTopoVlan> kivTopoVlan_;
  IgmpSnoopingState state_ = Bridging::IgmpSnooping::snoopingStateDefault;
  bool initialized_ = false;
};

// Builds a VLAN's glue and runs its start: the flooder, the static entries, and the core if snooping
// is on for the VLAN. The caller then enters it in GlueSm's VLANs and calls handleVlanIntf().
Kiv::Ptr<GlueVlanSm> glueVlanSmFactory(
    Kiv::Ptr<Topology::Library::Vlan::TopoVlan const> topoVlan, Bridging::VlanIdOrNone primaryVlan,
    Kiv::Ptr<Bridging::IgmpSnooping::VlanConfig const> igmpVlanConfig,
    Kiv::Ptr<Bridging::IgmpSnooping::VlanStatus> igmpVlanStatus,
    Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig> igmpProtocolConfig,
    Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus> igmpProtocolStatus,
    Kiv::Ptr<Bridging::IgmpSnooping::IgmpContextStatus> coreStatus,
    Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir> igmpCounterDir, GlueSmBase* glueSm);

}  // namespace IgmpShim
