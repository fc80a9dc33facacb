// The factory hook through which the platform gives the agent its command service.
#include "agent/AgentCommandRequestDirSm.h"

namespace Agent {
namespace {
AgentCommandRequestDirSm::Factory& factory() {
  static AgentCommandRequestDirSm::Factory f;
  return f;
}
}  // namespace

void AgentCommandRequestDirSm::factoryIs(Factory f) { factory() = std::move(f); }

Kiv::Ptr<AgentCommandRequestDirSm> AgentCommandRequestDirSm::agentCommandRequestDirSmIs(
    const Kiv::Ptr<Kiv::Dir>& requestDir) {
  return factory() ? factory()(requestDir) : nullptr;
}

}  // namespace Agent
