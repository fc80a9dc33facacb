// The settable time source: the activity loop's stamp (system or virtual time) unless a test installs
// another.
#include "kernel/TimeSource.h"

#include "kernel/ActivityManager.h"

namespace Kiv {

namespace {
Seconds loopStamp() { return activityManager()->stampNow(); }
}  // namespace

namespace detail {
TimeSourceFn timeSource = &loopStamp;
}

void timeSourceIs(TimeSourceFn fn) { detail::timeSource = fn ? fn : &loopStamp; }

}  // namespace Kiv
