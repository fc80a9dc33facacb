// View of the PIM common header (RFC 7761): version and type in one byte, reserved, checksum.
#pragma once

#include <cstdint>

#include "net/MessageHdr.h"

namespace Lomax {

// Version 2, type 0.
inline constexpr uint8_t pimTypeV2Hello = 0x20;

class PimCommonHdr : public MessageHdr {
 public:
  using MessageHdr::MessageHdr;
  // Version in the high nibble, type in the low one.
  uint8_t messageType() const { return p_[0]; }
};

}  // namespace Lomax
