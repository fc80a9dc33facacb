// A clock wake-up bounds each turn's wait, so a condition that never comes true ends at the limit.
#include "tests/support/LoopWait.h"

#include <algorithm>

#include "kernel/ActivityManager.h"
#include "platform/EpollPoller.h"

namespace TestNet {

bool turnUntil(const std::function<bool()>& done, double limitSeconds) {
  Kiv::ActivityManager* am = Kiv::activityManager();
  if (!am->poller()) Platform::epollPollerInstall(am);
  Kiv::Clock::NotifieeConst wake;
  wake.notifierIs(am->clock());
  const Kiv::Seconds deadline = am->clock()->now() + limitSeconds;
  while (!done()) {
    const Kiv::Seconds now = am->clock()->now();
    if (now >= deadline) return false;
    wake.timeMinIs(std::min(deadline, now + 0.05));
    am->runOnce();
  }
  return true;
}

}  // namespace TestNet
