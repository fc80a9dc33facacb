// The settable time source: the activity loop's stamp (system or virtual time) unless a test installs
// another.
#include "kernel/TimeSource.h"

namespace Kiv {

namespace detail {
TimeSourceFn timeSource = nullptr;
}

void timeSourceIs(TimeSourceFn fn) { detail::timeSource = fn; }

}  // namespace Kiv
