// Building the agent in its fixed order.
#include "agent/AgentCreator.h"

#include "agent/AgentTrace.h"
#include "kernel/ActivityManager.h"
#include "kernel/RingTrace.h"

namespace IgmpSnoopingAgent {

using namespace Bridging::IgmpSnooping;

namespace {
// The ring trace's size per level in KiB, levels 0 to 9: the rare levels keep a long history.
const std::vector<uint32_t> ringSizes = {64, 64, 256, 256, 512, 512, 1024, 1024, 1024, 1024};

AgentPlatform& platform() {
  static AgentPlatform p;
  return p;
}
}  // namespace

void AgentCreator::platformIs(AgentPlatform p) { platform() = std::move(p); }

AgentCreator::AgentCreator(const Kiv::Name& name, const Kiv::Name& sysname, const AgentMounts& mounts)
    : Kiv::NamedEntity(name), sysname_(sysname), mounts_(mounts) {
  handleConstructor();
}

AgentCreator::~AgentCreator() {
  // The command service may outlive the agent in its host's hands: it must not call into it.
  if (cliRequestDirSm_) cliRequestDirSm_->agentCommandCallbackIs(nullptr);
  // The glue lets go of its VLANs and multiplexers before the services under it go.
  glueSm_ = nullptr;
  ethDevPamManager_ = nullptr;
  intfStatusManager_.reset();
  topoLibSm_ = nullptr;
}

const Kiv::TypeInfo& AgentCreator::typeInfo() const {
  static const Kiv::TypeInfo info{"IgmpSnoopingAgent::AgentCreator", {}};
  return info;
}

void AgentCreator::handleConstructor() {
  if (constructed_) return;
  KIV_TRACE_FUNC(agentTrace);
  if (!Vellum::snoopVlHandle)
    Vellum::snoopVlHandle = Vellum::initialize_handle("IgmpSnoopingDetailed", ringSizes);

  // Without a platform to keep them, the bridge and its interfaces are empty ones of the agent's own.
  Kiv::Ptr<Bridging::Config> bridgingConfig = mounts_.bridgingConfig;
  if (!bridgingConfig) bridgingConfig = Kiv::make<Bridging::Config>("bridgingConfig");
  Kiv::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir = mounts_.ethIntfStatusDir;
  if (!ethIntfStatusDir) ethIntfStatusDir = Kiv::make<Interface::EthIntfStatusDir>("ethIntfStatusDir");
  vlanInfo_ = IgmpShim::igmpVlanManagerFactory("BridgingVlanConfigMgr", bridgingConfig);
  deviceIntfStatusDir_ = Kiv::make<Interface::DeviceIntfStatusDir>("disd");
  pamDesiredIntfDir_ = Kiv::make<Interface::PamDesiredIntfDir>("pdid");
  bridgeIntfDir_ = Kiv::make<Interface::PamDesiredIntfDir>("bid");
  ethDevPamCollection_ = Kiv::make<Interface::EthDevPamCollection>("edpc");
  glueVlanMultiplexerDir_ = Kiv::make<IgmpShim::GlueVlanMultiplexerDir>("vpmd", bridgingConfig);

  localCounterDir_ = Kiv::make<IgmpCounterDir>("localCounterDir");
  const Kiv::Name switchName = Lomax::switchIntfId().stringValue();
  localCounterDir_->intfCounterIs(switchName);
  if (mounts_.counterDir) {
    mounts_.counterDir->intfCounterIs(switchName);
    for (auto& c : mounts_.counterDir->intfCounterIter())
      localCounterDir_->intfCounterIs(c.key())->doCopy(*c.ptr());
  }
  if (mounts_.status) mounts_.status->counterUpdateTimeIs(Kiv::System::currentTime());

  timerWheel_ = Bez::TimerWheelIs(Kiv::ActivityManagerConfig::clock(), 100, 108200, true, 1024);

  topoLibState_ = Kiv::make<Topology::Library::LibState>("topoLibState");
  topoLibVlanState_ = Kiv::make<Topology::Library::Vlan::LibVlanState>("topoLibVlan");
  topoLibSm_ = Kiv::make<Topology::Library::LibSm>(bridgingConfig, ethIntfStatusDir, topoLibState_,
                                                   topoLibVlanState_, Kiv::ActivityManagerConfig::clock());

  const AgentPlatform& p = platform();
  if (p.intfStatusManagerFactory) {
    topoLibSm_->sourcesReadyIs(false);
    Topology::Library::LibSm* lib = topoLibSm_.ptr();
    intfStatusManager_ =
        p.intfStatusManagerFactory(deviceIntfStatusDir_, [lib] { lib->sourcesReadyIs(true); });
  }
  if (p.ethDevPamManagerFactory)
    ethDevPamManager_ = p.ethDevPamManagerFactory(pamDesiredIntfDir_, ethDevPamCollection_);

  IgmpShim::GlueSm::Services services;
  services.config = mounts_.config;
  services.swForceConfig = mounts_.swForceConfig;
  services.counterConfig = mounts_.counterConfig;
  services.status = mounts_.status;
  services.coreConfigDir = mounts_.protocolConfig;
  services.coreStatusDir = mounts_.protocolStatus;
  services.vlanInfo = vlanInfo_;
  services.bridgingConfig = bridgingConfig;
  services.hwConfig = mounts_.hwConfig;
  services.profileConfig = mounts_.profileConfig;
  services.deviceIntfStatusDir = deviceIntfStatusDir_;
  services.bridgeIntfDir = bridgeIntfDir_;
  services.pamDesiredIntfDir = pamDesiredIntfDir_;
  services.ethDevPamCollection = ethDevPamCollection_;
  services.ethDevPamManager = ethDevPamManager_;
  services.glueVlanMultiplexerDir = glueVlanMultiplexerDir_;
  services.topoLib = topoLibState_;
  services.topoVlanLib = topoLibVlanState_;
  services.mountedCounterDir = mounts_.counterDir;
  services.counterDir = localCounterDir_;
  services.timerWheel = timerWheel_;
  glueSm_ = IgmpShim::glueSmFactory("IgmpSnoopingShim", services);

  // The commands read what the glue works on: its VLANs' topology and its packet access.
  DebugCliSource source;
  source.config = mounts_.config;
  source.status = mounts_.status;
  source.coreStatusDir = mounts_.protocolStatus;
  IgmpShim::GlueSm* glue = glueSm_.ptr();
  // A VLAN the topology does not hold (yet: a restarted agent's status is there before the bridge's
  // VLANs are) hides none of its ports.
  source.topoVlanHasPort = [glue](Bridging::VlanId vlan, Lomax::IntfId intf) {
    auto topo = glue->topoVlan(vlan);
    return !topo || topo->port(intf);
  };
  source.pamErrorCounters = [glue] {
    std::vector<PamErrorCounters> rows;
    const IgmpShim::GlueSm::Services& s = glue->services();
    if (!s.ethDevPamManager) return rows;
    for (const auto& [intf, pam] : s.ethDevPamCollection->intfPams()) {
      const Interface::EthDevPamManager::PamCounters c = s.ethDevPamManager->intfPamCounters(intf);
      rows.push_back({intf.stringValue().stdString(), c.rxErrors, c.txErrors, c.txDrops});
    }
    return rows;
  };

  cliRequestDirSm_ = Agent::AgentCommandRequestDirSm::agentCommandRequestDirSmIs(mounts_.cliRequestDir);
  debugCliCallback_ = Kiv::make<DebugCliCallback>("igmpsnoopingdebug", "", source);
  if (cliRequestDirSm_) cliRequestDirSm_->agentCommandCallbackIs(debugCliCallback_);
  constructed_ = true;
}

Root::~Root() { agentDel(); }

const Kiv::TypeInfo& Root::typeInfo() const {
  static const Kiv::TypeInfo info{"IgmpSnoopingAgent::Root", {}};
  return info;
}

Kiv::Ptr<AgentCreator> Root::agentIs(const AgentMounts& mounts, const Kiv::Name& name) {
  if (agent_) {
    if (agent_->kivSameArgs(name, "IgmpSnoopingAgent", mounts)) return agent_;
    Kiv::throwNameInUseException(
        "Reinstantiating the pointer interface where constructor parameters of " +
        std::string("IgmpSnoopingAgent::Root::agent have different values not allowed"));
  }
  agent_ = Kiv::make<AgentCreator>(name, "IgmpSnoopingAgent", mounts);
  agent_->parentAttrIdIs(0);
  agent_->parentIs(this);
  return agent_;
}

Kiv::Ptr<AgentCreator> Root::agentDel() {
  Kiv::Ptr<AgentCreator> old = std::move(agent_);
  if (old) old->parentIs(nullptr);
  return old;
}

Kiv::Ptr<Root> rootFactory(const Kiv::Name& name) {
  Kiv::Ptr<Root> root = Kiv::make<Root>(name);
  root->hasNotificationActiveIs(true);
  return root;
}

}  // namespace IgmpSnoopingAgent
