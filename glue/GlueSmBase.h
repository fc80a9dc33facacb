// What the VLAN glue needs of the agent-wide glue: the shared configuration and hooks, the multiplexer
// directory, the VLANs by number and the topology library's VLANs, and the one decision of a port's
// presence in a VLAN (handleVlanIntf). GlueSm derives from it and fills in the lookups.
#pragma once

#include <utility>
#include <vector>

#include "core/IntfStateControl.h"
#include "glue/FloodControl.h"
#include "glue/GlueVlanMultiplexerDir.h"
#include "glue/QuerierConfig.h"
#include "glue/TopoVlan.h"
#include "kernel/StateMachine.h"
#include "kernel/TimerWheel.h"
#include "model/Config.h"
#include "model/IgmpProfile.h"
#include "model/IgmpProtocolConfig.h"
#include "model/Status.h"

namespace IgmpShim {

class GlueVlanSm;

class GlueSmBase : public Kiv::StateMachine {
 public:
  using FloodControlEntry = std::pair<Lomax::IntfId, Kiv::Ptr<IgmpSnooping::FloodControl>>;

  ~GlueSmBase() override;

  // The VLAN glue of vlan, or null.
  virtual GlueVlanSm* vlanSm(Bridging::VlanId vlan) const = 0;
  // The topology library's VLAN, or null when the library has no such VLAN.
  virtual Kiv::Ptr<Topology::Library::Vlan::TopoVlan const> topoVlan(Bridging::VlanId vlan) const = 0;
  // Secondary VLANs of a primary whose core has just been made take it up (private VLANs).
  virtual void doInitializeSecondaryVlanSms(Bridging::VlanId) {}

  // Brings intf into vlan or out of it, in the core, the flooder and the port's multiplexer.
  void handleVlanIntf(Bridging::VlanId vlan, Lomax::IntfId intf);

  // The L2 querier and the proxy. Whether the proxy serves a VLAN is the agent-wide glue's to say;
  // without a proxy it serves none.
  virtual bool isProxyConfigured(Bridging::VlanId) const { return false; }
  // The VLAN's own querier setting (0 follows the global one, 1 is on, anything else off), or the
  // global one.
  bool isL2QuerierConfigured(Bridging::VlanId vlan) const;
  // Writes whether the VLAN's querier runs, and in which mode, into its configuration if it has one.
  void setupQuerier(Bridging::VlanId vlan);
  // The proxy's setting into the VLAN's core configuration, then the querier's.
  void handleProxyVlanConfig(Bridging::VlanId vlan);

  const Kiv::Ptr<Bridging::IgmpSnooping::Config const>& config() const { return config_; }
  void configIs(Kiv::Ptr<Bridging::IgmpSnooping::Config const> c) { config_ = std::move(c); }
  const Kiv::Ptr<Bridging::IgmpSnooping::HwConfig const>& hwConfig() const { return hwConfig_; }
  void hwConfigIs(Kiv::Ptr<Bridging::IgmpSnooping::HwConfig const> c) { hwConfig_ = std::move(c); }
  // The published status: one VlanStatus per VLAN in which snooping runs.
  const Kiv::Ptr<Bridging::IgmpSnooping::Status>& status() const { return status_; }
  void statusIs(Kiv::Ptr<Bridging::IgmpSnooping::Status> s) { status_ = std::move(s); }
  const Kiv::Ptr<GlueVlanMultiplexerDir>& glueVlanMultiplexerDir() const { return glueVlanMultiplexerDir_; }
  void glueVlanMultiplexerDirIs(Kiv::Ptr<GlueVlanMultiplexerDir> d) {
    glueVlanMultiplexerDir_ = std::move(d);
  }
  // The VLANs' core configuration, as the VLAN glue writes it.
  const Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig>& coreConfigDir() const { return coreConfigDir_; }
  void coreConfigDirIs(Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig> d) {
    coreConfigDir_ = std::move(d);
  }
  // The L2 querier's configuration and status by VLAN, and its packet path to the switch's own stack.
  const Kiv::Ptr<Igmp::QuerierConfigDir>& querierConfigDir() const { return querierConfigDir_; }
  void querierConfigDirIs(Kiv::Ptr<Igmp::QuerierConfigDir> d) { querierConfigDir_ = std::move(d); }
  const Kiv::Ptr<Igmp::QuerierStatusDir>& querierStatusDir() const { return querierStatusDir_; }
  void querierStatusDirIs(Kiv::Ptr<Igmp::QuerierStatusDir> d) { querierStatusDir_ = std::move(d); }
  const Kiv::Ptr<Lomax::VlanPamMultiplexer>& l2QuerierMultiplexer() const { return l2QuerierMultiplexer_; }
  void l2QuerierMultiplexerIs(Kiv::Ptr<Lomax::VlanPamMultiplexer> m) { l2QuerierMultiplexer_ = std::move(m); }
  const Kiv::Ptr<IgmpProfile::ProfileConfig const>& profileConfig() const { return profileConfig_; }
  void profileConfigIs(Kiv::Ptr<IgmpProfile::ProfileConfig const> p) { profileConfig_ = std::move(p); }
  const Kiv::Ptr<Bez::TimerWheel const>& timerWheel() const { return timerWheel_; }
  const Kiv::Ptr<Bez::TimerWheel const>& timerWheel2() const { return timerWheel2_; }
  void timerWheelIs(Kiv::Ptr<Bez::TimerWheel const> w, Kiv::Ptr<Bez::TimerWheel const> w2) {
    timerWheel_ = std::move(w);
    timerWheel2_ = std::move(w2);
  }
  const Kiv::Ptr<IgmpSnooping::IntfStateControls>& intfStateControl() const { return intfStateControl_; }
  void intfStateControlIs(Kiv::Ptr<IgmpSnooping::IntfStateControls> c) { intfStateControl_ = std::move(c); }

  // False from a restart until the rebuild of all VLANs is done: the VLANs then follow their status
  // without publishing, so that what a restart found published stands until the sweep.
  bool smStateRebuilt() const { return smStateRebuilt_; }
  void smStateRebuiltIs(bool on) { smStateRebuilt_ = on; }
  // On while a peer switch shares the snooping state.
  bool snoopingSync() const { return snoopingSync_; }

  // The platform's flood hooks, asked in the order of their interfaces.
  const std::vector<FloodControlEntry>& floodControl() const { return floodControl_; }
  void floodControlIs(Lomax::IntfId intf, Kiv::Ptr<IgmpSnooping::FloodControl> hook);
  void floodControlDel(Lomax::IntfId intf);

 protected:
  GlueSmBase() = default;

 private:
  Kiv::Ptr<Bridging::IgmpSnooping::Config const> config_;
  Kiv::Ptr<Bridging::IgmpSnooping::HwConfig const> hwConfig_;
  Kiv::Ptr<Bridging::IgmpSnooping::Status> status_;
  Kiv::Ptr<GlueVlanMultiplexerDir> glueVlanMultiplexerDir_;
  Kiv::Ptr<IgmpProfile::ProfileConfig const> profileConfig_;
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig> coreConfigDir_;
  Kiv::Ptr<Igmp::QuerierConfigDir> querierConfigDir_;
  Kiv::Ptr<Igmp::QuerierStatusDir> querierStatusDir_;
  Kiv::Ptr<Lomax::VlanPamMultiplexer> l2QuerierMultiplexer_;
  Kiv::Ptr<Bez::TimerWheel const> timerWheel_;
  Kiv::Ptr<Bez::TimerWheel const> timerWheel2_;
  Kiv::Ptr<IgmpSnooping::IntfStateControls> intfStateControl_;
  std::vector<FloodControlEntry> floodControl_;
  bool smStateRebuilt_ = false;
  bool snoopingSync_ = false;
};

// True when the topology library has vlan and that VLAN has a port intf.
bool isActiveVlanPort(const GlueSmBase* glueSm, Bridging::VlanId vlan, Lomax::IntfId intf);

}  // namespace IgmpShim
