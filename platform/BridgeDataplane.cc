// The data-plane writer: reactors on the published and the core's status mark Ethernet groups dirty;
// one deferred flush per loop turn computes each dirty group's entries, sends the differences without
// waiting for acknowledgements (rtnetlink only answers failures then), and reads the failures back.
//
// The entries of an Ethernet group G on a port are the core's IP groups that map to G and have that
// port among their interfaces, while the published VlanStatus names the port under G. Flooding is done
// with router ports: every port of the bridge made a router port gets all multicast, and the bridge's
// querier and snooping stay as they are, so nothing reaches the bridge's own stack.
#include "platform/BridgeDataplane.h"

#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>

#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"
#include "net/IpToEthGroupMap.h"

namespace Platform {

using Bridging::IgmpSnooping::EthernetGroup;
using Bridging::IgmpSnooping::IgmpContextStatus;
using Bridging::IgmpSnooping::IgmpGroup;
using Bridging::IgmpSnooping::IgmpProtocolStatus;
using Bridging::IgmpSnooping::IpToEthGroupMap;
using Bridging::IgmpSnooping::Status;
using Bridging::IgmpSnooping::VlanStatus;
using Lomax::EthAddr;
using Lomax::IntfId;
using Lomax::IpAddr;

Kiv::LogHandle DATAPLANE_HASH_FULL(
    "DATAPLANE_HASH_FULL", Kiv::logWarning,
    "Bridge %s holds %s multicast groups, its limit: further groups reach router ports only",
    "The bridge's multicast database is full. Entries for further groups are not added, since the "
    "bridge would turn multicast snooping off and flood every group; those groups are not forwarded "
    "to their members until others leave.",
    "Lower the VLANs' group limits, or raise them together with the bridge's mcast_hash_max.", 60.0, 1.0, 0);

Kiv::LogHandle DATAPLANE_SNOOPING_RESTORED(
    "DATAPLANE_SNOOPING_RESTORED", Kiv::logWarning,
    "Bridge %s had turned multicast snooping off; turned it back on and read its database again",
    "The bridge's multicast database overflowed and the kernel turned snooping off, which floods all "
    "multicast. The agent has turned snooping on again and reprogrammed the database.",
    "Check what else adds multicast entries to the bridge.", 60.0, 1.0, 0);

Kiv::LogHandle DATAPLANE_PROGRAM_FAILED("DATAPLANE_PROGRAM_FAILED", Kiv::logError, "Bridge %s: %s failed: %s",
                                        "The bridge refused a change of its multicast forwarding.",
                                        "Check the bridge with `bridge mdb show` and the agent's "
                                        "`snoopctl show dataplane`.",
                                        60.0, 1.0, Kiv::logIgnoreArgs);

namespace {

uint64_t ethKey(EthAddr e) { return uint64_t{e.word(0)} << 32 | uint64_t{e.word(1)} << 16 | e.word(2); }
EthAddr ethOf(uint64_t k) {
  return EthAddr(static_cast<uint16_t>(k >> 32), static_cast<uint16_t>(k >> 16), static_cast<uint16_t>(k));
}
uint64_t ethKeyOfGroup(uint32_t group) { return ethKey(IpToEthGroupMap(IpAddr::fromHost(group))); }

// Long enough for the kernel to free the groups whose last entry went.
constexpr Kiv::Seconds retryDelay = 0.1;

// The bridge floods 224.0.0.0/24 always and takes no entries for it.
bool programmable(IpAddr g) { return g.isMulticast() && !g.isReservedMulticast(); }

std::string nameOf(int ifindex) {
  char buf[IF_NAMESIZE] = {};
  return if_indextoname(static_cast<unsigned>(ifindex), buf) ? std::string(buf) : std::to_string(ifindex);
}

std::string ipText(uint32_t group) {
  return std::to_string(group >> 24) + "." + std::to_string(group >> 16 & 255) + "." +
         std::to_string(group >> 8 & 255) + "." + std::to_string(group & 255);
}

// Calls fn for each IP group behind one published port of an Ethernet group. addrGroups are the groups
// of that Ethernet address the core has, and those the peer has members of (peerGroupList). Behind the
// port are the core's groups with members on it; a port that has none is published for the peer, and
// then every group of the address is behind it, since which of them the peer has there is not known.
void groupsBehind(const IgmpContextStatus& core, const std::vector<IpAddr>& addrGroups, IntfId port,
                  const std::function<void(IpAddr)>& fn) {
  bool local = false;
  for (IpAddr g : addrGroups) {
    auto grp = core.group(g);
    if (grp && grp->intf(port) && programmable(g)) {
      local = true;
      fn(g);
    }
  }
  if (local) return;
  for (IpAddr g : addrGroups)
    if (programmable(g)) fn(g);
}

}  // namespace

// --- reactors ----------------------------------------------------------------------------------------

class BridgeDataplane::StatusReactor : public Status::NotifieeConst {
 public:
  explicit StatusReactor(BridgeDataplane* dp) : dp_(dp) {}
  void onVlanStatus(const Bridging::VlanId& vid) override {
    if (vid.value() == dp_->settings_.vlan) onVlanStatuskivImmediate();
  }
  void onVlanStatuskivImmediate() override {
    dp_->vlanStatusIs(notifier()->vlanStatus(Bridging::VlanId(dp_->settings_.vlan)));
  }

 private:
  BridgeDataplane* dp_;
};

class BridgeDataplane::ProtocolReactor : public IgmpProtocolStatus::NotifieeConst {
 public:
  explicit ProtocolReactor(BridgeDataplane* dp) : dp_(dp) {}
  void onContextStatus(const Bridging::VlanId& vid) override {
    if (vid.value() == dp_->settings_.vlan) onContextStatuskivImmediate();
  }
  void onContextStatuskivImmediate() override {
    dp_->contextIs(notifier()->contextStatus(Bridging::VlanId(dp_->settings_.vlan)));
  }

 private:
  BridgeDataplane* dp_;
};

class BridgeDataplane::VlanReactor : public VlanStatus::NotifieeConst {
 public:
  explicit VlanReactor(BridgeDataplane* dp) : dp_(dp) {}
  void onEthGroup(const EthAddr& eth) override { dp_->handleEthGroup(eth); }
  void onEthGroupkivImmediate() override {
    std::vector<uint64_t> keys;
    for (const auto& [k, r] : dp_->ethReactors_) keys.push_back(k);
    for (const auto& g : notifier()->ethGroupIter()) keys.push_back(ethKey(g.key()));
    for (uint64_t k : keys) dp_->handleEthGroup(ethOf(k));
  }
  void onRouterIntf(const IntfId&) override { dp_->routersDirtyIs(); }
  void onRouterIntfkivImmediate() override { dp_->routersDirtyIs(); }
  void onUseVlanFloodset() override { dp_->routersDirtyIs(); }

 private:
  BridgeDataplane* dp_;
};

class BridgeDataplane::EthGroupReactor : public EthernetGroup::NotifieeConst {
 public:
  explicit EthGroupReactor(BridgeDataplane* dp) : dp_(dp) {}
  void onGroupIntf(const IntfId&) override { dp_->dirtyEthIs(notifier()->addr()); }
  void onGroupIntfkivImmediate() override { dp_->dirtyEthIs(notifier()->addr()); }

 private:
  BridgeDataplane* dp_;
};

class BridgeDataplane::ContextReactor : public IgmpContextStatus::NotifieeConst {
 public:
  explicit ContextReactor(BridgeDataplane* dp) : dp_(dp) {}
  void onGroup(const IpAddr& g) override { dp_->handleGroup(g); }
  void onGroupkivImmediate() override { dp_->handleAllGroups(); }
  void onPeerGroupList(const IpAddr& g) override { dp_->handlePeerGroup(g); }
  void onPeerGroupListkivImmediate() override {
    std::vector<IpAddr> groups;
    for (const auto& [eth, set] : dp_->peerGroupsOfEth_)
      for (uint32_t g : set) groups.push_back(IpAddr::fromHost(g));
    for (const auto& g : notifier()->peerGroupListIter()) groups.push_back(g.key());
    for (IpAddr g : groups) dp_->handlePeerGroup(g);
  }

 private:
  BridgeDataplane* dp_;
};

class BridgeDataplane::GroupReactor : public IgmpGroup::NotifieeConst {
 public:
  explicit GroupReactor(BridgeDataplane* dp) : dp_(dp) {}
  void onIntf(const IntfId&) override { onIntfkivImmediate(); }
  void onIntfkivImmediate() override { dp_->dirtyEthIs(IpToEthGroupMap(notifier()->addr())); }

 private:
  BridgeDataplane* dp_;
};

class BridgeDataplane::RetryReactor : public Kiv::Clock::NotifieeConst {
 public:
  explicit RetryReactor(BridgeDataplane* dp) : dp_(dp) {}
  void onTime() override { dp_->handleRetry(); }

 private:
  BridgeDataplane* dp_;
};

// --- following the published state ----------------------------------------------------------------

BridgeDataplane::BridgeDataplane(LinkWatcher& links, Settings settings, const Kiv::Ptr<Status const>& status,
                                 const Kiv::Ptr<IgmpProtocolStatus const>& protocol)
    : links_(links),
      settings_(std::move(settings)),
      nl_(std::make_unique<NetlinkSocket>(std::initializer_list<unsigned>{})) {
  hashLimit_ = settings_.hashMax;
  vlanReactor_ = Kiv::make<VlanReactor>(this);
  contextReactor_ = Kiv::make<ContextReactor>(this);
  statusReactor_ = Kiv::make<StatusReactor>(this);
  protocolReactor_ = Kiv::make<ProtocolReactor>(this);
  retryReactor_ = Kiv::make<RetryReactor>(this);
  retryReactor_->notifierIs(Kiv::activityManager()->clock());
  statusReactor_->notifierIs(status);
  protocolReactor_->notifierIs(protocol);
  links_.observerAdd(this);
  if (links_.synced()) onLinksSynced();
}

BridgeDataplane::~BridgeDataplane() {
  *alive_ = false;
  links_.observerDel(this);
  statusReactor_->notifierIs(nullptr);
  protocolReactor_->notifierIs(nullptr);
  vlanReactor_->notifierIs(nullptr);
  contextReactor_->notifierIs(nullptr);
  retryReactor_->notifierIs(nullptr);
  for (auto& [k, r] : ethReactors_) r->notifierIs(nullptr);
  for (auto& [k, r] : groupReactors_) r->notifierIs(nullptr);
  // Errors of the last requests are read so that nothing is left unsaid in the counters; what was
  // programmed stays in the bridge.
  doReadErrors();
}

void BridgeDataplane::vlanStatusIs(Kiv::Ptr<VlanStatus const> v) {
  if (v == vlanReactor_->notifier()) return;
  // The groups of the old status lose their entries unless the new one has them too.
  dirtyAllIs();
  routersDirtyIs();
  for (auto& [k, r] : ethReactors_) r->notifierIs(nullptr);
  ethReactors_.clear();
  vlanReactor_->notifierIs(v);
}

void BridgeDataplane::contextIs(Kiv::Ptr<IgmpContextStatus const> c) {
  if (c == contextReactor_->notifier()) return;
  dirtyAllIs();
  for (auto& [k, r] : groupReactors_) r->notifierIs(nullptr);
  groupReactors_.clear();
  groupsOfEth_.clear();
  peerGroupsOfEth_.clear();
  contextReactor_->notifierIs(c);
}

void BridgeDataplane::handleEthGroup(EthAddr eth) {
  const auto& vlan = vlanReactor_->notifier();
  const uint64_t k = ethKey(eth);
  auto g = vlan ? vlan->ethGroup(eth) : Kiv::Ptr<EthernetGroup const>();
  auto it = ethReactors_.find(k);
  if (g && it == ethReactors_.end()) {
    auto r = Kiv::make<EthGroupReactor>(this);
    ethReactors_.emplace(k, r);
    r->notifierIs(g);
  } else if (g && it->second->notifier() != g) {
    it->second->notifierIs(g);
  } else if (!g && it != ethReactors_.end()) {
    it->second->notifierIs(nullptr);
    ethReactors_.erase(it);
  }
  dirtyEthIs(eth);
}

void BridgeDataplane::handleGroup(IpAddr group) {
  const auto& core = contextReactor_->notifier();
  auto g = core ? core->group(group) : Kiv::Ptr<IgmpGroup const>();
  const uint64_t k = ethKey(IpToEthGroupMap(group));
  auto it = groupReactors_.find(group.value());
  if (g) {
    groupsOfEth_[k].insert(group.value());
    if (it == groupReactors_.end())
      it = groupReactors_.emplace(group.value(), Kiv::make<GroupReactor>(this)).first;
    it->second->notifierIs(g);
  } else {
    auto e = groupsOfEth_.find(k);
    if (e != groupsOfEth_.end() && e->second.erase(group.value()) && e->second.empty()) groupsOfEth_.erase(e);
    if (it != groupReactors_.end()) {
      it->second->notifierIs(nullptr);
      groupReactors_.erase(it);
    }
  }
  dirtyEthIs(IpToEthGroupMap(group));
}

void BridgeDataplane::handleAllGroups() {
  const auto& core = contextReactor_->notifier();
  std::vector<IpAddr> groups;
  for (const auto& [g, r] : groupReactors_) groups.push_back(IpAddr::fromHost(g));
  if (core)
    for (const auto& g : core->groupIter()) groups.push_back(g.key());
  for (IpAddr g : groups) handleGroup(g);
}

void BridgeDataplane::handlePeerGroup(IpAddr group) {
  const auto& core = contextReactor_->notifier();
  const uint64_t k = ethKey(IpToEthGroupMap(group));
  if (core && core->peerGroupList(group)) {
    peerGroupsOfEth_[k].insert(group.value());
  } else if (auto e = peerGroupsOfEth_.find(k); e != peerGroupsOfEth_.end()) {
    if (e->second.erase(group.value()) && e->second.empty()) peerGroupsOfEth_.erase(e);
  }
  dirtyEthIs(IpToEthGroupMap(group));
}

void BridgeDataplane::dirtyEthIs(EthAddr eth) {
  dirtyEths_.insert(ethKey(eth));
  doScheduleFlush();
}

bool BridgeDataplane::converged() const {
  return bridge_ != 0 && synced_ && !flushPending_ && retryReactor_->timeMin() == Kiv::infinity;
}

void BridgeDataplane::handleRetry() {
  for (uint64_t eth : refusedEths_) dirtyEths_.insert(eth);
  refusedEths_.clear();
  doScheduleFlush();
}

void BridgeDataplane::dirtyAllIs() {
  for (const auto& [k, v] : held_) dirtyEths_.insert(k);
  for (const auto& [k, v] : groupsOfEth_) dirtyEths_.insert(k);
  for (const auto& [k, v] : peerGroupsOfEth_) dirtyEths_.insert(k);
  for (const auto& [k, v] : ethReactors_) dirtyEths_.insert(k);
  doScheduleFlush();
}

void BridgeDataplane::routersDirtyIs() {
  // Router states are compared in every flush; this only asks for one.
  doScheduleFlush();
}

void BridgeDataplane::doScheduleFlush() {
  flushPending_ = true;
  if (flushScheduled_) return;
  flushScheduled_ = true;
  Kiv::activityManager()->deferIs([alive = alive_, this] {
    if (*alive) flush();
  });
}

// --- the bridge ---------------------------------------------------------------------------------------

void BridgeDataplane::onLinksSynced() {
  for (const auto& [ifindex, link] : links_.links()) {
    if (link.kind != "bridge") continue;
    if (!settings_.bridgeName.empty() && link.name != settings_.bridgeName) continue;
    bridge_ = ifindex;
    vid_ = link.vlanFiltering ? settings_.vlan : 0;
    synced_ = false;
    resyncWanted_ = true;
    doScheduleFlush();
    return;
  }
}

void BridgeDataplane::onLink(const LinkWatcher::Link* before, const LinkWatcher::Link* after) {
  if (!links_.synced()) return;
  if (!bridge_) {
    if (after && after->kind == "bridge") onLinksSynced();
    return;
  }
  if (!after && before->ifindex == bridge_) {
    bridge_ = 0;
    synced_ = false;
    held_.clear();
    heldGroups_.clear();
    routerHeld_.clear();
    return;
  }
  const bool wasPort = before && before->master == bridge_;
  const bool isPort = after && after->master == bridge_;
  if (isPort && !wasPort) {
    // A new port: read the bridge again, since a port that left and came back lost its entries.
    resyncWanted_ = true;
    doScheduleFlush();
  } else if (wasPort && !isPort) {
    // The bridge deleted the port's entries with it.
    for (auto& [k, entries] : held_) {
      for (auto e = entries.begin(); e != entries.end();) {
        if (e->first != before->ifindex) {
          ++e;
          continue;
        }
        if (--heldGroups_[e->second] == 0) heldGroups_.erase(e->second);
        e = entries.erase(e);
      }
    }
    routerHeld_.erase(before->ifindex);
    routersDirtyIs();
  } else if (isPort && before->name != after->name) {
    dirtyAllIs();
    routersDirtyIs();
  }
}

int BridgeDataplane::portOf(IntfId intf) const {
  const LinkWatcher::Link* l = links_.linkByName(intf.stringValue().stdString());
  return l && l->master == bridge_ ? l->ifindex : 0;
}

std::vector<int> BridgeDataplane::bridgePorts() const {
  std::vector<int> ports;
  for (const auto& [ifindex, link] : links_.links())
    if (link.master == bridge_ && link.bridgePort) ports.push_back(ifindex);
  return ports;
}

std::set<BridgeDataplane::Entry> BridgeDataplane::desiredOf(uint64_t eth) const {
  std::set<Entry> out;
  const auto& vlan = vlanReactor_->notifier();
  const auto& core = contextReactor_->notifier();
  if (!vlan || !core) return out;
  auto eg = vlan->ethGroup(ethOf(eth));
  if (!eg) return out;
  std::set<uint32_t> both;
  for (const auto* byEth : {&groupsOfEth_, &peerGroupsOfEth_})
    if (auto groups = byEth->find(eth); groups != byEth->end())
      both.insert(groups->second.begin(), groups->second.end());
  std::vector<IpAddr> addrGroups;
  for (uint32_t g : both) addrGroups.push_back(IpAddr::fromHost(g));
  for (const auto& i : eg->groupIntfIter()) {
    if (!*i.value()) continue;
    const int port = portOf(i.key());
    if (port) groupsBehind(*core, addrGroups, i.key(), [&](IpAddr g) { out.insert({port, g.value()}); });
  }
  return out;
}

std::map<int, uint8_t> BridgeDataplane::desiredRouters() const {
  std::map<int, uint8_t> out;
  const auto& vlan = vlanReactor_->notifier();
  const bool flood = !vlan || vlan->useVlanFloodset();
  for (int port : bridgePorts()) {
    const bool router = flood || vlan->routerIntf(IntfId(Kiv::String(links_.link(port)->name)));
    out[port] = router ? MDB_RTR_TYPE_PERM : MDB_RTR_TYPE_DISABLED;
  }
  return out;
}

void BridgeDataplane::heldAdd(uint64_t eth, Entry e) {
  if (held_[eth].insert(e).second) ++heldGroups_[e.second];
}

void BridgeDataplane::heldDel(uint64_t eth, Entry e) {
  auto it = held_.find(eth);
  if (it == held_.end() || !it->second.erase(e)) return;
  if (it->second.empty()) held_.erase(it);
  auto g = heldGroups_.find(e.second);
  if (g != heldGroups_.end() && --g->second == 0) heldGroups_.erase(g);
}

void BridgeDataplane::send(uint16_t type, const std::vector<uint8_t>& body, uint64_t eth, Entry entry,
                           bool add) {
  // Replace makes an add of an entry the bridge has already (a restart's) a success.
  const uint16_t flags = type == RTM_NEWMDB ? NLM_F_CREATE | NLM_F_REPLACE : 0;
  const uint32_t seq = nl_->request(type, flags, body);
  ++counters_.requests;
  if (seq == 0) {
    ++counters_.failures;
    resyncWanted_ = true;
    return;
  }
  sent_[seq] = Sent{eth, entry, add, type};
  // Failures queue in the socket's buffer: read them before it could fill.
  if (sent_.size() >= 1024) doReadErrors();
}

void BridgeDataplane::doReadErrors() {
  bool snoopingOff = false;
  const bool intact = nl_->readAll([&](std::span<const uint8_t> datagram) {
    netlinkMsgsEach(datagram, [&](const NetlinkMsg& m) {
      const int err = netlinkErrorOf(m);
      auto it = sent_.find(m.seq);
      if (err <= 0 || it == sent_.end()) return;
      const Sent s = it->second;
      if (s.type == RTM_SETLINK) {
        routerHeld_.erase(s.entry.first);
        ++counters_.failures;
        Kiv::log(DATAPLANE_PROGRAM_FAILED, nameOf(bridge_), "router state of " + nameOf(s.entry.first),
                 std::strerror(err));
        return;
      }
      if (s.add) {
        heldDel(s.eth, s.entry);
        if (err == E2BIG) {
          snoopingOff = true;
          return;
        }
        ++counters_.failures;
        Kiv::log(DATAPLANE_PROGRAM_FAILED, nameOf(bridge_),
                 "entry " + nameOf(s.entry.first) + " " + ipText(s.entry.second), std::strerror(err));
      }
      // A removal that fails finds the entry gone already (EINVAL is how the bridge says so).
    });
  });
  sent_.clear();
  if (!intact) resyncWanted_ = true;
  if (snoopingOff) {
    // The kernel turned snooping off at the overflow: turn it on and start again from the bridge.
    const BridgeOption on{IFLA_BR_MCAST_SNOOPING, 1, 1};
    netlinkRequestAcked(*nl_, RTM_NEWLINK, bridgeOptionsBody(bridge_, std::span(&on, 1)));
    Kiv::log(DATAPLANE_SNOOPING_RESTORED, nameOf(bridge_));
    resyncWanted_ = true;
    hashOverflowed_ = true;
  }
  if (resyncWanted_) doScheduleFlush();
}

void BridgeDataplane::doResync() {
  doReadErrors();
  resyncWanted_ = false;
  MdbContents c;
  if (!mdbDump(*nl_, bridge_, c)) {
    ++counters_.failures;
    Kiv::log(DATAPLANE_PROGRAM_FAILED, nameOf(bridge_), "reading the multicast database",
             std::strerror(errno));
    resyncWanted_ = true;
    return;
  }
  ++counters_.resyncs;
  held_.clear();
  heldGroups_.clear();
  routerHeld_.clear();
  for (const MdbEntry& e : c.entries) {
    const LinkWatcher::Link* port = links_.link(e.port);
    if (e.permanent && e.vid == vid_ && port && port->master == bridge_) {
      heldAdd(ethKeyOfGroup(e.group), {e.port, e.group});
    } else {
      // The kernel's own entries count against its limit as well.
      ++heldGroups_[e.group];
    }
  }
  for (const auto& [port, setting] : c.routerPorts) routerHeld_[port] = setting;
  if (hashOverflowed_) {
    // Whatever else holds the rest of the kernel's table, the groups there now are what fits.
    hashLimit_ = std::min<uint32_t>(hashLimit_, static_cast<uint32_t>(heldGroups_.size()));
    hashOverflowed_ = false;
  }
  synced_ = true;
  dirtyAllIs();
}

void BridgeDataplane::flush() {
  flushScheduled_ = false;
  if (!bridge_) return;
  if (resyncWanted_ || !synced_) doResync();
  if (!synced_) return;
  flushPending_ = false;
  const std::map<int, uint8_t> routers = desiredRouters();
  auto routerSet = [&](int port, uint8_t state) {
    routerHeld_[port] = state;
    ++counters_.routerChanges;
    send(RTM_SETLINK, portRouterBody(port, state), 0, {port, 0}, false);
  };
  // Ports that become router ports (all of them when flooding starts) before any entry goes.
  for (const auto& [port, state] : routers) {
    auto held = routerHeld_.find(port);
    if (state == MDB_RTR_TYPE_PERM && (held == routerHeld_.end() || held->second != state))
      routerSet(port, state);
  }
  std::vector<std::pair<uint64_t, std::set<Entry>>> work;
  work.reserve(dirtyEths_.size());
  for (uint64_t eth : dirtyEths_) work.emplace_back(eth, desiredOf(eth));
  dirtyEths_.clear();
  bool refused = false;
  for (const auto& [eth, want] : work) {
    // A pointer, not an iterator: adding a group's first entry may rehash the map.
    const auto found = held_.find(eth);
    const std::set<Entry>* held = found == held_.end() ? nullptr : &found->second;
    for (const Entry& e : want) {
      if (held && held->count(e)) continue;
      if (!heldGroups_.count(e.second) && heldGroups_.size() >= hashLimit_) {
        // One group more would overflow the bridge's table and turn its snooping off.
        ++counters_.hashRefused;
        refusedEths_.insert(eth);
        refused = true;
        continue;
      }
      heldAdd(eth, e);
      ++counters_.entriesAdded;
      send(RTM_NEWMDB, mdbEntryBody(bridge_, MdbEntry{e.first, e.second, vid_, true}), eth, e, true);
    }
  }
  if (refused) Kiv::log(DATAPLANE_HASH_FULL, nameOf(bridge_), std::to_string(hashLimit_));
  const size_t groupsBefore = heldGroups_.size();
  for (const auto& [eth, want] : work) {
    const auto held = held_.find(eth);
    if (held == held_.end()) continue;
    std::vector<Entry> gone;
    for (const Entry& e : held->second)
      if (!want.count(e)) gone.push_back(e);
    for (const Entry& e : gone) {
      heldDel(eth, e);
      ++counters_.entriesRemoved;
      send(RTM_DELMDB, mdbEntryBody(bridge_, MdbEntry{e.first, e.second, vid_, true}), eth, e, false);
    }
  }
  // Ports that stop being router ports (all but the routers when flooding ends) after the entries.
  for (const auto& [port, state] : routers) {
    auto held = routerHeld_.find(port);
    if (state != MDB_RTR_TYPE_PERM && (held == routerHeld_.end() || held->second != state))
      routerSet(port, state);
  }
  doReadErrors();
  // Groups that went made room for those left out.
  if (heldGroups_.size() < groupsBefore && !refusedEths_.empty())
    retryReactor_->timeMinIs(Kiv::activityManager()->clock()->now() + retryDelay);
}

// --- comparing --------------------------------------------------------------------------------------

DataplaneView dataplanePublished(const VlanStatus* vlan, const IgmpContextStatus* core,
                                 const std::vector<std::string>& bridgePorts) {
  DataplaneView v;
  const bool flood = !vlan || vlan->useVlanFloodset();
  const std::set<std::string> ports(bridgePorts.begin(), bridgePorts.end());
  for (const std::string& p : bridgePorts)
    if (flood || vlan->routerIntf(IntfId(Kiv::String(p)))) v.routerPorts.insert(p);
  if (!vlan || !core) return v;
  std::map<uint64_t, std::set<IpAddr>> addrGroups;
  for (const auto& g : core->groupIter()) addrGroups[ethKey(IpToEthGroupMap(g.key()))].insert(g.key());
  for (const auto& g : core->peerGroupListIter())
    if (*g.value()) addrGroups[ethKey(IpToEthGroupMap(g.key()))].insert(g.key());
  for (const auto& eg : vlan->ethGroupIter()) {
    const auto& set = addrGroups[ethKey(eg.key())];
    const std::vector<IpAddr> groups(set.begin(), set.end());
    for (const auto& i : eg->groupIntfIter()) {
      std::string name = i.key().stringValue().stdString();
      if (!*i.value() || !ports.count(name)) continue;
      groupsBehind(*core, groups, i.key(), [&](IpAddr g) { v.entries.insert({name, g}); });
    }
  }
  return v;
}

DataplaneView dataplaneHeld(const std::string& bridgeName, uint16_t vid) {
  const int bridge = static_cast<int>(if_nametoindex(bridgeName.c_str()));
  if (!bridge) throw Kiv::Exception("no bridge " + bridgeName);
  NetlinkSocket nl({});
  MdbContents c;
  if (!mdbDump(nl, bridge, c)) throw Kiv::Exception("cannot read the multicast database of " + bridgeName);
  DataplaneView v;
  for (const MdbEntry& e : c.entries)
    if (e.vid == vid && e.port != bridge) v.entries.insert({nameOf(e.port), IpAddr::fromHost(e.group)});
  for (const auto& [port, setting] : c.routerPorts)
    if (setting == MDB_RTR_TYPE_PERM) v.routerPorts.insert(nameOf(port));
  return v;
}

std::vector<std::string> dataplaneDifferences(const DataplaneView& published, const DataplaneView& held) {
  std::vector<std::string> out;
  auto entryText = [](const std::pair<std::string, IpAddr>& e) {
    return e.first + " " + ipText(e.second.value());
  };
  for (const auto& e : published.entries)
    if (!held.entries.count(e)) out.push_back("missing entry " + entryText(e));
  for (const auto& e : held.entries)
    if (!published.entries.count(e)) out.push_back("extra entry " + entryText(e));
  for (const auto& p : published.routerPorts)
    if (!held.routerPorts.count(p)) out.push_back("missing router port " + p);
  for (const auto& p : held.routerPorts)
    if (!published.routerPorts.count(p)) out.push_back("extra router port " + p);
  return out;
}

}  // namespace Platform
