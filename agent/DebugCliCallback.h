// The agent's two debug commands: "ethDevPamsCounters", the packet-access error table, and
// "showGroups ...", the group listing that the command-line front end parses by fixed columns.
// Anything else is echoed back. All data is read from the snooping entities through a DebugCliSource.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "agent/AgentCommandCallback.h"
#include "kernel/EntityDecl.h"
#include "model/Config.h"
#include "model/IgmpContextStatus.h"
#include "model/IntfCollection.h"
#include "model/Status.h"
#include "model/SyncStatus.h"

namespace IgmpSnoopingAgent {

enum ShowFilterType : uint8_t { none = 0, user = 1, dynamic = 2 };

enum GroupType : uint8_t { noGroupType = 0, staticAndDynamic = 1, staticGrp = 2, dynamicGrp = 3 };

#define ORDERED_GROUP_COLLECTION_ATTRS(X) X(ordered, group, Group, Lomax::IpAddr, bool, false)

// The groups a listing asks for, each once, in ascending address order.
class OrderedGroupCollection : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(OrderedGroupCollection, ORDERED_GROUP_COLLECTION_ATTRS)
};

// One row of the packet-access error table.
struct PamErrorCounters {
  std::string intfName;
  uint32_t rxErrors = 0;
  uint32_t txErrors = 0;
  uint32_t txDrops = 0;
};

// What the commands read: the entities the agent-wide glue works on, and through the glue its
// topology and packet access (AgentCreator fills it in). Null entities read as empty.
struct DebugCliSource {
  Kiv::Ptr<Bridging::IgmpSnooping::Config const> config;
  Kiv::Ptr<Bridging::IgmpSnooping::Status const> status;
  // The per-VLAN core status (IgmpContextStatus by VLAN); null: no core runs.
  Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus const> coreStatusDir;
  // What the MLAG peer advertises, while snooping sync with it is on.
  Kiv::Ptr<Bridging::IgmpSnooping::SyncStatus const> peerStatus;
  // Whether a port belongs to a VLAN of the topology; unset: every port does.
  std::function<bool(Bridging::VlanId, Lomax::IntfId)> topoVlanHasPort;
  // The packet-access objects' error counters, one row per interface.
  std::function<std::vector<PamErrorCounters>()> pamErrorCounters;
};

class DebugCliCallback : public Agent::AgentCommandCallback {
 public:
  DebugCliCallback(Kiv::Name name, Kiv::String text, DebugCliSource source);

  const Kiv::String& text() const { return text_; }
  const DebugCliSource& source() const { return source_; }
  // Replaces where the error counters come from (the host adds rows of its own, such as a shared socket's).
  void pamErrorCountersIs(std::function<std::vector<PamErrorCounters>()> fn) {
    source_.pamErrorCounters = std::move(fn);
  }

  void handleCommand(int socket, const Kiv::String& command) override;
  void printShowGroups(int socket, const Kiv::String& command);

  // "[-]HHhMMmSS", or with displayDate "[-]DdHHhMMmSS": the difference of two times truncated to whole
  // seconds. A time that is not finite (a timer that is off) prints as "- ".
  static std::string doTimeDiff(Kiv::Seconds newtime, Kiv::Seconds oldtime, bool displayDate);
  // The unknown-command echo: "%%" becomes "%", every other '%' stands as it is.
  static std::string echoText(std::string_view command);
  // Splits on each delimiter; empty stretches are kept, a trailing delimiter adds nothing.
  static void split(std::string_view text, char delimiter, std::vector<std::string>& tokens);

 private:
  struct Listing;
  void printEthDevPamsCounters(int socket) const;
  void printGroup(Listing& l, Lomax::IpAddr addr) const;
  void printGroupRegular(const Listing& l, const std::vector<std::pair<Lomax::IntfId, GroupType>>& ports,
                         GroupType groupType, Lomax::IpAddr addr) const;
  bool printGroupIntfDetail(Listing& l,
                            const Kiv::Ptr<Bridging::IgmpSnooping::IgmpIntfStatus const>& intfStatus,
                            Lomax::IntfId intf, bool peerIntf, Lomax::IpAddr addr) const;
  void printDetail(const Listing& l, Lomax::IpAddr addr, Lomax::IntfId intf,
                   const Bridging::IgmpSnooping::IgmpMembership& membership) const;
  bool printDynamicRouters(Listing& l, Lomax::IpAddr addr) const;

  Kiv::String text_;
  DebugCliSource source_;
};

}  // namespace IgmpSnoopingAgent
