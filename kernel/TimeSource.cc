// The settable time source: the activity loop's clock (system or virtual time) unless a test installs
// another.
#include "kernel/TimeSource.h"

#include "kernel/ActivityManager.h"

namespace Kiv {

namespace {
Seconds loopNow() { return System::currentTime(); }
TimeSourceFn timeSource = &loopNow;
}  // namespace

void timeSourceIs(TimeSourceFn fn) { timeSource = fn ? fn : &loopNow; }

Seconds timeSourceNow() { return timeSource(); }

}  // namespace Kiv
