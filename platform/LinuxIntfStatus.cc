// Interface status from the link table.
#include "platform/LinuxIntfStatus.h"

#include <linux/if_bridge.h>

#include <utility>

namespace Platform {

namespace {
bool isLoopback(const LinkWatcher::Link& l) { return l.name == "lo"; }
Lomax::IntfId intfOf(const LinkWatcher::Link& l) { return Lomax::IntfId(Kiv::String(l.name)); }
}  // namespace

LinuxIntfStatus::LinuxIntfStatus(LinkWatcher& links, Kiv::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir,
                                 Kiv::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir,
                                 std::function<void()> synced)
    : links_(links),
      ethIntfStatusDir_(std::move(ethIntfStatusDir)),
      deviceIntfStatusDir_(std::move(deviceIntfStatusDir)),
      synced_(std::move(synced)) {
  for (const auto& [ifindex, l] : links_.links()) doLinkIs(l);
  links_.observerAdd(this);
  if (links_.synced()) onLinksSynced();
}

void LinuxIntfStatus::onLinksSynced() {
  if (synced_) std::exchange(synced_, {})();
}

LinuxIntfStatus::~LinuxIntfStatus() { links_.observerDel(this); }

bool LinuxIntfStatus::forwarding(const LinkWatcher::Link& l) {
  return !l.bridgePort || (l.stpState != BR_STATE_DISABLED && l.stpState != BR_STATE_BLOCKING);
}

void LinuxIntfStatus::onLink(const LinkWatcher::Link* before, const LinkWatcher::Link* after) {
  if (before && (!after || before->name != after->name)) doLinkDel(*before);
  if (after) doLinkIs(*after);
}

void LinuxIntfStatus::doLinkIs(const LinkWatcher::Link& l) {
  if (isLoopback(l) || l.name.empty()) return;
  const Lomax::IntfId intf = intfOf(l);
  Kiv::Ptr<Interface::EthIntfStatus> s = ethIntfStatusDir_->intfStatusIs(intf);
  s->linkUpIs(l.operUp);
  s->forwardingIs(forwarding(l));
  deviceIntfStatusDir_->intfIs(intf, true);
}

void LinuxIntfStatus::doLinkDel(const LinkWatcher::Link& l) {
  if (isLoopback(l) || l.name.empty()) return;
  const Lomax::IntfId intf = intfOf(l);
  deviceIntfStatusDir_->intfDel(intf);
  ethIntfStatusDir_->intfStatusDel(intf);
}

}  // namespace Platform
