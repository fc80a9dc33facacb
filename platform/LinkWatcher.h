// The interfaces of the network namespace from rtnetlink: one dump at start, then events, kept as a
// table by ifindex with each interface's name, up and running states, master, and as a bridge port its
// STP state and VLANs. Observers hear of every interface that appears, vanishes, changes or is renamed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace Platform {

class NetlinkSocket;
struct NetlinkMsg;

class LinkWatcher {
 public:
  // A VLAN of a bridge port (or of the bridge itself) in the bridge's VLAN table.
  struct BridgeVlan {
    uint16_t vid;
    bool pvid;
    bool untagged;
    bool operator==(const BridgeVlan&) const = default;
  };

  struct Link {
    int ifindex = 0;
    std::string name;
    // The driver's kind, "bridge" or "veth" for instance; empty for devices without one (loopback).
    std::string kind;
    bool adminUp = false;
    // Operationally up: administratively up with the link running.
    bool operUp = false;
    // The bridge (or other master) the interface is enslaved to, or 0.
    int master = 0;
    // As a bridge port: the port's STP state, by the kernel's numbers (0 disabled .. 4 blocking).
    bool bridgePort = false;
    uint8_t stpState = 0;
    // As a bridge: whether its VLAN table applies; without it every port is in one VLAN.
    bool vlanFiltering = false;
    // As a bridge port or bridge with VLAN filtering: its VLANs in the table, by VLAN number.
    std::vector<BridgeVlan> vlans;
    bool operator==(const Link&) const = default;
  };
  using Table = std::map<int, Link>;

  class Observer {
   public:
    virtual ~Observer() = default;
    // before is null for an interface that appeared, after for one that vanished; a rename is a change
    // whose names differ. Called once the table holds after.
    virtual void onLink(const Link* before, const Link* after) = 0;
    // The first full reading of the interfaces is in the table.
    virtual void onLinksSynced() {}
  };

  LinkWatcher();
  ~LinkWatcher();
  LinkWatcher(const LinkWatcher&) = delete;
  LinkWatcher& operator=(const LinkWatcher&) = delete;

  // Opens the socket in the calling thread's network namespace and asks for the first dump; throws
  // Kiv::Exception when Linux refuses.
  void start();
  bool synced() const { return synced_; }
  const Table& links() const { return links_; }
  const Link* link(int ifindex) const;
  const Link* linkByName(const std::string& name) const;

  void observerAdd(Observer* o);
  void observerDel(Observer* o);

  // Takes in one datagram of rtnetlink messages; the socket's reader, and the way in for the fuzzer.
  void handleNetlink(std::span<const uint8_t> bytes);
  // The VLANs of a bridge's IFLA_AF_SPEC attribute, ranges spread out, by VLAN number.
  static std::vector<BridgeVlan> bridgeVlansOf(std::span<const uint8_t> afSpec);

  // Messages whose attributes could not be read, and resyncs after the kernel dropped events.
  uint64_t malformedMsgs() const { return malformed_; }
  uint64_t resyncs() const { return resyncs_; }

 private:
  enum class Dump : uint8_t { none, links, bridgePorts };
  void handleReadable();
  void handleMsg(const NetlinkMsg& msg);
  void handleLinkMsg(const NetlinkMsg& msg, bool fromDump);
  void handleBridgeMsg(const NetlinkMsg& msg, bool fromDump);
  void handleDumpDone();
  void doDumpNext();
  void doResync();
  void doLinkIs(const Link* before, const Link& after);
  void doLinkDel(int ifindex);
  void doNotify(const Link* before, const Link* after);
  bool hasVlanFiltering(const Link& l) const;

  std::unique_ptr<NetlinkSocket> socket_;
  Table links_;
  std::vector<Observer*> observers_;
  // Requests go one at a time: the kernel runs one dump per socket.
  Dump dump_ = Dump::none;
  uint32_t dumpSeq_ = 0;
  bool linksDumpWanted_ = false;
  bool bridgeDumpWanted_ = false;
  // Interfaces seen by the links dump under way; the others are gone once it ends.
  std::vector<int> seen_;
  bool synced_ = false;
  uint64_t malformed_ = 0;
  uint64_t resyncs_ = 0;
};

}  // namespace Platform
