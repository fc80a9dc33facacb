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
}  // namespace

AgentCreator::AgentCreator(const Kiv::Name& name, const Kiv::Name& sysname, const AgentMounts& mounts)
    : Kiv::NamedEntity(name), sysname_(sysname), mounts_(mounts) {
  handleConstructor();
}

AgentCreator::~AgentCreator() {
  // The command service may outlive the agent in its host's hands: it must not call into it.
  if (cliRequestDirSm_) cliRequestDirSm_->agentCommandCallbackIs(nullptr);
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

  // The agent-wide glue, glueSmFactory("IgmpSnoopingShim", ...), is created here with the mounts, the
  // local counters and the timer wheel; the debug callback then reads through it.
  DebugCliSource source;
  source.config = mounts_.config;
  source.status = mounts_.status;
  source.coreStatusDir = mounts_.protocolStatus;

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
