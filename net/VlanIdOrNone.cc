// The range check of optional VLAN numbers.
#include "net/VlanIdOrNone.h"

#include "kernel/Exception.h"

namespace Bridging {

void VlanIdOrNone::check(unsigned v) {
  if (!isValid(v)) Kiv::throwRangeException("VlanIdOrNone::value > 4094 not allowed");
}

}  // namespace Bridging
