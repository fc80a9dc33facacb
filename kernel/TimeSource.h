// The time that traces and the event-log limiter stamp with. The activity loop's stamp is the default,
// so the ring trace and the limiter follow virtual time in tests and replays.
#pragma once

#include "kernel/Value.h"

namespace Kiv {

using TimeSourceFn = Seconds (*)();

// nullptr restores the default, the activity loop's stamp.
void timeSourceIs(TimeSourceFn fn);

namespace detail {
extern TimeSourceFn timeSource;
}

// Read by every trace statement, so it is one indirect call.
inline Seconds timeSourceNow() { return detail::timeSource(); }

}  // namespace Kiv
