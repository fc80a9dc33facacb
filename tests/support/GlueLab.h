// A switch for the VLAN glue in memory: ports with memory packet access behind their multiplexers,
// VLANs of the test's making in the topology and the bridge's configuration, the agent-wide part that
// the glue reads, and both timer wheels on the virtual clock. Frames go in as on the wire.
#pragma once

#include <functional>
#include <initializer_list>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "glue/GlueSmBase.h"
#include "glue/GlueVlanSm.h"
#include "glue/MemoryPam.h"
#include "glue/PamConnector.h"
#include "kernel/ActivityManager.h"
#include "kernel/ChangeSink.h"
#include "kernel/TimerWheel.h"
#include "model/IgmpProtocolConfig.h"
#include "net/FrameBuilder.h"
#include "net/IpToEthGroupMap.h"
#include "tests/support/Addr.h"

namespace TestSupport {

inline Lomax::IntfId intfId(const char* name) { return Lomax::IntfId(Kiv::String(name)); }
// Frames of a host at addr, tagged with vlan unless it is 0.
inline Lomax::FrameBuilder host(const char* addr, uint16_t vlan = 0) {
  return Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0x0000, 0x0001), ipAddr(addr),
                             vlan ? Bridging::VlanIdOrNone(vlan) : Bridging::VlanIdOrNone());
}

// Watches every write to the published status and keeps, after each, what one VLAN publishes: whether
// it floods (a VLAN without a VlanStatus floods) and its (Ethernet group, port) pairs. Against the pairs
// that the VLAN's members want at that moment it notes each write that leaves a wanted pair without
// traffic: a published pair withdrawn while the VLAN does not flood, and flooding switched off while a
// wanted pair is not yet published.
class PublishRecorder : public Kiv::ChangeSink {
 public:
  using Pairs = std::set<std::pair<Lomax::EthAddr, Lomax::IntfId>>;
  struct Snapshot {
    bool flood = true;
    Pairs groups;
    std::set<Lomax::IntfId> routers;
  };

  PublishRecorder(Kiv::Ptr<Bridging::IgmpSnooping::Status> status, Bridging::VlanId vlan,
                  std::function<Pairs()> wanted)
      : status_(std::move(status)), vlan_(vlan), wanted_(std::move(wanted)) {
    last_ = snapshot();
    Kiv::changeSinkIs(*status_, this);
  }
  ~PublishRecorder() override { Kiv::changeSinkIs(*status_, nullptr); }

  void onChange(Kiv::Entity&, uint16_t, const void*) override { record(); }
  void onAttach(Kiv::Entity&) override { record(); }
  void onDetach(Kiv::Entity&) override {}

  const std::vector<std::string>& violations() const { return violations_; }
  size_t writes() const { return writes_; }
  const Snapshot& last() const { return last_; }

 private:
  Snapshot snapshot() const {
    Snapshot s;
    auto vs = status_->vlanStatus(vlan_);
    if (!vs) return s;
    s.flood = vs->useVlanFloodset();
    for (auto& g : vs->ethGroupIter()) {
      for (auto& i : g->groupIntfIter()) s.groups.emplace(g.key(), i.key());
    }
    for (auto& r : vs->routerIntfIter()) s.routers.insert(r.key());
    return s;
  }
  void record() {
    ++writes_;
    Snapshot now = snapshot();
    if (!now.flood) {
      const Pairs wanted = wanted_();
      for (auto& g : last_.groups) {
        if (!now.groups.count(g) && wanted.count(g))
          violations_.push_back("wanted group withdrawn while not flooding");
      }
      if (last_.flood) {
        for (auto& g : wanted) {
          if (!now.groups.count(g))
            violations_.push_back("flooding stopped before a wanted group was published");
        }
      }
    }
    last_ = std::move(now);
  }

  Kiv::Ptr<Bridging::IgmpSnooping::Status> status_;
  Bridging::VlanId vlan_;
  std::function<Pairs()> wanted_;
  Snapshot last_;
  std::vector<std::string> violations_;
  size_t writes_ = 0;
};

// The agent-wide part with its VLANs and topology kept by the test.
class TestGlueSm : public IgmpShim::GlueSmBase {
 public:
  IgmpShim::GlueVlanSm* vlanSm(Bridging::VlanId vlan) const override {
    auto* sm = vlans.find(vlan);
    return sm ? sm->ptr() : nullptr;
  }
  Kiv::Ptr<Topology::Library::Vlan::TopoVlan const> topoVlan(Bridging::VlanId vlan) const override {
    auto* t = topo.find(vlan);
    return t ? *t : nullptr;
  }
  bool isProxyConfigured(Bridging::VlanId) const override { return proxy; }
  Kiv::HashMap2018<Bridging::VlanId, Kiv::Ptr<IgmpShim::GlueVlanSm>> vlans;
  // The proxy in every VLAN, or in none.
  bool proxy = false;
  Kiv::HashMap2018<Bridging::VlanId, Kiv::Ptr<Topology::Library::Vlan::TopoVlan>> topo;
};

class GlueLab {
 public:
  struct Port {
    Kiv::Ptr<Lomax::MemoryPam> pam;
    Kiv::Ptr<IgmpShim::GlueVlanMultiplexer> mux;
  };
  // A port of a VLAN and whether it sends tagged.
  struct Member {
    const char* port;
    bool tagged;
  };

  explicit GlueLab(Kiv::Seconds start = 1000.0) : virtualTime_(start) {
    config->globalQuerierConfigIs("globalQuerierConfig");
    glueSm->configIs(config);
    glueSm->hwConfigIs(hwConfig);
    glueSm->statusIs(status);
    glueSm->glueVlanMultiplexerDirIs(dir);
    glueSm->profileConfigIs(profileConfig);
    glueSm->timerWheelIs(wheel, wheel2);
    glueSm->coreConfigDirIs(protocolConfig);
    glueSm->querierConfigDirIs(querierConfigDir);
    glueSm->l2QuerierMultiplexerIs(l2QuerierMultiplexer);
    glueSm->smStateRebuiltIs(true);
    // The switch's own stack behind "Switch", joined to the L2 querier's link as the agent joins them.
    switchMux->managerIs(dir.ptr());
    dir->multiplexerIs(switchMux);
  }
  ~GlueLab() {
    for (auto& v : glueSm->vlans.iter()) (*v.value())->kivDoZombieReactors(true);
    for (auto& p : ports) p.second.mux->vlanSmDelAll();
    switchMux->vlanSmDelAll();
    dir->multiplexerDelAll();
  }

  // A front-panel port; untagged frames on it belong to defaultVlan (0: dropped).
  Port& addPort(const char* name, uint16_t defaultVlan = 0) {
    const Lomax::IntfId intf{Kiv::String(name)};
    auto sic = bridgingConfig->switchIntfConfigIs(intf);
    sic->defaultVlanIs(Bridging::VlanIdOrNone(defaultVlan));
    Port& p = ports[name];
    p.pam = Kiv::make<Lomax::MemoryPam>();
    p.mux = Kiv::make<IgmpShim::GlueVlanMultiplexer>(intf, p.pam);
    p.mux->switchIntfConfigIs(sic);
    dir->multiplexerIs(p.mux);
    return p;
  }
  // A VLAN of these ports in the topology and the bridge, with its glue started.
  Kiv::Ptr<IgmpShim::GlueVlanSm> addVlan(uint16_t vid, std::initializer_list<Member> members) {
    const Bridging::VlanId vlan(vid);
    auto topo = Kiv::make<Topology::Library::Vlan::TopoVlan>(vlan);
    glueSm->topo.set(vlan, topo);
    auto bridgeVlan = bridgingConfig->vlanConfigIs(vlan);
    for (const Member& m : members) {
      const Lomax::IntfId intf{Kiv::String(m.port)};
      topo->portIs(intf);
      bridgeVlan->intfIs(intf)->taggedIs(m.tagged);
    }
    auto sm = IgmpShim::glueVlanSmFactory(topo, Bridging::VlanIdOrNone(), config->vlanConfig(vlan), nullptr,
                                          protocolConfig, protocolStatus, nullptr, counterDir, glueSm.ptr());
    glueSm->vlans.set(vlan, sm);
    sm->handleVlanIntf();
    // A VLAN made after the agent's bring-up starts at once, as GlueSm starts it.
    sm->handleSmStateInitialized();
    return sm;
  }
  // Adds or removes a port of a VLAN in the topology and the bridge.
  void vlanPortIs(uint16_t vid, const char* port, bool in, bool tagged = false) {
    const Bridging::VlanId vlan(vid);
    const Lomax::IntfId intf{Kiv::String(port)};
    auto topo = *glueSm->topo.find(vlan);
    auto bridgeVlan = bridgingConfig->vlanConfigIs(vlan);
    if (in) {
      bridgeVlan->intfIs(intf)->taggedIs(tagged);
      topo->portIs(intf);
    } else {
      topo->portDel(intf);
      bridgeVlan->intfDel(intf);
    }
  }
  Kiv::Ptr<Topology::Library::Vlan::Port> topoPort(uint16_t vid, const char* port) {
    return (*glueSm->topo.find(Bridging::VlanId(vid)))->port(Lomax::IntfId(Kiv::String(port)));
  }
  IgmpShim::GlueVlanSm* vlanSm(uint16_t vid) const { return glueSm->vlanSm(Bridging::VlanId(vid)); }
  // The VLAN's configuration, made on first use and given to its glue, as the agent-wide glue does.
  Kiv::Ptr<Bridging::IgmpSnooping::VlanConfig> vlanConfig(uint16_t vid) {
    auto c = config->vlanConfigIs(Bridging::VlanId(vid));
    if (auto* sm = vlanSm(vid)) sm->igmpVlanConfigIs(c);
    return c;
  }
  Kiv::Ptr<Bridging::IgmpSnooping::VlanStatus> vlanStatus(uint16_t vid) const {
    return status->vlanStatus(Bridging::VlanId(vid));
  }

  // Hands a frame to a port's packet source and lets the multiplexer read it.
  void rx(const char* port, Kiv::Ptr<Lomax::Pkt> frame) {
    Port& p = ports.at(port);
    p.pam->rxPktEnqueue(std::move(frame));
    p.pam->rxReady();
  }
  // The (Ethernet group, port) pairs that the members of a VLAN want.
  PublishRecorder::Pairs wanted(uint16_t vid) const {
    PublishRecorder::Pairs pairs;
    auto* sm = vlanSm(vid);
    if (!sm || !sm->coreStatus()) return pairs;
    for (auto& g : sm->coreStatus()->groupIter()) {
      for (auto& i : g->intfIter()) pairs.emplace(Bridging::IgmpSnooping::IpToEthGroupMap(g.key()), i.key());
    }
    return pairs;
  }
  Lomax::MemoryPam& pam(const char* port) { return *ports.at(port).pam; }
  // Forgets what every port has sent.
  void txClear() {
    for (auto& p : ports) p.second.pam->txClear();
  }
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpContextIntfCounter> counter(const char* port) const {
    return counterDir->intfCounter(Kiv::Name(port));
  }
  void advance(Kiv::Seconds dt) { Kiv::activityManager()->advanceBy(dt); }

 private:
  Kiv::VirtualTime virtualTime_;

 public:
  Kiv::Ptr<Bez::TimerWheel> wheel =
      Bez::TimerWheelIs(Kiv::ActivityManagerConfig::clock(), 100, 108200, true, 1024);
  Kiv::Ptr<Bez::TimerWheel> wheel2 =
      Bez::TimerWheelIs(Kiv::ActivityManagerConfig::clock(), 100, 108200, true, 1024);
  Kiv::Ptr<Bridging::IgmpSnooping::Config> config = Kiv::make<Bridging::IgmpSnooping::Config>("config");
  Kiv::Ptr<Bridging::IgmpSnooping::HwConfig> hwConfig =
      Kiv::make<Bridging::IgmpSnooping::HwConfig>("hwConfig");
  Kiv::Ptr<Bridging::IgmpSnooping::Status> status = Kiv::make<Bridging::IgmpSnooping::Status>("status");
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig> protocolConfig =
      Kiv::make<Bridging::IgmpSnooping::IgmpProtocolConfig>("protocolConfig");
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus> protocolStatus =
      Kiv::make<Bridging::IgmpSnooping::IgmpProtocolStatus>("protocolStatus");
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir> counterDir =
      Kiv::make<Bridging::IgmpSnooping::IgmpCounterDir>("counters");
  Kiv::Ptr<IgmpProfile::ProfileConfig> profileConfig = Kiv::make<IgmpProfile::ProfileConfig>("profiles");
  Kiv::Ptr<Bridging::Config> bridgingConfig = Kiv::make<Bridging::Config>("bridgingConfig");
  Kiv::Ptr<IgmpShim::GlueVlanMultiplexerDir> dir =
      Kiv::make<IgmpShim::GlueVlanMultiplexerDir>("glueVlanMultiplexerDir", bridgingConfig);
  Kiv::Ptr<TestGlueSm> glueSm = Kiv::make<TestGlueSm>();
  Kiv::Ptr<Igmp::QuerierConfigDir> querierConfigDir = Kiv::make<Igmp::QuerierConfigDir>("querierConfigDir");
  Kiv::Ptr<Lomax::PamConnector> switchIntfPamConnector = Kiv::make<Lomax::PamConnector>();
  Kiv::Ptr<Lomax::VlanPamMultiplexer> l2QuerierMultiplexer = Kiv::make<Lomax::VlanPamMultiplexer>(
      Lomax::IntfId(Kiv::String("l2QuerierLink")), switchIntfPamConnector->pam1());
  Kiv::Ptr<IgmpShim::VirtualIntfGlueVlanMultiplexer> switchMux =
      Kiv::make<IgmpShim::VirtualIntfGlueVlanMultiplexer>(Lomax::switchIntfId(),
                                                          switchIntfPamConnector->pam0());
  std::map<std::string, Port> ports;
};

}  // namespace TestSupport
