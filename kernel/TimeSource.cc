// The settable time source; the system clock until someone installs another.
#include "kernel/TimeSource.h"

#include <chrono>

namespace Kiv {

namespace {

Seconds systemNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

TimeSourceFn timeSource = &systemNow;

}  // namespace

void timeSourceIs(TimeSourceFn fn) { timeSource = fn ? fn : &systemNow; }

Seconds timeSourceNow() { return timeSource(); }

}  // namespace Kiv
