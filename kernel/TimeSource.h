// The time that traces and the event-log limiter stamp with. The activity loop installs its clock's
// now here, so the ring trace and the limiter follow virtual time in tests and replays.
#pragma once

#include "kernel/Value.h"

namespace Kiv {

using TimeSourceFn = Seconds (*)();

// nullptr restores the default, the activity loop's clock.
void timeSourceIs(TimeSourceFn fn);
Seconds timeSourceNow();

}  // namespace Kiv
