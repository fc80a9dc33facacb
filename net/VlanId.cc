// The range check of VLAN numbers.
#include "net/VlanId.h"

#include "kernel/Exception.h"

namespace Bridging {

void VlanId::check(unsigned v) {
  if (!isValid(v)) Kiv::throwRangeException("VlanId::value < 1 or > 4094 not allowed");
}

}  // namespace Bridging
