// View of the PIM common header (RFC 7761): version and type in one byte, reserved, checksum.
#pragma once

#include <cstdint>

#include "net/IpChecksum.h"
#include "net/NetU16.h"

namespace Lomax {

// Version 2, type 0.
inline constexpr uint8_t pimTypeV2Hello = 0x20;

class PimCommonHdr {
 public:
  static constexpr uint16_t minBytes = 4;

  explicit PimCommonHdr(uint8_t* p) : p_(p) {}
  uint8_t* bytes() const { return p_; }

  // Version in the high nibble, type in the low one.
  uint8_t messageType() const { return p_[0]; }
  IpChecksum checksum() const { return IpChecksum(NetU16::read(p_ + 2)); }
  void checksumIs(IpChecksum c) { NetU16::write(p_ + 2, c.value()); }
  IpChecksum computedChecksum(uint32_t length) const { return IpChecksum::of(p_, length); }
  void doChecksumUpdate(uint32_t length) {
    checksumIs(IpChecksum(0));
    checksumIs(computedChecksum(length));
  }

 private:
  uint8_t* p_;
};

}  // namespace Lomax
