// A handler of the agent's debug commands: the command mechanism hands it an open descriptor and the
// command text; it writes its answer there and closes the descriptor.
#pragma once

#include "kernel/Ptr.h"
#include "kernel/String.h"

namespace Agent {

class AgentCommandCallback : public Kiv::PtrInterface {
 public:
  explicit AgentCommandCallback(Kiv::Name name) : name_(std::move(name)) {}
  const Kiv::Name& name() const { return name_; }
  // Always closes socket before it returns.
  virtual void handleCommand(int socket, const Kiv::String& command) = 0;

 private:
  Kiv::Name name_;
};

}  // namespace Agent
