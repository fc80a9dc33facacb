// What the VLAN glue needs of the agent-wide glue: the shared configuration and hooks, the multiplexer
// directory, the VLANs by number and the topology library's VLANs, and the one decision of a port's
// presence in a VLAN (handleVlanIntf). GlueSm derives from it and fills in the lookups.
#pragma once

#include <utility>
#include <vector>

#include "core/IntfStateControl.h"
#include "glue/FloodControl.h"
#include "glue/GlueVlanMultiplexerDir.h"
#include "glue/TopoVlan.h"
#include "kernel/StateMachine.h"
#include "kernel/TimerWheel.h"
#include "model/Config.h"
#include "model/IgmpProfile.h"
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
