// The rtnetlink requests and replies of a bridge's multicast database and multicast settings: (*,G)
// entries, the ports' router state, the bridge's own options, and acked and dumped exchanges.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <vector>

#include "platform/NetlinkSocket.h"

namespace Platform {

// One IPv4 (*,G) entry of a bridge's multicast database.
struct MdbEntry {
  int port = 0;
  // In host order.
  uint32_t group = 0;
  // 0 on a bridge without VLAN filtering.
  uint16_t vid = 0;
  bool permanent = true;
  auto operator<=>(const MdbEntry&) const = default;
};

// What a bridge's database holds: its IPv4 entries, and each port's router setting (0 never, 1
// learned, 2 always).
struct MdbContents {
  std::vector<MdbEntry> entries;
  std::map<int, uint8_t> routerPorts;
};

// RTM_NEWMDB or RTM_DELMDB of one permanent entry of this bridge.
std::vector<uint8_t> mdbEntryBody(int bridge, const MdbEntry& entry);
// RTM_SETLINK (family AF_BRIDGE) of a port's router state: 0 never, 1 learned, 2 always.
std::vector<uint8_t> portRouterBody(int port, uint8_t state);
// RTM_NEWLINK of bridge options, each IFLA_BR_* with its value in the width the kernel wants.
struct BridgeOption {
  uint16_t attr;
  uint64_t value;
  uint8_t width;
};
std::vector<uint8_t> bridgeOptionsBody(int bridge, std::span<const BridgeOption> options);

// Sends a request asking for an acknowledgement and reads it: 0, or the errno the kernel answered.
// rtnetlink answers inside the send, so the answer is queued when the send returns.
int netlinkRequestAcked(NetlinkSocket& nl, uint16_t type, std::span<const uint8_t> body);
// The errno of an NLMSG_ERROR message (0 for an acknowledgement), or -1 for any other message.
int netlinkErrorOf(const NetlinkMsg& msg);

// Reads the whole multicast database of one bridge and its ports' router settings (the database's
// own router list is empty while the bridge itself is no router); false when a dump failed.
bool mdbDump(NetlinkSocket& nl, int bridge, MdbContents& out);
// Takes the entries of one message of a database dump, if it is of this bridge.
void mdbMsgParse(std::span<const uint8_t> body, int bridge, MdbContents& out);
// Takes the router setting of one bridge-form RTM_NEWLINK message, if it is of a port of this bridge.
void portMsgParse(std::span<const uint8_t> body, int bridge, MdbContents& out);

}  // namespace Platform
