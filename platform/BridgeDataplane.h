// The Linux bridge as the agent's data plane: keeps the bridge's multicast database and its ports'
// router state equal to the forwarding state the agent publishes for one VLAN, and tells where the
// two differ.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "kernel/Clock.h"
#include "kernel/Log.h"
#include "kernel/Ptr.h"
#include "model/IgmpContextStatus.h"
#include "model/Status.h"
#include "platform/BridgeNetlink.h"
#include "platform/LinkWatcher.h"

namespace Platform {

// Argument: the bridge, the limit.
extern Kiv::LogHandle DATAPLANE_HASH_FULL;
// Argument: the bridge.
extern Kiv::LogHandle DATAPLANE_SNOOPING_RESTORED;
// Arguments: the bridge, what failed, the reason.
extern Kiv::LogHandle DATAPLANE_PROGRAM_FAILED;

// What forwards multicast in one snooping domain, by port name: the (*,G) entries and the router
// ports. Router ports are the ports that get every group; flooding is every port a router port.
struct DataplaneView {
  std::set<std::pair<std::string, Lomax::IpAddr>> entries;
  std::set<std::string> routerPorts;
  bool operator==(const DataplaneView&) const = default;
};

// What the published state asks of a bridge with these ports: the IP groups behind each published
// Ethernet group on each port (the core's groups with members there; for a port only the peer asks
// for, every group of that address the core or the peer has), and the published router ports, or
// every port while the VLAN floods (no VLAN status, or useVlanFloodset). Either status may be null.
DataplaneView dataplanePublished(const Bridging::IgmpSnooping::VlanStatus* vlan,
                                 const Bridging::IgmpSnooping::IgmpContextStatus* core,
                                 const std::vector<std::string>& bridgePorts);
// What the bridge of this name in the calling thread's namespace holds for this VLAN (0 without VLAN
// filtering); throws Kiv::Exception when it cannot be read.
DataplaneView dataplaneHeld(const std::string& bridgeName, uint16_t vid = 0);
// One line per difference, "missing" for what is published and not held, "extra" for the reverse:
// "missing entry p1 239.1.1.1", "extra router port p3". Empty when the two agree.
std::vector<std::string> dataplaneDifferences(const DataplaneView& published, const DataplaneView& held);

// Follows Status.vlanStatus[vlan] and IgmpProtocolStatus.contextStatus[vlan] through their notifiees
// and programs the bridge over rtnetlink. Changes gathered in one turn of the loop are applied together
// in an order that never cuts a stream: router ports gained, then entries added, then entries removed,
// then router ports lost. So flooding (every port a router port) comes on before groups go, and groups
// are in place before it goes. At start, and whenever a port joins the bridge, what the bridge holds is
// read and the difference applied; nothing is removed when the writer goes, so a restarted agent keeps
// the streams its predecessor set up.
class BridgeDataplane : public LinkWatcher::Observer {
 public:
  struct Settings {
    // Empty: the only bridge there is.
    std::string bridgeName;
    uint16_t vlan = 1;
    // The bridge's mcast_hash_max: no entry for a group beyond it is added.
    uint32_t hashMax = 4096;
  };
  struct Counters {
    uint64_t requests = 0;
    uint64_t entriesAdded = 0;
    uint64_t entriesRemoved = 0;
    uint64_t routerChanges = 0;
    uint64_t failures = 0;
    uint64_t resyncs = 0;
    uint64_t hashRefused = 0;
  };

  BridgeDataplane(LinkWatcher& links, Settings settings,
                  const Kiv::Ptr<Bridging::IgmpSnooping::Status const>& status,
                  const Kiv::Ptr<Bridging::IgmpSnooping::IgmpProtocolStatus const>& protocol);
  ~BridgeDataplane() override;
  BridgeDataplane(const BridgeDataplane&) = delete;
  BridgeDataplane& operator=(const BridgeDataplane&) = delete;

  // The bridge is known, read, and nothing is waiting to be programmed or retried.
  bool converged() const;
  const Counters& counters() const { return counters_; }
  // Applies what is pending now rather than at the end of the loop's turn.
  void flush();

 private:
  class StatusReactor;
  class VlanReactor;
  class EthGroupReactor;
  class ProtocolReactor;
  class ContextReactor;
  class GroupReactor;
  class RetryReactor;
  using Entry = std::pair<int, uint32_t>;  // port, group

  void onLink(const LinkWatcher::Link* before, const LinkWatcher::Link* after) override;
  void onLinksSynced() override;

  void vlanStatusIs(Kiv::Ptr<Bridging::IgmpSnooping::VlanStatus const> v);
  void contextIs(Kiv::Ptr<Bridging::IgmpSnooping::IgmpContextStatus const> c);
  void handleEthGroup(Lomax::EthAddr eth);
  void handleGroup(Lomax::IpAddr group);
  void handleAllGroups();
  void handlePeerGroup(Lomax::IpAddr group);
  void dirtyEthIs(Lomax::EthAddr eth);
  void dirtyAllIs();
  void routersDirtyIs();
  void doScheduleFlush();
  void handleRetry();
  void doResync();
  std::set<Entry> desiredOf(uint64_t eth) const;
  std::map<int, uint8_t> desiredRouters() const;
  int portOf(Lomax::IntfId intf) const;
  std::vector<int> bridgePorts() const;
  void send(uint16_t type, const std::vector<uint8_t>& body, uint64_t eth, Entry entry, bool add);
  void doReadErrors();
  void heldAdd(uint64_t eth, Entry e);
  void heldDel(uint64_t eth, Entry e);

  LinkWatcher& links_;
  Settings settings_;
  std::unique_ptr<NetlinkSocket> nl_;
  Kiv::Ptr<StatusReactor> statusReactor_;
  Kiv::Ptr<ProtocolReactor> protocolReactor_;
  Kiv::Ptr<VlanReactor> vlanReactor_;
  Kiv::Ptr<ContextReactor> contextReactor_;
  // Wakes the writer to retry groups left out for the hash limit, once the kernel has let go of
  // groups that left (it frees them a moment after the last entry goes).
  Kiv::Ptr<RetryReactor> retryReactor_;
  std::unordered_map<uint64_t, Kiv::Ptr<EthGroupReactor>> ethReactors_;
  std::unordered_map<uint32_t, Kiv::Ptr<GroupReactor>> groupReactors_;
  // The core's groups by the Ethernet group they map to.
  std::unordered_map<uint64_t, std::unordered_set<uint32_t>> groupsOfEth_;
  // The groups the peer has members of (peerGroupList), likewise.
  std::unordered_map<uint64_t, std::unordered_set<uint32_t>> peerGroupsOfEth_;

  int bridge_ = 0;
  uint16_t vid_ = 0;
  // The bridge's contents were read since it was found.
  bool synced_ = false;
  // Our entries in the bridge, by Ethernet group, and how many entries each group has there (any
  // entry counts against the hash limit, the kernel's own ones too).
  std::unordered_map<uint64_t, std::set<Entry>> held_;
  std::unordered_map<uint32_t, uint32_t> heldGroups_;
  // settings_.hashMax, or less once the kernel refused a group below it (others add entries too).
  uint32_t hashLimit_ = 0;
  bool hashOverflowed_ = false;
  // Each port's router state as last set or read; a port missing is unknown and is set.
  std::map<int, uint8_t> routerHeld_;
  std::unordered_set<uint64_t> dirtyEths_;
  // Ethernet groups with an entry left out for the hash limit, retried when groups go.
  std::unordered_set<uint64_t> refusedEths_;
  bool flushPending_ = false;
  bool flushScheduled_ = false;
  bool resyncWanted_ = false;
  // Requests sent without an acknowledgement, by sequence number, until their errors are read.
  struct Sent {
    uint64_t eth;
    Entry entry;
    bool add;
    uint16_t type;
  };
  std::unordered_map<uint32_t, Sent> sent_;
  Counters counters_;
  // Lets a deferred flush find out that the writer is gone.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace Platform
