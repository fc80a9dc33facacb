// The interface status directories filled from rtnetlink: every interface of the namespace but the
// loopback is a device, with its link state and whether the bridge's spanning tree lets it forward.
// The agent's interface names are the Linux names; a rename is one interface going and another coming.
#pragma once

#include <functional>

#include "glue/EthIntfStatusDir.h"
#include "platform/LinkWatcher.h"

namespace Platform {

class LinuxIntfStatus : public LinkWatcher::Observer {
 public:
  // Fills both directories from what the watcher holds now and follows it from then on. synced runs
  // once the directories hold the first full reading of the interfaces (at once if they do already).
  LinuxIntfStatus(LinkWatcher& links, Kiv::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir,
                  Kiv::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir,
                  std::function<void()> synced = {});
  ~LinuxIntfStatus() override;
  LinuxIntfStatus(const LinuxIntfStatus&) = delete;
  LinuxIntfStatus& operator=(const LinuxIntfStatus&) = delete;

  // A port that STP keeps blocking or disabled does not forward; learning and listening ports count as
  // forwarding, as the bridge's own view of its ports does.
  static bool forwarding(const LinkWatcher::Link& l);

 private:
  void onLink(const LinkWatcher::Link* before, const LinkWatcher::Link* after) override;
  void onLinksSynced() override;
  void doLinkIs(const LinkWatcher::Link& l);
  void doLinkDel(const LinkWatcher::Link& l);

  LinkWatcher& links_;
  Kiv::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir_;
  Kiv::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir_;
  std::function<void()> synced_;
};

}  // namespace Platform
