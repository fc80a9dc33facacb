// Reading RTM_NEWLINK and RTM_DELLINK in both their forms, and keeping the dumps in step with events.
//
// The kernel describes an interface twice. The generic form (family AF_UNSPEC) carries the name, the
// flags, the master, the driver kind and, for a bridge port, the port's attributes with its STP state;
// it alone decides that an interface exists. The bridge form (AF_BRIDGE) is sent for bridge ports and
// bridges; it is the only notice of an STP state change, its RTM_DELLINK means "no longer a port", and
// only a dump that asks for it carries the VLAN table. Since no event carries VLANs, a bridge event on
// a bridge with VLAN filtering asks for the bridge dump again.
//
// Dumps and events share the socket and are read in the order the kernel queued them, so the table
// always moves forward in time. When the kernel drops events for want of room, both dumps run again
// and what the links dump no longer shows is removed.
#include "platform/LinkWatcher.h"

#include <linux/if.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "kernel/ActivityManager.h"
#include "kernel/Trace.h"
#include "platform/NetlinkSocket.h"

namespace Platform {

namespace {

Kiv::TraceHandle linkTrace("IgmpSnoopingLink", false);

using Bytes = std::span<const uint8_t>;

std::string textOf(Bytes b) {
  std::string s(reinterpret_cast<const char*>(b.data()), b.size());
  s.resize(std::strlen(s.c_str()));
  return s;
}

std::optional<uint32_t> u32Of(Bytes b) {
  if (b.size() < 4) return std::nullopt;
  uint32_t v;
  std::memcpy(&v, b.data(), 4);
  return v;
}

std::optional<uint8_t> u8Of(Bytes b) {
  if (b.empty()) return std::nullopt;
  return b[0];
}

// The STP state among a bridge port's attributes.
std::optional<uint8_t> stpStateOf(Bytes portAttrs) {
  std::optional<uint8_t> state;
  netlinkAttrsEach(portAttrs, [&](uint16_t type, Bytes v) {
    if (type == IFLA_BRPORT_STATE) state = u8Of(v);
  });
  return state;
}

}  // namespace

// A range of VLANs comes as its first and last entry.
std::vector<LinkWatcher::BridgeVlan> LinkWatcher::bridgeVlansOf(Bytes afSpec) {
  std::vector<LinkWatcher::BridgeVlan> vlans;
  uint16_t rangeBegin = 0;
  netlinkAttrsEach(afSpec, [&](uint16_t type, Bytes v) {
    if (type != IFLA_BRIDGE_VLAN_INFO || v.size() < sizeof(bridge_vlan_info)) return;
    bridge_vlan_info info;
    std::memcpy(&info, v.data(), sizeof info);
    if (info.vid < 1 || info.vid > 4094) return;
    if (info.flags & BRIDGE_VLAN_INFO_RANGE_BEGIN) {
      rangeBegin = info.vid;
      return;
    }
    const uint16_t first = info.flags & BRIDGE_VLAN_INFO_RANGE_END && rangeBegin ? rangeBegin : info.vid;
    rangeBegin = 0;
    for (uint32_t vid = first; vid <= info.vid; ++vid) {
      vlans.push_back({static_cast<uint16_t>(vid), bool(info.flags & BRIDGE_VLAN_INFO_PVID),
                       bool(info.flags & BRIDGE_VLAN_INFO_UNTAGGED)});
    }
  });
  std::sort(vlans.begin(), vlans.end(), [](const auto& a, const auto& b) { return a.vid < b.vid; });
  vlans.erase(
      std::unique(vlans.begin(), vlans.end(), [](const auto& a, const auto& b) { return a.vid == b.vid; }),
      vlans.end());
  return vlans;
}

LinkWatcher::LinkWatcher() = default;

LinkWatcher::~LinkWatcher() {
  if (socket_) Kiv::activityManager()->fdDel(socket_->fd());
}

void LinkWatcher::start() {
  socket_ = std::make_unique<NetlinkSocket>(std::initializer_list<unsigned>{RTNLGRP_LINK});
  Kiv::activityManager()->fdIs(socket_->fd(), Kiv::Poller::readable, [this](unsigned) { handleReadable(); });
  linksDumpWanted_ = bridgeDumpWanted_ = true;
  doDumpNext();
}

const LinkWatcher::Link* LinkWatcher::link(int ifindex) const {
  auto it = links_.find(ifindex);
  return it == links_.end() ? nullptr : &it->second;
}

const LinkWatcher::Link* LinkWatcher::linkByName(const std::string& name) const {
  for (const auto& [ifindex, l] : links_) {
    if (l.name == name) return &l;
  }
  return nullptr;
}

void LinkWatcher::observerAdd(Observer* o) { observers_.push_back(o); }

void LinkWatcher::observerDel(Observer* o) { std::erase(observers_, o); }

void LinkWatcher::handleReadable() {
  if (!socket_->readAll([this](Bytes b) { handleNetlink(b); })) doResync();
}

void LinkWatcher::handleNetlink(Bytes bytes) {
  netlinkMsgsEach(bytes, [this](const NetlinkMsg& m) { handleMsg(m); });
}

void LinkWatcher::handleMsg(const NetlinkMsg& msg) {
  const bool ofDump = dump_ != Dump::none && msg.seq == dumpSeq_;
  if (ofDump && msg.flags & NLM_F_DUMP_INTR)
    (dump_ == Dump::links ? linksDumpWanted_ : bridgeDumpWanted_) = true;
  if (msg.type == NLMSG_DONE || msg.type == NLMSG_ERROR) {
    if (!ofDump) return;
    const auto error = u32Of(msg.body);
    if (msg.type == NLMSG_ERROR && error && *error) {
      const int err = -static_cast<int32_t>(*error);
      KIV_TRACE(linkTrace, 3, "Dump refused: " << std::strerror(err));
      // Busy: an abandoned dump is still being read out; ask again once this error is in.
      if (err == EBUSY) (dump_ == Dump::links ? linksDumpWanted_ : bridgeDumpWanted_) = true;
    }
    handleDumpDone();
    return;
  }
  if (msg.type != RTM_NEWLINK && msg.type != RTM_DELLINK) return;
  if (msg.body.size() < sizeof(ifinfomsg)) {
    ++malformed_;
    return;
  }
  ifinfomsg ifi;
  std::memcpy(&ifi, msg.body.data(), sizeof ifi);
  if (ifi.ifi_family == AF_BRIDGE) {
    handleBridgeMsg(msg, ofDump);
  } else {
    handleLinkMsg(msg, ofDump);
  }
}

void LinkWatcher::handleLinkMsg(const NetlinkMsg& msg, bool fromDump) {
  ifinfomsg ifi;
  std::memcpy(&ifi, msg.body.data(), sizeof ifi);
  if (msg.type == RTM_DELLINK) {
    doLinkDel(ifi.ifi_index);
    return;
  }
  Link l;
  l.ifindex = ifi.ifi_index;
  l.adminUp = ifi.ifi_flags & IFF_UP;
  l.operUp = ifi.ifi_flags & IFF_RUNNING;
  Bytes infoData, slaveData;
  netlinkAttrsEach(msg.body.subspan(NLMSG_ALIGN(sizeof(ifinfomsg))), [&](uint16_t type, Bytes v) {
    if (type == IFLA_IFNAME) {
      l.name = textOf(v);
    } else if (type == IFLA_MASTER) {
      l.master = static_cast<int>(u32Of(v).value_or(0));
    } else if (type == IFLA_LINKINFO) {
      netlinkAttrsEach(v, [&](uint16_t t, Bytes w) {
        if (t == IFLA_INFO_KIND) l.kind = textOf(w);
        if (t == IFLA_INFO_DATA) infoData = w;
        if (t == IFLA_INFO_SLAVE_KIND) l.bridgePort = textOf(w) == "bridge";
        if (t == IFLA_INFO_SLAVE_DATA) slaveData = w;
      });
    }
  });
  if (l.name.empty() || l.ifindex <= 0) {
    ++malformed_;
    return;
  }
  if (l.kind == "bridge") {
    netlinkAttrsEach(infoData, [&](uint16_t type, Bytes v) {
      if (type == IFLA_BR_VLAN_FILTERING) l.vlanFiltering = u8Of(v).value_or(0);
    });
  }
  if (l.bridgePort) l.stpState = stpStateOf(slaveData).value_or(0);
  const Link* before = link(l.ifindex);
  if (before && (l.bridgePort || l.kind == "bridge")) l.vlans = before->vlans;
  if (fromDump) seen_.push_back(l.ifindex);
  doLinkIs(before, l);
}

void LinkWatcher::handleBridgeMsg(const NetlinkMsg& msg, bool fromDump) {
  ifinfomsg ifi;
  std::memcpy(&ifi, msg.body.data(), sizeof ifi);
  const Link* before = link(ifi.ifi_index);
  if (!before) return;
  Link l = *before;
  if (msg.type == RTM_DELLINK) {
    l.bridgePort = false;
    l.stpState = 0;
    l.vlans.clear();
    doLinkIs(before, l);
    return;
  }
  Bytes afSpec;
  netlinkAttrsEach(msg.body.subspan(NLMSG_ALIGN(sizeof(ifinfomsg))), [&](uint16_t type, Bytes v) {
    if (type == IFLA_PROTINFO) l.stpState = stpStateOf(v).value_or(l.stpState);
    if (type == IFLA_AF_SPEC) afSpec = v;
  });
  if (fromDump && dump_ == Dump::bridgePorts) {
    l.vlans = bridgeVlansOf(afSpec);
  } else if (!fromDump && hasVlanFiltering(l)) {
    bridgeDumpWanted_ = true;
  }
  doLinkIs(before, l);
  doDumpNext();
}

bool LinkWatcher::hasVlanFiltering(const Link& l) const {
  if (l.kind == "bridge") return l.vlanFiltering;
  const Link* master = link(l.master);
  return master && master->kind == "bridge" && master->vlanFiltering;
}

void LinkWatcher::handleDumpDone() {
  const Dump done = dump_;
  dump_ = Dump::none;
  if (done == Dump::links && !linksDumpWanted_) {
    std::sort(seen_.begin(), seen_.end());
    std::vector<int> gone;
    for (const auto& [ifindex, l] : links_) {
      if (!std::binary_search(seen_.begin(), seen_.end(), ifindex)) gone.push_back(ifindex);
    }
    for (int ifindex : gone) doLinkDel(ifindex);
  }
  seen_.clear();
  if (!synced_ && done == Dump::bridgePorts && !linksDumpWanted_ && !bridgeDumpWanted_) {
    synced_ = true;
    KIV_TRACE(linkTrace, 5, "Interfaces read: " << links_.size());
    for (Observer* o : std::vector<Observer*>(observers_)) o->onLinksSynced();
  }
  doDumpNext();
}

void LinkWatcher::doDumpNext() {
  if (dump_ != Dump::none || !socket_) return;
  if (linksDumpWanted_) {
    linksDumpWanted_ = false;
    ifinfomsg ifi{};
    ifi.ifi_family = AF_UNSPEC;
    dumpSeq_ =
        socket_->request(RTM_GETLINK, NLM_F_DUMP, Bytes(reinterpret_cast<const uint8_t*>(&ifi), sizeof ifi));
    dump_ = Dump::links;
  } else if (bridgeDumpWanted_) {
    bridgeDumpWanted_ = false;
    struct {
      ifinfomsg ifi;
      nlattr attr;
      uint32_t mask;
    } req{};
    req.ifi.ifi_family = AF_BRIDGE;
    req.attr.nla_len = NLA_HDRLEN + sizeof(uint32_t);
    req.attr.nla_type = IFLA_EXT_MASK;
    req.mask = RTEXT_FILTER_BRVLAN_COMPRESSED;
    dumpSeq_ =
        socket_->request(RTM_GETLINK, NLM_F_DUMP, Bytes(reinterpret_cast<const uint8_t*>(&req), sizeof req));
    dump_ = Dump::bridgePorts;
  }
  if (dump_ != Dump::none && !dumpSeq_) {
    KIV_TRACE(linkTrace, 3, "Dump request refused: " << std::strerror(errno));
    dump_ = Dump::none;
  }
}

void LinkWatcher::doResync() {
  ++resyncs_;
  KIV_TRACE(linkTrace, 3, "Link events lost; reading all interfaces again");
  // A dump under way may have lost parts too: it is abandoned, and its late messages ignored.
  dump_ = Dump::none;
  seen_.clear();
  linksDumpWanted_ = bridgeDumpWanted_ = true;
  doDumpNext();
}

void LinkWatcher::doLinkIs(const Link* before, const Link& after) {
  if (before && *before == after) return;
  std::optional<Link> was;
  if (before) was = *before;
  Link& now = links_[after.ifindex];
  now = after;
  KIV_TRACE(linkTrace, 6,
            (was ? "Changed " : "Added ")
                << now.ifindex << " " << now.name << " up " << now.adminUp << " running " << now.operUp
                << " master " << now.master << " stp " << int(now.stpState));
  doNotify(was ? &*was : nullptr, &now);
}

void LinkWatcher::doLinkDel(int ifindex) {
  auto it = links_.find(ifindex);
  if (it == links_.end()) return;
  const Link was = std::move(it->second);
  links_.erase(it);
  KIV_TRACE(linkTrace, 6, "Removed " << was.ifindex << " " << was.name);
  doNotify(&was, nullptr);
}

void LinkWatcher::doNotify(const Link* before, const Link* after) {
  // An observer may add or remove observers while it is told.
  for (Observer* o : std::vector<Observer*>(observers_)) o->onLink(before, after);
}

}  // namespace Platform
