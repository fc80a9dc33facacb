// The agent-wide glue: the one machine that sees the whole switch.
//
// What it holds: one GlueVlanSm per VLAN of the topology library (vlanSm, by VLAN), the multiplexer of
// every device interface that has packet access, and the local counter directory in which the VLANs
// count. None of it needs saving: the VLANs rebuild themselves from the protocol status, which
// survives a restart.
//
// How it starts: the constructor makes its reactors and calls handleInitialized, which sets up packet
// access (the interface filters and the manager's settings) and the multiplexers. Then it waits for the
// topology library's initDone and brings all VLANs up in two sliced passes of at most
// vlanSmInitQuantum of work each, with vlanSmInitPause between slices so the loop serves packets and
// timers: the first pass creates the VLANs (IgmpVlanManager::handleCombinedVlanConfigs), removes the
// status of VLANs that no longer exist, and gives every VLAN its restored state and its ports' blocked
// state; the second switches each VLAN on. A walk resumes at a bookmark, a VLAN number; 1 means none.
//
// How changes flow: the library reports VLANs one at a time (onTopoVlan) and the VLAN manager creates,
// updates or removes their machines; global settings fan out to every VLAN; switching snooping off or
// on globally is a sliced walk of its own; a device interface's packet access coming or going makes or
// removes its multiplexer, its counters and its query spoofers; a counter update request copies the
// local counters to the shared directory.
#pragma once

#include <memory>

#include "glue/EthBridgeIntfFilter.h"
#include "glue/EthDevPamCollection.h"
#include "glue/EthDevPamManager.h"
#include "glue/EthIntfStatusDir.h"
#include "glue/GlueIntfSm.h"
#include "glue/GlueSmBase.h"
#include "glue/LocalIntfFilter.h"
#include "glue/PamDesiredIntfDir.h"
#include "glue/TopoLibSm.h"
#include "kernel/HashMap.h"
#include "model/Config.h"
#include "model/IgmpContextStatus.h"
#include "model/IgmpCounterDir.h"
#include "model/IgmpProtocolConfig.h"
#include "model/Status.h"

namespace IgmpShim {

class GlueVlanSm;
class IgmpVlanManager;

class GlueSm : public GlueSmBase {
 public:
  using VlanId = Bridging::VlanId;
  static constexpr Kiv::Seconds vlanSmInitQuantum = 1.0;
  static constexpr Kiv::Seconds stateUpdateQuantum = 1.0;
  // The pause between two slices of a walk.
  static constexpr Kiv::Seconds vlanSmInitPause = 0.1;
  // The bookmark that means no walk is in progress.
  static constexpr uint16_t noBookmark = 1;
  // The settings of packet access.
  static constexpr uint32_t maxRxPktData = 10000;
  static constexpr uint32_t sockRcvBuf = 8388608;

  // The platform's services, as the agent hands them over.
  struct Services {
    Kiv::Ptr<Bridging::IgmpSnooping::Config const> config;
    Kiv::Ptr<Bridging::IgmpSnooping::SwForceConfig const> swForceConfig;
    Kiv::Ptr<Bridging::IgmpSnooping::CounterConfig const> counterConfig;
    Kiv::Ptr<Bridging::IgmpSnooping::Status> status;
    Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig> coreConfigDir;
    Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus> coreStatusDir;
    Kiv::Ptr<IgmpVlanManager> vlanInfo;
    Kiv::Ptr<Bridging::Config const> bridgingConfig;
    Kiv::Ptr<Bridging::IgmpSnooping::HwConfig const> hwConfig;
    Kiv::Ptr<IgmpProfile::ProfileConfig const> profileConfig;
    Kiv::Ptr<Interface::DeviceIntfStatusDir const> deviceIntfStatusDir;
    Kiv::Ptr<Interface::PamDesiredIntfDir> bridgeIntfDir;
    Kiv::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir;
    Kiv::Ptr<Interface::EthDevPamCollection> ethDevPamCollection;
    // Made by the platform over pamDesiredIntfDir and ethDevPamCollection; the glue writes its settings.
    Kiv::Ptr<Interface::EthDevPamManager> ethDevPamManager;
    Kiv::Ptr<GlueVlanMultiplexerDir> glueVlanMultiplexerDir;
    Kiv::Ptr<Topology::Library::LibState const> topoLib;
    Kiv::Ptr<Topology::Library::Vlan::LibVlanState> topoVlanLib;
    Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir> mountedCounterDir;
    Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir> counterDir;
    Kiv::Ptr<Bez::TimerWheel const> timerWheel;
  };

  GlueSm(const Kiv::Name& name, const Services& services);
  ~GlueSm() override;

  const Kiv::Name& name() const { return name_; }
  const Services& services() const { return s_; }
  bool initialized() const { return initialized_; }
  bool vlanSmInitialized() const { return vlanSmInitialized_; }
  uint16_t vlanSmInitBookmark() const { return vlanSmInitBookmark_; }
  uint16_t stateUpdateBookmark() const { return stateUpdateBookmark_; }

  GlueVlanSm* vlanSm(VlanId vlan) const override;
  size_t vlanSmSize() const { return vlanSm_.size(); }
  auto vlanSmIter() const { return vlanSm_.iter(); }
  Kiv::Ptr<Topology::Library::Vlan::TopoVlan const> topoVlan(VlanId vlan) const override;

  // The VLAN lifecycle.
  void vlanSmInitialization();
  void handleLedraState();
  void doCreateGlueVlanSm(VlanId vlan);
  // Takes a VLAN's machine away: its core first, so that what it published is withdrawn in order.
  void doDeleteGlueVlanSm(VlanId vlan);
  void doDeleteAndMaybeCreateGlueVlanSm(VlanId vlan);

  // Global configuration.
  void handleIgmpVlanConfig(VlanId vlan);
  void handleIgmpVlanConfig();
  void handleIgmpSnoopingEnabled();
  void doIgmpSnoopingEnabledReview();
  void handleRobustness();
  void handleRestartQueryInterval();
  void handleImmediateLeave();
  void handleReportFloodingEnabled();
  void handleQuerierQueryInterval();
  void handleSwitchPort(Lomax::IntfId intf);
  void handleSwitchPort();
  void handleForceEnabledPort(Lomax::IntfId intf);
  void handleForceEnabledPort();
  void handleOneVlanConfig();
  // Keeps a GlueIntfSm and the core's configuration of the interface in step with its configuration.
  void handleIntfConfig(Lomax::IntfId intf);
  void handleIntfConfig();
  GlueIntfSm* intfSm(Lomax::IntfId intf) const;

  // Counters and device packet access.
  void handleCounterUpdateRequest();
  void handleDevicePam(Lomax::IntfId intf);
  void handleDevicePam();

 private:
  class KivConfig;
  class KivQuerierConfig;
  class KivSwForceConfig;
  class KivCounterConfig;
  class KivEthDevPamCollection;
  class KivTopoLib;
  class KivTopoVlanLib;
  class KivStateUpdateTimer;
  class KivVlanSmInitTimer;

  void handleInitialized();
  // One slice of a walk over vlanSm from its bookmark; false when it stopped at the deadline, with the
  // bookmark and the timer set for the next slice.
  template <class Fn>
  bool doSlicedWalk(uint16_t& bookmark, Kiv::Seconds deadline, Bez::TimerWheel::NotifieeConst& timer,
                    Fn&& fn);
  template <class Fn>
  void doForEachVlanSm(Fn&& fn);
  Kiv::Seconds now() const;

  Kiv::Name name_;
  Services s_;
  Kiv::HashMap2018<VlanId, Kiv::Ptr<GlueVlanSm>> vlanSm_;
  Kiv::HashMap2018<Lomax::IntfId, Kiv::Ptr<GlueIntfSm>> intfSm_;
  Kiv::Ptr<EthBridgeIntfFilter> ethBridgeIntfFilter_;
  Kiv::Ptr<LocalIntfFilter> localIntfFilter_;
  uint16_t stateUpdateBookmark_ = noBookmark;
  uint16_t vlanSmInitBookmark_ = noBookmark;
  bool vlanSmInitialized_ = false;
  bool initialized_ = false;
  std::unique_ptr<KivConfig> kivConfig_;
  std::unique_ptr<KivQuerierConfig> kivQuerierConfig_;
  std::unique_ptr<KivSwForceConfig> kivSwForceConfig_;
  std::unique_ptr<KivCounterConfig> kivCounterConfig_;
  std::unique_ptr<KivEthDevPamCollection> kivEthDevPamCollection_;
  std::unique_ptr<KivTopoLib> kivTopoLib_;
  std::unique_ptr<KivTopoVlanLib> kivTopoVlanLib_;
  std::unique_ptr<KivStateUpdateTimer> stateUpdateTimer_;
  std::unique_ptr<KivVlanSmInitTimer> vlanSmInitTimer_;
};

Kiv::Ptr<GlueSm> glueSmFactory(const Kiv::Name& name, const GlueSm::Services& services);

}  // namespace IgmpShim
