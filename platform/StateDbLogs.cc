// The state database's log catalogue. Each is limited to one a minute per key (an outage, whatever
// its reasons, is one key), so that an outage or a key full of garbage is told once, not on every
// retry.
#include "platform/StateDbLogs.h"

namespace Platform {

Kiv::LogHandle STATEDB_UNREACHABLE(
    "STATEDB_UNREACHABLE", Kiv::logError, "State database at %s unreachable: %s",
    "The agent cannot reach its state database. It keeps running on its own state and retries; what "
    "it changes meanwhile is written once the database is back.",
    "Check that redis-server runs and listens at the given address.", 60.0, 1.0, Kiv::logIgnoreArgs);

Kiv::LogHandle STATEDB_REACHABLE("STATEDB_REACHABLE", Kiv::logNotice, "State database at %s reachable again",
                                 "The agent has reconnected to its state database.", Kiv::NoActionRequired,
                                 60.0, 1.0, Kiv::logIgnoreArgs);

Kiv::LogHandle STATEDB_EVICTION_POLICY(
    "STATEDB_EVICTION_POLICY", Kiv::logError,
    "State database at %s runs with maxmemory-policy %s: it may drop the agent's keys",
    "Under memory pressure Redis would evict keys, losing state that the agent and its readers rely on.",
    "Run redis-server with maxmemory-policy noeviction.", 60.0, 1.0, 0);

Kiv::LogHandle STATEDB_BAD_DATA("STATEDB_BAD_DATA", Kiv::logWarning,
                                "State database mount %s: %s skipped: %s",
                                "A key of the state database does not hold what the agent wrote there; "
                                "the agent ignores it.",
                                "Remove the key, or restore the database from a good copy.", 60.0, 1.0, 0);

Kiv::LogHandle STATEDB_REWRITE("STATEDB_REWRITE", Kiv::logWarning,
                               "State database mount %s rewritten as generation %s: %s",
                               "The state database lost or never had what the agent wrote there; the agent "
                               "has written its whole state back.",
                               Kiv::NoActionRequired, 60.0, 1.0, 0);

Kiv::LogHandle STATEDB_RESYNC("STATEDB_RESYNC", Kiv::logNotice, "State database mount %s read again: %s",
                              "A reader of the state database missed changes and has taken a new snapshot.",
                              Kiv::NoActionRequired, 60.0, 1.0, 0);

}  // namespace Platform
