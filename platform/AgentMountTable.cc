// The agent's mount table on the state database.
#include "platform/AgentMountTable.h"

#include <cstring>

namespace Platform {

using namespace Bridging::IgmpSnooping;

MountOptions AgentMountTable::options(const char* path, bool agentWrites) {
  MountOptions o;
  o.writable = agentWrites;
  // Protocol status and counters change with every report: their latest values go out in bulk.
  const bool busy = std::strcmp(path, protocolStatus) == 0 || std::strcmp(path, counterDir) == 0;
  o.ordered = !busy;
  if (std::strcmp(path, protocolStatus) == 0) o.folded = {"IgmpIntfStatus"};
  return o;
}

IgmpSnoopingAgent::AgentMounts AgentMountTable::mount(StateDb& db) {
  IgmpSnoopingAgent::AgentMounts m;
  auto mountAs = [&db](const char* path, bool agentWrites, auto entity) {
    db.mount(path, entity, options(path, agentWrites));
    return entity;
  };
  m.config = mountAs(config, false, Kiv::make<Config>("config"));
  m.swForceConfig = mountAs(swForceConfig, false, Kiv::make<SwForceConfig>("swForceConfig"));
  m.counterConfig = mountAs(counterConfig, false, Kiv::make<CounterConfig>("counterConfig"));
  m.status = mountAs(status, true, Kiv::make<Status>("status"));
  m.legacyAdvStatus = mountAs(legacyAdvStatus, true, Kiv::make<SyncStatus>("advertisedstatus"));
  m.protocolConfig = mountAs(protocolConfig, true, Kiv::make<IgmpProtocolConfig>("protocolConfig"));
  m.protocolStatus = mountAs(protocolStatus, true, Kiv::make<IgmpProtocolStatus>("protocolStatus"));
  m.profileConfig = mountAs(profileConfig, false, Kiv::make<IgmpProfile::ProfileConfig>("profileConfig"));
  m.counterDir = mountAs(counterDir, true, Kiv::make<IgmpCounterDir>("counterDir"));
  m.hwConfig = mountAs(hwConfig, false, Kiv::make<HwConfig>("hwConfig"));
  // Requests come through the command socket; the directory stays in the process.
  m.cliRequestDir = Kiv::make<Kiv::Dir>("cliRequest");
  entityAtPathIs(cliRequestDir, m.cliRequestDir);
  // The bridge and its interfaces are read from Linux by the platform, never from the database.
  m.bridgingConfig = Kiv::make<Bridging::Config>("bridgingConfig");
  m.ethIntfStatusDir = Kiv::make<Interface::EthIntfStatusDir>("ethIntfStatusDir");
  return m;
}

}  // namespace Platform
