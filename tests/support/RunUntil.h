// Turns the process's loop until a condition holds: the bounded wait of tests that do real I/O.
#pragma once

#include <chrono>

#include "kernel/ActivityManager.h"

namespace TestSupport {

// False when seconds of wall time passed first. A turn waits at most 10 ms, so that a condition that
// no descriptor or timer of the loop announces is looked at again.
template <class Pred>
bool runUntil(Pred pred, double seconds = 10) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  Kiv::Clock::NotifieeConst tick;
  tick.notifierIs(Kiv::ActivityManagerConfig::clock());
  while (!pred()) {
    if (std::chrono::steady_clock::now() > end) return false;
    tick.timeMinIs(Kiv::System::currentTime() + 0.01);
    Kiv::activityManager()->runOnce();
  }
  return true;
}

}  // namespace TestSupport

namespace TestSupport {

// One turn of the loop that waits at most 10 ms.
inline void runTurn() {
  runUntil([n = 0]() mutable { return n++ == 1; });
}

}  // namespace TestSupport
