// The event logs of the state database: what an operator is told about Redis and the mounts on it.
#pragma once

#include "kernel/Log.h"

namespace Platform {

// Arguments: the address, the reason.
extern Kiv::LogHandle STATEDB_UNREACHABLE;
// Argument: the address.
extern Kiv::LogHandle STATEDB_REACHABLE;
// Arguments: the address, the policy in force.
extern Kiv::LogHandle STATEDB_EVICTION_POLICY;
// Arguments: the mount, the key, the reason.
extern Kiv::LogHandle STATEDB_BAD_DATA;
// Arguments: the mount, the generation, the reason.
extern Kiv::LogHandle STATEDB_REWRITE;
// Arguments: the mount, the reason.
extern Kiv::LogHandle STATEDB_RESYNC;

}  // namespace Platform
