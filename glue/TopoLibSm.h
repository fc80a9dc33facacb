// The topology library: which VLANs the switch has, which ports each has and whether each port is
// blocked, computed in one place from the bridge's configuration and the interface status. The
// platform fills only those two; the VLAN glue reads the result.
//
// A VLAN of the bridge's configuration is a topology VLAN. Its ports are the members that are switch
// ports (they have a SwitchIntfConfig) and exist as interfaces; a port is blocked while its link is
// down or the spanning tree keeps it from forwarding. Tagging stays in the bridge's configuration,
// where the multiplexers read it.
//
// Changes are gathered and applied on a later turn of the loop, VLAN by VLAN and port by port: the
// library never replaces its VLANs as a whole, so readers always hear of one VLAN at a time. initDone
// turns true with the first application.
#pragma once

#include <map>
#include <memory>
#include <set>

#include "glue/BridgingConfig.h"
#include "glue/EthIntfStatusDir.h"
#include "glue/TopoVlan.h"
#include "kernel/Clock.h"
#include "kernel/StateMachine.h"

namespace Topology::Library {

#define LIB_STATE_ATTRS(X) X(scalar, initDone, InitDone, bool, false)

class LibState : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(LibState, LIB_STATE_ATTRS)
};

namespace Vlan {

#define LIB_VLAN_STATE_ATTRS(X)                               \
  X(entities, topoVlan, TopoVlan, Bridging::VlanId, TopoVlan) \
  X(values, forceEnabledPorts, ForceEnabledPorts, Lomax::IntfId, bool, false)

// The VLANs of the topology, and the ports on which software snooping is forced.
class LibVlanState : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(LibVlanState, LIB_VLAN_STATE_ATTRS)
};

}  // namespace Vlan

class LibSm : public Kiv::StateMachine {
 public:
  LibSm(Kiv::Ptr<Bridging::Config const> bridgingConfig,
        Kiv::Ptr<Interface::EthIntfStatusDir const> intfStatusDir, Kiv::Ptr<LibState> libState,
        Kiv::Ptr<Vlan::LibVlanState> libVlanState, Kiv::Ptr<Kiv::Clock> clock);
  ~LibSm() override;

  const Kiv::Ptr<LibState>& libState() const { return libState_; }
  const Kiv::Ptr<Vlan::LibVlanState>& libVlanState() const { return libVlanState_; }

  // Whether the platform has read its sources in full. initDone waits for it: a library that said
  // it was complete over a half-read switch would have the VLANs it lacks taken for gone, and their
  // status removed. True unless the platform says otherwise before the first turn.
  bool sourcesReady() const { return sourcesReady_; }
  void sourcesReadyIs(bool on);

  // Applies what has changed now, instead of on the next turn.
  void handleTopo();
  // Recomputes everything, as if all had changed.
  void handleTopoAll();

 private:
  class KivBridgingConfig;
  class KivBridgeVlan;
  class KivIntfStatusDir;
  class KivIntfStatus;
  class KivDefer;

  void handleVlanConfig(Bridging::VlanId vlan);
  void handleSwitchIntf(Lomax::IntfId intf);
  void handleIntfStatus(Lomax::IntfId intf);
  void doVlanDirty(Bridging::VlanId vlan);
  void doIntfDirty(Lomax::IntfId intf);
  void doDefer();
  // Brings one VLAN's ports in step; all of them, or only intf's.
  void doUpdateVlan(Bridging::VlanId vlan);
  void doUpdatePort(const Kiv::Ptr<Vlan::TopoVlan>& topoVlan, Lomax::IntfId intf);

  Kiv::Ptr<Bridging::Config const> bridgingConfig_;
  Kiv::Ptr<Interface::EthIntfStatusDir const> intfStatusDir_;
  Kiv::Ptr<LibState> libState_;
  Kiv::Ptr<Vlan::LibVlanState> libVlanState_;
  Kiv::Ptr<Kiv::Clock> clock_;
  std::unique_ptr<KivBridgingConfig> kivBridgingConfig_;
  std::unique_ptr<KivIntfStatusDir> kivIntfStatusDir_;
  std::map<Bridging::VlanId, std::unique_ptr<KivBridgeVlan>> kivBridgeVlan_;
  std::map<Lomax::IntfId, std::unique_ptr<KivIntfStatus>> kivIntfStatus_;
  std::unique_ptr<KivDefer> kivDefer_;
  // What to look at on the next application; an interface touches every VLAN it is a member of.
  std::set<Bridging::VlanId> dirtyVlans_;
  std::set<Lomax::IntfId> dirtyIntfs_;
  bool sourcesReady_ = true;
};

}  // namespace Topology::Library
