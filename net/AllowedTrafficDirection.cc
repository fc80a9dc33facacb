// Names of the traffic directions for traces.
#include "net/AllowedTrafficDirection.h"

namespace Bridging {

std::ostream& operator<<(std::ostream& os, AllowedTrafficDirection d) {
  switch (d) {
    case trafficDirectionBoth:
      return os << "trafficDirectionBoth";
    case trafficDirectionReceiveOnly:
      return os << "trafficDirectionReceiveOnly";
    case trafficDirectionTransmitOnly:
      return os << "trafficDirectionTransmitOnly";
    case trafficDirectionNone:
      return os << "trafficDirectionNone";
  }
  return os << "AllowedTrafficDirection(" << unsigned{d} << ")";
}

}  // namespace Bridging
