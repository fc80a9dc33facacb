// The Ethernet group of an IPv4 multicast group (RFC 1112): every IP group in the system maps through here.
#pragma once

#include "net/EthAddr.h"
#include "net/IpAddr.h"

namespace Bridging::IgmpSnooping {

// The top nine bits of the host part are dropped, so 32 IP groups share one Ethernet group.
constexpr Lomax::EthAddr IpToEthGroupMap(Lomax::IpAddr group) {
  uint32_t v = group.value();
  return Lomax::EthAddr(0x0100, static_cast<uint16_t>(0x5e00 | ((v >> 16) & 0x7f)), static_cast<uint16_t>(v));
}

}  // namespace Bridging::IgmpSnooping
