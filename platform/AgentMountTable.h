// Where the agent's entities lie in the state database, and the mounting of them: the agent writes
// its status and the trees it owns, and reads the configuration that snoopctl (or any other
// configuration writer) puts there. The paths are this product's; the agent sees only the objects.
#pragma once

#include "agent/AgentCreator.h"
#include "platform/StateDb.h"

namespace Platform {

class AgentMountTable {
 public:
  static constexpr const char* config = "igmpsnooping/config";
  static constexpr const char* swForceConfig = "igmpsnooping/swForceConfig";
  static constexpr const char* counterConfig = "igmpsnooping/counterConfig";
  static constexpr const char* status = "igmpsnooping/status";
  static constexpr const char* legacyAdvStatus = "igmpsnooping/local/advertisedstatus";
  static constexpr const char* protocolConfig = "igmpsnooping/protocolConfig";
  static constexpr const char* protocolStatus = "igmpsnooping/protocolStatus";
  static constexpr const char* profileConfig = "igmpsnooping/profileConfig";
  static constexpr const char* counterDir = "igmpsnooping/counters";
  static constexpr const char* hwConfig = "igmpsnooping/hwConfig";
  static constexpr const char* cliRequestDir = "igmpsnooping/cliRequest";

  // How each tree is kept: what the agent writes, ordered or coalesced, and what it folds.
  static MountOptions options(const char* path, bool agentWrites);

  // Mounts every entity of the agent's table on db: the agent's own trees writable, configuration
  // read-only. Does not wait for them to load.
  static IgmpSnoopingAgent::AgentMounts mount(StateDb& db);
};

}  // namespace Platform
