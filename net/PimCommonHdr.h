// View of the PIM common header (RFC 7761): version and type in one byte, reserved, checksum.
#pragma once

#include <cstdint>

#include "net/MessageHdr.h"

namespace Lomax {

// Version 2, type 0.
inline constexpr uint8_t pimTypeV2Hello = 0x20;

class PimCommonHdr : public MessageHdr {
 public:
  // A view exists only over bytes that hold it: none when fewer than minBytes are there.
  static std::optional<PimCommonHdr> of(uint8_t* p, uint32_t bytes) {
    if (bytes < minBytes) return std::nullopt;
    return PimCommonHdr(p);
  }
  // Version in the high nibble, type in the low one.
  uint8_t messageType() const { return p_[0]; }

 private:
  explicit PimCommonHdr(uint8_t* p) : MessageHdr(p) {}
};

}  // namespace Lomax
