// The time that traces and the event-log limiter stamp with. The activity loop's stamp is the default,
// so the ring trace and the limiter follow virtual time in tests and replays.
#pragma once

#include "kernel/ActivityManager.h"
#include "kernel/Value.h"

namespace Kiv {

using TimeSourceFn = Seconds (*)();

// nullptr restores the default, the activity loop's stamp.
void timeSourceIs(TimeSourceFn fn);

namespace detail {
// Null while the loop's stamp is the source.
extern TimeSourceFn timeSource;
}  // namespace detail

// Read by every trace statement: with the default source, a few loads and no call.
[[gnu::always_inline]] inline Seconds timeSourceNow() {
  return detail::timeSource ? detail::timeSource() : activityManager()->stampNow();
}

}  // namespace Kiv
