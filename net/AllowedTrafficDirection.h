// The directions in which a topology port may carry traffic.
#pragma once

#include <cstdint>
#include <ostream>

namespace Bridging {

enum AllowedTrafficDirection : uint8_t {
  trafficDirectionBoth = 0,
  trafficDirectionReceiveOnly = 1,
  // Receive is forbidden: nothing that arrives on such a port is to be taken in.
  trafficDirectionTransmitOnly = 2,
  trafficDirectionNone = 3,
};

std::ostream& operator<<(std::ostream& os, AllowedTrafficDirection d);

}  // namespace Bridging
