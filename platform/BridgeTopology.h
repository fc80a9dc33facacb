// The switch that one Linux bridge makes: its ports, for each VLAN the ports that are members and
// whether they send tagged, each port's PVID, and which ports STP keeps from forwarding. Computed from
// the interface table and given afresh to a handler whenever it changes.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/LinkWatcher.h"

namespace Platform {

class BridgeTopology : public LinkWatcher::Observer {
 public:
  struct Port {
    int ifindex = 0;
    std::string name;
    bool operUp = false;
    uint8_t stpState = 0;
    // STP state blocking or disabled: no frame of this port is to be taken in or sent.
    bool blocked = false;
    // The VLAN of the port's untagged frames, or 0 when it drops them.
    uint16_t pvid = 0;
    bool operator==(const Port&) const = default;
  };
  struct Member {
    int ifindex = 0;
    bool tagged = false;
    bool operator==(const Member&) const = default;
  };
  struct Vlan {
    uint16_t vid = 0;
    // By ifindex.
    std::vector<Member> members;
    bool operator==(const Vlan&) const = default;
  };
  struct View {
    // 0 while no bridge is served.
    int bridge = 0;
    std::string bridgeName;
    bool vlanFiltering = false;
    // Both by ifindex and VLAN number.
    std::vector<Port> ports;
    std::vector<Vlan> vlans;
    bool operator==(const View&) const = default;
  };
  using Handler = std::function<void(const View&)>;

  // Serves the bridge of this name, or with an empty name the only bridge there is. Chosen once the
  // watcher has read all interfaces, and kept by ifindex (through renames) until it vanishes.
  BridgeTopology(LinkWatcher& links, std::string bridgeName, Handler handler);
  ~BridgeTopology() override;
  BridgeTopology(const BridgeTopology&) = delete;
  BridgeTopology& operator=(const BridgeTopology&) = delete;

  const View& view() const { return view_; }

  // The switch that bridge makes out of these interfaces. Without VLAN filtering every port is an
  // untagged member of VLAN 1.
  static View viewOf(const LinkWatcher::Table& links, int bridge);

 private:
  void onLink(const LinkWatcher::Link* before, const LinkWatcher::Link* after) override;
  void onLinksSynced() override { doRecompute(); }
  void doRecompute();
  int bridgeChosen() const;

  LinkWatcher& links_;
  std::string bridgeName_;
  Handler handler_;
  View view_;
};

}  // namespace Platform
