// The settable time source: the activity loop's stamp (system or virtual time) unless a test installs
// another.
#include "kernel/TimeSource.h"

namespace Kiv {

namespace detail {
TimeSourceFn timeSource = nullptr;
const double* stampAt = nullptr;

// An installed source is always called; the loop's stamp is read in place when it is kept somewhere.
void stampAtUpdate() { stampAt = timeSource || !processLoop ? nullptr : processLoop->stampAt(); }

Seconds timeSourceSlow() { return timeSource ? timeSource() : activityManager()->stampNow(); }
}  // namespace detail

void timeSourceIs(TimeSourceFn fn) {
  detail::timeSource = fn;
  detail::stampAtUpdate();
}

}  // namespace Kiv
