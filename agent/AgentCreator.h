// The agent's shell: Root, which the program that hosts the agent makes with rootFactory and gives the
// mounted entities through agentIs, and AgentCreator, which builds everything else from them in one
// fixed order and owns it for the life of the process.
//
// Creation order (handleConstructor): the ring trace; the VLAN manager; the interface lists and the
// packet-access collection; the multiplexer directory; the local counters, restored from the mounted
// ones so that counts survive a restart; the counter update time; the timer wheel, before anything
// that takes a timer; the topology library; the platform's interface status and packet access; the
// agent-wide glue; the command service and the debug callback, which reads through the glue.
#pragma once

#include <functional>
#include <memory>

#include "agent/AgentCommandRequestDirSm.h"
#include "agent/DebugCliCallback.h"
#include "glue/BridgingConfig.h"
#include "glue/EthDevPamCollection.h"
#include "glue/EthDevPamManager.h"
#include "glue/EthIntfStatusDir.h"
#include "glue/GlueSm.h"
#include "glue/GlueVlanMultiplexerDir.h"
#include "glue/IgmpVlanManager.h"
#include "glue/PamDesiredIntfDir.h"
#include "glue/TopoLibSm.h"
#include "kernel/Dir.h"
#include "kernel/TimerWheel.h"
#include "model/Config.h"
#include "model/IgmpCounterDir.h"
#include "model/IgmpProfile.h"
#include "model/IgmpProtocolConfig.h"
#include "model/Status.h"
#include "model/SyncStatus.h"

namespace IgmpSnoopingAgent {

// The mounted entities the agent is built from, in the order of its mount table. The host mounts
// them (from the state database or the in-process store) before it calls Root::agentIs.
struct AgentMounts {
  Kiv::Ptr<Bridging::IgmpSnooping::Config> config;                      // read
  Kiv::Ptr<Bridging::IgmpSnooping::SwForceConfig const> swForceConfig;  // read
  Kiv::Ptr<Bridging::IgmpSnooping::CounterConfig> counterConfig;        // read
  Kiv::Ptr<Bridging::IgmpSnooping::Status> status;                      // write
  Kiv::Ptr<Bridging::IgmpSnooping::SyncStatus> legacyAdvStatus;         // write
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolConfig> protocolConfig;  // write
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus> protocolStatus;  // write
  Kiv::Ptr<IgmpProfile::ProfileConfig const> profileConfig;             // read
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir> counterDir;          // write
  Kiv::Ptr<Bridging::IgmpSnooping::HwConfig> hwConfig;                  // read
  Kiv::Ptr<Kiv::Dir> cliRequestDir;                                     // read
  // The bridge's configuration and the Ethernet interfaces' status, which the platform keeps.
  Kiv::Ptr<Bridging::Config> bridgingConfig;               // read
  Kiv::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir;  // read
  bool operator==(const AgentMounts&) const = default;
};

// The platform's services that work on objects the agent makes. Unset, the agent runs without them:
// no device interfaces are listed and nothing has packet access (tests of the agent alone).
struct AgentPlatform {
  // Keeps the list of device interfaces filled for as long as what it returns lives, and calls synced
  // once it holds the first full reading of the interfaces: the topology library is not complete
  // before, or a restart would take the VLANs not yet read for gone and remove their status.
  std::function<std::shared_ptr<void>(const Kiv::Ptr<Interface::DeviceIntfStatusDir>&,
                                      std::function<void()> synced)>
      intfStatusManagerFactory;
  // Packet access to the interfaces in pamDesiredIntfDir, offered in ethDevPamCollection.
  std::function<Kiv::Ptr<Interface::EthDevPamManager>(const Kiv::Ptr<Interface::PamDesiredIntfDir const>&,
                                                      const Kiv::Ptr<Interface::EthDevPamCollection>&)>
      ethDevPamManagerFactory;
};

class AgentCreator : public Kiv::NamedEntity {
 public:
  AgentCreator(const Kiv::Name& name, const Kiv::Name& sysname, const AgentMounts& mounts);
  ~AgentCreator() override;
  const Kiv::TypeInfo& typeInfo() const override;

  const Kiv::Name& sysname() const { return sysname_; }
  const AgentMounts& mounts() const { return mounts_; }
  bool kivSameArgs(const Kiv::Name& name, const Kiv::Name& sysname, const AgentMounts& mounts) const {
    return name == this->name() && sysname == sysname_ && mounts == mounts_;
  }
  void nameIsFromBackup(const Kiv::Name&) {}

  // What the agents built from now on are given; the host sets it before Root::agentIs.
  static void platformIs(AgentPlatform platform);

  const Kiv::Ptr<IgmpShim::IgmpVlanManager>& vlanInfo() const { return vlanInfo_; }
  const Kiv::Ptr<Interface::DeviceIntfStatusDir>& deviceIntfStatusDir() const { return deviceIntfStatusDir_; }
  const Kiv::Ptr<Interface::PamDesiredIntfDir>& pamDesiredIntfDir() const { return pamDesiredIntfDir_; }
  const Kiv::Ptr<Interface::PamDesiredIntfDir>& bridgeIntfDir() const { return bridgeIntfDir_; }
  const Kiv::Ptr<Interface::EthDevPamCollection>& ethDevPamCollection() const { return ethDevPamCollection_; }
  const Kiv::Ptr<Interface::EthDevPamManager>& ethDevPamManager() const { return ethDevPamManager_; }
  const Kiv::Ptr<IgmpShim::GlueVlanMultiplexerDir>& glueVlanMultiplexerDir() const {
    return glueVlanMultiplexerDir_;
  }
  const Kiv::Ptr<Topology::Library::LibState>& topoLibState() const { return topoLibState_; }
  const Kiv::Ptr<Topology::Library::Vlan::LibVlanState>& topoLibVlanState() const {
    return topoLibVlanState_;
  }
  const Kiv::Ptr<IgmpShim::GlueSm>& glueSm() const { return glueSm_; }
  const Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir>& localCounterDir() const { return localCounterDir_; }
  const Kiv::Ptr<Bez::TimerWheel>& timerWheel() const { return timerWheel_; }
  const Kiv::Ptr<Agent::AgentCommandRequestDirSm>& cliRequestDirSm() const { return cliRequestDirSm_; }
  const Kiv::Ptr<DebugCliCallback>& debugCliCallback() const { return debugCliCallback_; }
  bool constructed() const { return constructed_; }

  // Runs once; a second call does nothing.
  void handleConstructor();

 private:
  Kiv::Name sysname_;
  AgentMounts mounts_;
  Kiv::Ptr<IgmpShim::IgmpVlanManager> vlanInfo_;
  Kiv::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir_;
  Kiv::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir_;
  Kiv::Ptr<Interface::PamDesiredIntfDir> bridgeIntfDir_;
  Kiv::Ptr<Interface::EthDevPamCollection> ethDevPamCollection_;
  Kiv::Ptr<IgmpShim::GlueVlanMultiplexerDir> glueVlanMultiplexerDir_;
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpCounterDir> localCounterDir_;
  Kiv::Ptr<Bez::TimerWheel> timerWheel_;
  Kiv::Ptr<Topology::Library::LibState> topoLibState_;
  Kiv::Ptr<Topology::Library::Vlan::LibVlanState> topoLibVlanState_;
  Kiv::Ptr<Topology::Library::LibSm> topoLibSm_;
  std::shared_ptr<void> intfStatusManager_;
  Kiv::Ptr<Interface::EthDevPamManager> ethDevPamManager_;
  Kiv::Ptr<IgmpShim::GlueSm> glueSm_;
  Kiv::Ptr<Agent::AgentCommandRequestDirSm> cliRequestDirSm_;
  Kiv::Ptr<DebugCliCallback> debugCliCallback_;
  bool constructed_ = false;
};

class Root : public Kiv::NamedEntity {
 public:
  explicit Root(const Kiv::Name& name) : Kiv::NamedEntity(name) {}
  ~Root() override;
  const Kiv::TypeInfo& typeInfo() const override;

  const Kiv::Ptr<AgentCreator>& agent() const { return agent_; }
  // Builds the agent from its mounts, or returns the one that exists with the same arguments; other
  // arguments are the name-in-use error.
  Kiv::Ptr<AgentCreator> agentIs(const AgentMounts& mounts, const Kiv::Name& name);
  Kiv::Ptr<AgentCreator> agentDel();
  void nameIsFromBackup(const Kiv::Name&) {}

 private:
  Kiv::Ptr<AgentCreator> agent_;
};

// What the host calls first: a new Root with that name, with notification active.
Kiv::Ptr<Root> rootFactory(const Kiv::Name& name);

}  // namespace IgmpSnoopingAgent
