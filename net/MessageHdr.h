// View of the four bytes that IGMP and PIM messages both begin with: a type byte, a byte of the message's
// own, and a checksum over the whole message (RFC 2236, RFC 7761).
#pragma once

#include <cstdint>
#include <optional>

#include "net/IpChecksum.h"
#include "net/NetU16.h"

namespace Lomax {

class MessageHdr {
 public:
  static constexpr uint16_t minBytes = 4;

  // A view exists only over bytes that hold it: none when fewer than minBytes are there.
  static std::optional<MessageHdr> of(uint8_t* p, uint32_t bytes) {
    if (bytes < minBytes) return std::nullopt;
    return MessageHdr(p);
  }
  uint8_t* bytes() const { return p_; }

  IpChecksum checksum() const { return IpChecksum(NetU16::read(p_ + 2)); }
  void checksumIs(IpChecksum c) { NetU16::write(p_ + 2, c.value()); }
  // Over length bytes of the message: zeroChecksum when the checksum field is right.
  IpChecksum computedChecksum(uint32_t length) const { return IpChecksum::of(p_, length); }
  void doChecksumUpdate(uint32_t length) {
    checksumIs(IpChecksum(0));
    checksumIs(computedChecksum(length));
  }

 protected:
  explicit MessageHdr(uint8_t* p) : p_(p) {}
  uint8_t* p_;
};

}  // namespace Lomax
