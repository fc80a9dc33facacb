// A switch for the agent-wide glue on the virtual clock: the platform's entities and services filled
// in memory (bridge configuration, interface status, the topology library, packet access), and a
// GlueSm over them. Shared by the scenario tests and the bring-up benchmark.
#pragma once

#include <string>

#include "glue/GlueSm.h"
#include "glue/GlueVlanMultiplexerDir.h"
#include "glue/GlueVlanSm.h"
#include "glue/IgmpVlanManager.h"
#include "glue/MemoryPam.h"
#include "kernel/ActivityManager.h"

namespace TestGlue {

inline Lomax::IntfId port(int i) { return Lomax::IntfId(Kiv::String("Ethernet" + std::to_string(i))); }

// Records the settings; opens nothing.
class FakeEthDevPamManager : public Interface::EthDevPamManager {
 public:
  PamCounters intfPamCounters(Lomax::IntfId) const override { return {}; }
  int enables = 0;

 private:
  void handleEnabled() override { enables += enabled(); }
};

struct GlueAgentLab {
  using VlanId = Bridging::VlanId;
  using GlueSm = IgmpShim::GlueSm;

  // The bridge: ports 1..ports in every VLAN of first..last, untagged in the first, links up.
  void switchIs(int first, int last, int ports) {
    for (int p = 1; p <= ports; ++p) {
      bridgingConfig->switchIntfConfigIs(port(p))->defaultVlanIs(Bridging::VlanIdOrNone(uint16_t(first)));
      linkIs(p, true);
    }
    for (int v = first; v <= last; ++v) {
      auto vc = bridgingConfig->vlanConfigIs(VlanId(uint16_t(v)));
      for (int p = 1; p <= ports; ++p) vc->intfIs(port(p))->taggedIs(v != first);
    }
  }
  void linkIs(int p, bool up) {
    ethIntfStatusDir->intfStatusIs(port(p))->linkUpIs(up);
    deviceIntfStatusDir->intfIs(port(p), true);
  }
  // Status that survived a restart of the agent for this VLAN.
  void survivingStatusIs(int vlan) {
    const VlanId v(static_cast<uint16_t>(vlan));
    coreStatusDir->contextStatusIs(v);
    coreConfigDir->contextConfigIs(v);
    status->vlanStatusIs(v)->useVlanFloodsetIs(true);
  }
  // The packet access of a port appears, as the platform's manager would make it.
  Kiv::Ptr<Lomax::MemoryPam> pamIs(int p) {
    Kiv::Ptr<Lomax::MemoryPam> pam = Kiv::make<Lomax::MemoryPam>();
    ethDevPamCollection->intfPamIs(port(p), pam);
    return pam;
  }

  GlueSm::Services services() {
    GlueSm::Services s;
    s.config = config;
    s.swForceConfig = swForceConfig;
    s.counterConfig = counterConfig;
    s.status = status;
    s.coreConfigDir = coreConfigDir;
    s.coreStatusDir = coreStatusDir;
    s.vlanInfo = vlanInfo;
    s.bridgingConfig = bridgingConfig;
    s.hwConfig = hwConfig;
    s.profileConfig = profileConfig;
    s.deviceIntfStatusDir = deviceIntfStatusDir;
    s.bridgeIntfDir = bridgeIntfDir;
    s.pamDesiredIntfDir = pamDesiredIntfDir;
    s.ethDevPamCollection = ethDevPamCollection;
    s.ethDevPamManager = ethDevPamManager;
    s.glueVlanMultiplexerDir = glueVlanMultiplexerDir;
    s.topoLib = topoLib;
    s.topoVlanLib = topoVlanLib;
    s.mountedCounterDir = mountedCounterDir;
    s.counterDir = counterDir;
    s.timerWheel = timerWheel;
    return s;
  }

  // Builds the agent's glue as the agent does: the VLAN manager and the topology library first.
  template <class Sm = GlueSm>
  void start() {
    vlanInfo = IgmpShim::igmpVlanManagerFactory("BridgingVlanConfigMgr", bridgingConfig);
    topoLibSm = Kiv::Ptr<Topology::Library::LibSm>(
        new Topology::Library::LibSm(bridgingConfig, ethIntfStatusDir, topoLib, topoVlanLib, clock));
    glueSm = Kiv::make<Sm>("IgmpSnoopingShim", services());
  }
  // The same with some services replaced; vlanInfo is the lab's own.
  void start(GlueSm::Services s) {
    vlanInfo = IgmpShim::igmpVlanManagerFactory("BridgingVlanConfigMgr", bridgingConfig);
    topoLibSm = Kiv::Ptr<Topology::Library::LibSm>(
        new Topology::Library::LibSm(bridgingConfig, ethIntfStatusDir, topoLib, topoVlanLib, clock));
    s.vlanInfo = vlanInfo;
    glueSm = Kiv::make<GlueSm>("IgmpSnoopingShim", s);
  }
  // Runs what is due now: deferred topology changes, timers.
  void turn() { Kiv::activityManager()->advanceBy(0); }
  Kiv::Seconds now() const { return clock->now(); }

  Kiv::Ptr<Kiv::Clock> clock = Kiv::ActivityManagerConfig::clock();
  Kiv::Ptr<Bez::TimerWheel> timerWheel = Bez::TimerWheelIs(clock, 100, 108200, true, 1024);
  Kiv::Ptr<Bridging::IgmpSnooping::Config> config = Kiv::make<Bridging::IgmpSnooping::Config>("config");
  Kiv::Ptr<Bridging::IgmpSnooping::SwForceConfig> swForceConfig =
      Kiv::Ptr<Bridging::IgmpSnooping::SwForceConfig>(
          new Bridging::IgmpSnooping::SwForceConfig("swForceConfig"));
  Kiv::Ptr<Bridging::IgmpSnooping::CounterConfig> counterConfig =
      Kiv::Ptr<Bridging::IgmpSnooping::CounterConfig>(
          new Bridging::IgmpSnooping::CounterConfig("counterConfig"));
  Kiv::Ptr<Bridging::IgmpSnooping::Status> status = Kiv::make<Bridging::IgmpSnooping::Status>("status");
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig> coreConfigDir =
      Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig>(
          new Bridging::IgmpSnooping::IgmpProtocolConfig("protocolConfig"));
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus> coreStatusDir =
      Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus>(
          new Bridging::IgmpSnooping::IgmpProtocolStatus("protocolStatus"));
  Kiv::Ptr<Bridging::Config> bridgingConfig = Kiv::make<Bridging::Config>("bridgingConfig");
  Kiv::Ptr<Bridging::IgmpSnooping::HwConfig> hwConfig =
      Kiv::make<Bridging::IgmpSnooping::HwConfig>("hwConfig");
  Kiv::Ptr<IgmpProfile::ProfileConfig> profileConfig = Kiv::make<IgmpProfile::ProfileConfig>("profileConfig");
  Kiv::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir =
      Kiv::make<Interface::EthIntfStatusDir>("ethIntfStatusDir");
  Kiv::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir =
      Kiv::make<Interface::DeviceIntfStatusDir>("disd");
  Kiv::Ptr<Interface::PamDesiredIntfDir> bridgeIntfDir = Kiv::make<Interface::PamDesiredIntfDir>("bid");
  Kiv::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir = Kiv::make<Interface::PamDesiredIntfDir>("pdid");
  Kiv::Ptr<Interface::EthDevPamCollection> ethDevPamCollection =
      Kiv::make<Interface::EthDevPamCollection>("edpc");
  Kiv::Ptr<FakeEthDevPamManager> ethDevPamManager = Kiv::make<FakeEthDevPamManager>();
  Kiv::Ptr<IgmpShim::GlueVlanMultiplexerDir> glueVlanMultiplexerDir =
      Kiv::Ptr<IgmpShim::GlueVlanMultiplexerDir>(
          new IgmpShim::GlueVlanMultiplexerDir("vpmd", bridgingConfig));
  Kiv::Ptr<Topology::Library::LibState> topoLib = Kiv::make<Topology::Library::LibState>("topoLibState");
  Kiv::Ptr<Topology::Library::Vlan::LibVlanState> topoVlanLib =
      Kiv::Ptr<Topology::Library::Vlan::LibVlanState>(
          new Topology::Library::Vlan::LibVlanState("topoLibVlan"));
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir> mountedCounterDir =
      Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir>(
          new Bridging::IgmpSnooping::IgmpCounterDir("counterDir"));
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir> counterDir =
      Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir>(
          new Bridging::IgmpSnooping::IgmpCounterDir("localCounterDir"));
  Kiv::Ptr<IgmpShim::IgmpVlanManager> vlanInfo;
  Kiv::Ptr<Topology::Library::LibSm> topoLibSm;
  Kiv::Ptr<GlueSm> glueSm;
};

}  // namespace TestGlue
