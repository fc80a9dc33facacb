// Makes a Linux bridge fit to be the agent's data plane, and keeps it so as ports join: IGMP and PIM
// kept from the bridge's own snooping, the bridge's querier on with its queries kept off the wire,
// the bridge itself never a router port, and a database large enough for the groups allowed.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "kernel/Log.h"
#include "platform/LinkWatcher.h"

namespace Platform {

// Arguments: the bridge, the reason.
extern Kiv::LogHandle DATAPLANE_UNAVAILABLE;

// Each port gets a clsact qdisc with two classic BPF filters in cls_bpf direct-action mode (the only
// drop this kernel's tc offers): on ingress IPv4 IGMP and PIM are dropped, so the bridge learns
// nothing by itself while packet taps (the agent) still see the frames; on egress IGMP is dropped
// unless it carries txMark, which keeps the bridge's queries off the wire and lets the agent's own
// frames through. The bridge's querier is what makes it forward selectively; its query response
// interval is set to 1 s first, in a request of its own, because it delays the querier's effect.
//
// The filters are written by the tc program: its bytecode form is the one measured, `replace` makes
// each run idempotent, and its message says what went wrong; the netlink form of cls_bpf options
// would be more code for the same few calls at start and at a port's arrival.
class BridgeSetup : public LinkWatcher::Observer {
 public:
  // SO_MARK of the agent's transmissions: the egress filter passes IGMP that carries it.
  static constexpr uint32_t txMark = 0x5eed;
  enum class State : uint8_t { waiting, ready, failed };
  struct Settings {
    // Empty: the only bridge there is.
    std::string bridgeName;
    // The most groups all VLANs together may hold.
    uint32_t maxGroups = 0xffff;
    // The tc program, looked up on PATH unless a path is given.
    std::string tc = "tc";
  };
  using Handler = std::function<void(State)>;

  // Sets the bridge up once the watcher has read the interfaces; handler hears of ready or failed.
  BridgeSetup(LinkWatcher& links, Settings settings, Handler handler = {});
  ~BridgeSetup() override;
  BridgeSetup(const BridgeSetup&) = delete;
  BridgeSetup& operator=(const BridgeSetup&) = delete;

  State state() const { return state_; }
  int bridge() const { return bridge_; }
  // The bridge's mcast_hash_max as set.
  uint32_t hashMax() const { return hashMax_; }
  // Room for maxGroups and the kernel's own entries, never below the kernel's default of 4096.
  static uint32_t hashMaxFor(uint32_t maxGroups);

 private:
  void onLink(const LinkWatcher::Link* before, const LinkWatcher::Link* after) override;
  void onLinksSynced() override;
  bool doBridge(std::string& why);
  bool doPort(const std::string& port, std::string& why);
  void doFail(const std::string& why);

  LinkWatcher& links_;
  Settings settings_;
  Handler handler_;
  int bridge_ = 0;
  uint32_t hashMax_ = 0;
  State state_ = State::waiting;
};

}  // namespace Platform
