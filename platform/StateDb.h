// The state database as the program that builds the agent sees it: entity trees mounted by path,
// read-only or writable, then handed to the agent. With Redis behind it (RedisStateDb) a writable
// tree is read back at start and replicated as it changes, and a read-only tree follows what others
// write; without, the trees live in the process alone: everything works, nothing survives a restart.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kernel/Entity.h"

namespace Platform {

struct MountOptions {
  bool writable = false;
  // Writable trees: every loop turn's changes go out as one ordered batch, or (false) the latest
  // values of what changed go out every 50 ms (up to 1 s under load).
  bool ordered = true;
  // Entity types kept as fields of their parent's record rather than keys of their own.
  std::vector<std::string> folded;
};

class StateDb {
 public:
  virtual ~StateDb() = default;
  // Places root at path (entries separated by '/') under the process's root directory and keeps it
  // with the database; returns root. A writable tree is read back first, a read-only one filled, as
  // the loop turns: loaded() tells when that is done.
  virtual Kiv::Ptr<Kiv::Entity> mount(const std::string& path, const Kiv::Ptr<Kiv::Entity>& root,
                                      const MountOptions& options) = 0;
  // Whether every mount has its contents from the database.
  virtual bool loaded() const = 0;
  // Turns the loop until loaded() or timeout seconds have passed; false on the timeout, after which
  // writable trees keep what they hold and the database is made to match them once it is reached.
  virtual bool waitLoaded(Kiv::Seconds timeout) = 0;
};

// The database at address: "" for the in-process store, "unix:/path" or "tcp:host:port" for Redis.
std::unique_ptr<StateDb> stateDbOpen(const std::string& address);

// Puts e at path under the process's root directory, making the directories on the way.
void entityAtPathIs(const std::string& path, const Kiv::Ptr<Kiv::Entity>& e);

}  // namespace Platform
