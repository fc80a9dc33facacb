// Choosing the bridge, and turning its ports' table entries into ports and VLAN memberships.
#include "platform/BridgeTopology.h"

#include <linux/if_bridge.h>

#include <algorithm>
#include <map>

#include "kernel/Trace.h"

namespace Platform {

namespace {
Kiv::TraceHandle topoTrace("IgmpSnoopingTopology", false);
constexpr uint16_t defaultVlan = 1;
}  // namespace

BridgeTopology::BridgeTopology(LinkWatcher& links, std::string bridgeName, Handler handler)
    : links_(links), bridgeName_(std::move(bridgeName)), handler_(std::move(handler)) {
  links_.observerAdd(this);
  doRecompute();
}

BridgeTopology::~BridgeTopology() { links_.observerDel(this); }

void BridgeTopology::onLink(const LinkWatcher::Link* before, const LinkWatcher::Link* after) {
  // Only the bridge and what is or was enslaved to it can change the view.
  auto concerns = [this](const LinkWatcher::Link* l) {
    return l && (view_.bridge == 0 || l->ifindex == view_.bridge || l->master == view_.bridge);
  };
  if (concerns(before) || concerns(after)) doRecompute();
}

int BridgeTopology::bridgeChosen() const {
  if (!links_.synced()) return 0;
  const LinkWatcher::Link* kept = links_.link(view_.bridge);
  if (kept && kept->kind == "bridge") return kept->ifindex;
  if (!bridgeName_.empty()) {
    const LinkWatcher::Link* named = links_.linkByName(bridgeName_);
    return named && named->kind == "bridge" ? named->ifindex : 0;
  }
  int only = 0;
  for (const auto& [ifindex, l] : links_.links()) {
    if (l.kind != "bridge") continue;
    if (only) return 0;
    only = ifindex;
  }
  return only;
}

void BridgeTopology::doRecompute() {
  View next = viewOf(links_.links(), bridgeChosen());
  if (next == view_) return;
  if (next.bridge != view_.bridge) {
    KIV_TRACE(topoTrace, 5, "Serving bridge " << next.bridgeName << " (" << next.bridge << ")");
  }
  view_ = std::move(next);
  handler_(view_);
}

BridgeTopology::View BridgeTopology::viewOf(const LinkWatcher::Table& links, int bridge) {
  View v;
  auto b = links.find(bridge);
  if (b == links.end()) return v;
  v.bridge = bridge;
  v.bridgeName = b->second.name;
  v.vlanFiltering = b->second.vlanFiltering;
  std::map<uint16_t, std::vector<Member>> vlans;
  for (const auto& [ifindex, l] : links) {
    if (l.master != bridge || !l.bridgePort) continue;
    Port p{ifindex,
           l.name,
           l.operUp,
           l.stpState,
           l.stpState == BR_STATE_DISABLED || l.stpState == BR_STATE_BLOCKING,
           0};
    if (!v.vlanFiltering) {
      p.pvid = defaultVlan;
      vlans[defaultVlan].push_back({ifindex, false});
    } else {
      for (const LinkWatcher::BridgeVlan& bv : l.vlans) {
        if (bv.pvid) p.pvid = bv.vid;
        vlans[bv.vid].push_back({ifindex, !bv.untagged});
      }
    }
    v.ports.push_back(std::move(p));
  }
  for (auto& [vid, members] : vlans) v.vlans.push_back({vid, std::move(members)});
  return v;
}

}  // namespace Platform
