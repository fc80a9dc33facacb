// Copying a whole counter set.
#include "model/IgmpCounterDir.h"

namespace Bridging::IgmpSnooping {

void IgmpContextIntfCounter::doCopy(const IgmpContextIntfCounter& other) {
#define IGMP_COPY_COUNTER(kind, n, ...) n##Is(other.n());
  IGMP_CONTEXT_INTF_COUNTER_ATTRS(IGMP_COPY_COUNTER)
#undef IGMP_COPY_COUNTER
}

}  // namespace Bridging::IgmpSnooping
