// The service that takes command requests from operators and hands each to the agent's callback.
// The agent declares it; the platform provides it (a Unix stream socket on Linux) by installing a
// factory before the agent is built. Without a factory the agent has no command service.
#pragma once

#include <functional>

#include "agent/AgentCommandCallback.h"
#include "kernel/Dir.h"

namespace Agent {

class AgentCommandRequestDirSm : public Kiv::PtrInterface {
 public:
  using Factory = std::function<Kiv::Ptr<AgentCommandRequestDirSm>(const Kiv::Ptr<Kiv::Dir>& requestDir)>;

  const Kiv::Ptr<AgentCommandCallback>& agentCommandCallback() const { return callback_; }
  void agentCommandCallbackIs(const Kiv::Ptr<AgentCommandCallback>& cb) { callback_ = cb; }

  // The service that the next agent built gets; an empty factory leaves it without one.
  static void factoryIs(Factory f);
  // A new service for requestDir, or null when no factory is installed.
  static Kiv::Ptr<AgentCommandRequestDirSm> agentCommandRequestDirSmIs(const Kiv::Ptr<Kiv::Dir>& requestDir);

 private:
  Kiv::Ptr<AgentCommandCallback> callback_;
};

}  // namespace Agent
