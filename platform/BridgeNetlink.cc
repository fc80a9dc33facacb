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
    }
  });
}

namespace {

// Runs one dump to its end, handing each message of it to fn.
bool dumpRun(NetlinkSocket& nl, uint16_t type, std::span<const uint8_t> body,
             const std::function<void(const NetlinkMsg&)>& fn) {
  const uint32_t seq = nl.request(type, NLM_F_DUMP, body);
  if (seq == 0) return false;
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
        else
          fn(m);
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

}  // namespace

void portMsgParse(Bytes body, int bridge, MdbContents& out) {
  if (body.size() < sizeof(ifinfomsg)) return;
  ifinfomsg ifi;
  std::memcpy(&ifi, body.data(), sizeof ifi);
  int master = 0;
  int router = -1;
  netlinkAttrsEach(body.subspan(NLMSG_ALIGN(sizeof ifi)), [&](uint16_t type, Bytes v) {
    if (type == IFLA_MASTER && v.size() >= 4) std::memcpy(&master, v.data(), 4);
    if (type != IFLA_PROTINFO) return;
    netlinkAttrsEach(v, [&](uint16_t t, Bytes pv) {
      if (t == IFLA_BRPORT_MULTICAST_ROUTER && !pv.empty()) router = pv[0];
    });
  });
  if (master == bridge && ifi.ifi_index != bridge && router >= 0)
    out.routerPorts[ifi.ifi_index] = static_cast<uint8_t>(router);
}

bool mdbDump(NetlinkSocket& nl, int bridge, MdbContents& out) {
  out = MdbContents();
  br_port_msg bpm{};
  bpm.family = AF_BRIDGE;
  std::vector<uint8_t> body(NLMSG_ALIGN(sizeof bpm));
  std::memcpy(body.data(), &bpm, sizeof bpm);
  // The kernel's dump answers with messages of the request's type.
  const bool entries = dumpRun(nl, RTM_GETMDB, body, [&](const NetlinkMsg& m) {
    if (m.type == RTM_GETMDB || m.type == RTM_NEWMDB) mdbMsgParse(m.body, bridge, out);
  });
  ifinfomsg ifi{};
  ifi.ifi_family = AF_BRIDGE;
  std::vector<uint8_t> linkBody(sizeof ifi);
  std::memcpy(linkBody.data(), &ifi, sizeof ifi);
  return entries && dumpRun(nl, RTM_GETLINK, linkBody, [&](const NetlinkMsg& m) {
           if (m.type == RTM_NEWLINK) portMsgParse(m.body, bridge, out);
         });
}

}  // namespace Platform
