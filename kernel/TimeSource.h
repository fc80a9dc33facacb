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

namespace detail {
Seconds timeSourceSlow();
}

// Read by every trace statement: inside a turn of the loop, or under virtual time, one load through
// stampAt; otherwise a call.
[[gnu::always_inline]] inline Seconds timeSourceNow() {
  if (const Seconds* at = detail::stampAt) [[likely]]
    return *at;
  return detail::timeSourceSlow();
}

}  // namespace Kiv
