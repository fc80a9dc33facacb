// Message layouts of the bridge's multicast netlink interface, built and read with bounds checks.
#include "platform/BridgeNetlink.h"

#include <arpa/inet.h>
#include <linux/if_bridge.h>
#include <linux/if_ether.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace Platform {

namespace {

using Bytes = std::span<const uint8_t>;

template <class T>
void append(std::vector<uint8_t>& out, const T& v) {
  const auto* p = reinterpret_cast<const uint8_t*>(&v);
  out.insert(out.end(), p, p + sizeof v);
}

// Starts an attribute; its length is set by attrEnd once everything inside is written.
size_t attrBegin(std::vector<uint8_t>& out, uint16_t type) {
  const size_t at = out.size();
  nlattr a{0, type};
  append(out, a);
  return at;
}

void attrEnd(std::vector<uint8_t>& out, size_t at) {
  const auto len = static_cast<uint16_t>(out.size() - at);
  std::memcpy(out.data() + at, &len, sizeof len);
  out.resize(NLA_ALIGN(out.size()));
}

void attrPut(std::vector<uint8_t>& out, uint16_t type, const void* data, size_t size) {
  const size_t at = attrBegin(out, type);
  const auto* p = static_cast<const uint8_t*>(data);
  out.insert(out.end(), p, p + size);
  attrEnd(out, at);
}

}  // namespace

std::vector<uint8_t> mdbEntryBody(int bridge, const MdbEntry& entry) {
  std::vector<uint8_t> out;
  br_port_msg bpm{};
  bpm.family = AF_BRIDGE;
  bpm.ifindex = static_cast<uint32_t>(bridge);
  append(out, bpm);
  out.resize(NLMSG_ALIGN(out.size()));
  br_mdb_entry e{};
  e.ifindex = static_cast<uint32_t>(entry.port);
  e.state = entry.permanent ? MDB_PERMANENT : MDB_TEMPORARY;
  e.vid = entry.vid;
  e.addr.u.ip4 = htonl(entry.group);
  e.addr.proto = htons(ETH_P_IP);
  attrPut(out, MDBA_SET_ENTRY, &e, sizeof e);
  return out;
}

std::vector<uint8_t> portRouterBody(int port, uint8_t state) {
  std::vector<uint8_t> out;
  ifinfomsg ifi{};
  ifi.ifi_family = AF_BRIDGE;
  ifi.ifi_index = port;
  append(out, ifi);
  const size_t protinfo = attrBegin(out, IFLA_PROTINFO | NLA_F_NESTED);
  attrPut(out, IFLA_BRPORT_MULTICAST_ROUTER, &state, 1);
  attrEnd(out, protinfo);
  return out;
}

std::vector<uint8_t> bridgeOptionsBody(int bridge, std::span<const BridgeOption> options) {
  std::vector<uint8_t> out;
  ifinfomsg ifi{};
  ifi.ifi_family = AF_UNSPEC;
  ifi.ifi_index = bridge;
  append(out, ifi);
  const size_t linkinfo = attrBegin(out, IFLA_LINKINFO);
  attrPut(out, IFLA_INFO_KIND, "bridge", 6);
  const size_t data = attrBegin(out, IFLA_INFO_DATA);
  for (const BridgeOption& o : options) {
    // Little-endian hosts: the value's low bytes are the narrower widths.
    attrPut(out, o.attr, &o.value, o.width);
  }
  attrEnd(out, data);
  attrEnd(out, linkinfo);
  return out;
}

int netlinkErrorOf(const NetlinkMsg& msg) {
  if (msg.type != NLMSG_ERROR) return -1;
  nlmsgerr err;
  if (msg.body.size() < sizeof err.error) return EPROTO;
  std::memcpy(&err.error, msg.body.data(), sizeof err.error);
  return -err.error;
}

int netlinkRequestAcked(NetlinkSocket& nl, uint16_t type, std::span<const uint8_t> body) {
  const uint32_t seq = nl.request(type, NLM_F_ACK, body);
  if (seq == 0) return errno ? errno : EIO;
  int result = ETIMEDOUT;
  bool answered = false;
  for (int tries = 0; !answered && tries < 100; ++tries) {
    nl.readAll([&](Bytes datagram) {
      netlinkMsgsEach(datagram, [&](const NetlinkMsg& m) {
        if (m.seq != seq) return;
        const int e = netlinkErrorOf(m);
        if (e < 0) return;
        result = e;
        answered = true;
      });
    });
    if (!answered) {
      pollfd p{nl.fd(), POLLIN, 0};
      poll(&p, 1, 10);
    }
  }
  return result;
}

void mdbMsgParse(Bytes body, int bridge, MdbContents& out) {
  if (body.size() < sizeof(br_port_msg)) return;
  br_port_msg bpm;
  std::memcpy(&bpm, body.data(), sizeof bpm);
  if (static_cast<int>(bpm.ifindex) != bridge) return;
  netlinkAttrsEach(body.subspan(NLMSG_ALIGN(sizeof bpm)), [&](uint16_t type, Bytes v) {
    if (type == MDBA_MDB) {
      netlinkAttrsEach(v, [&](uint16_t t, Bytes entryAttrs) {
        if (t != MDBA_MDB_ENTRY) return;
        netlinkAttrsEach(entryAttrs, [&](uint16_t t2, Bytes info) {
          if (t2 != MDBA_MDB_ENTRY_INFO || info.size() < sizeof(br_mdb_entry)) return;
          br_mdb_entry e;
          std::memcpy(&e, info.data(), sizeof e);
          if (e.addr.proto != htons(ETH_P_IP)) return;
          // An (S,G) entry says so in its attributes; only (*,G) entries are ours.
          bool sourced = false;
          netlinkAttrsEach(
              info.subspan(NLA_ALIGN(sizeof e) <= info.size() ? NLA_ALIGN(sizeof e) : info.size()),
              [&](uint16_t a, Bytes) { sourced |= a == MDBA_MDB_EATTR_SOURCE; });
          if (sourced) return;
          out.entries.push_back(
              MdbEntry{static_cast<int>(e.ifindex), ntohl(e.addr.u.ip4), e.vid, e.state == MDB_PERMANENT});
        });
      });
    } else if (type == MDBA_ROUTER) {
      netlinkAttrsEach(v, [&](uint16_t t, Bytes port) {
        if (t != MDBA_ROUTER_PORT || port.size() < 4) return;
        uint32_t ifindex;
        std::memcpy(&ifindex, port.data(), 4);
        uint8_t kind = MDB_RTR_TYPE_TEMP;
        netlinkAttrsEach(port.subspan(4), [&](uint16_t a, Bytes pv) {
          if (a == MDBA_ROUTER_PATTR_TYPE && !pv.empty()) kind = pv[0];
        });
        out.routerPorts[static_cast<int>(ifindex)] = kind;
      });
    }
  });
}

bool mdbDump(NetlinkSocket& nl, int bridge, MdbContents& out) {
  br_port_msg bpm{};
  bpm.family = AF_BRIDGE;
  std::vector<uint8_t> body(NLMSG_ALIGN(sizeof bpm));
  std::memcpy(body.data(), &bpm, sizeof bpm);
  const uint32_t seq = nl.request(RTM_GETMDB, NLM_F_DUMP, body);
  if (seq == 0) return false;
  out = MdbContents();
  bool done = false, failed = false;
  // The kernel fills the next part of a dump inside each read, so the reads rarely wait.
  for (int idle = 0; !done && !failed && idle < 200;) {
    bool got = false;
    const bool intact = nl.readAll([&](Bytes datagram) {
      got = true;
      netlinkMsgsEach(datagram, [&](const NetlinkMsg& m) {
        if (m.seq != seq) return;
        if (m.type == NLMSG_DONE)
          done = true;
        else if (m.type == NLMSG_ERROR)
          failed = true;
        else if (m.type == RTM_NEWMDB)
          mdbMsgParse(m.body, bridge, out);
      });
    });
    if (!intact) return false;
    if (!got && !done) {
      pollfd p{nl.fd(), POLLIN, 0};
      poll(&p, 1, 10);
      ++idle;
    }
  }
  return done && !failed;
}

}  // namespace Platform
