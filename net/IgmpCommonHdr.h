// View of the four bytes every IGMP message starts with (RFC 2236, RFC 3376): type, code, checksum.
#pragma once

#include <cstdint>

#include "net/IpChecksum.h"
#include "net/MessageType.h"
#include "net/NetU16.h"

namespace Lomax {

class IgmpCommonHdr {
 public:
  static constexpr uint16_t minBytes = 4;

  explicit IgmpCommonHdr(uint8_t* p) : p_(p) {}
  uint8_t* bytes() const { return p_; }

  MessageType messageType() const { return static_cast<MessageType>(p_[0]); }
  uint8_t code() const { return p_[1]; }
  IpChecksum checksum() const { return IpChecksum(NetU16::read(p_ + 2)); }
  void checksumIs(IpChecksum c) { NetU16::write(p_ + 2, c.value()); }

  // Over length bytes of the message: zeroChecksum when the checksum field is right.
  IpChecksum computedChecksum(uint32_t length) const { return IpChecksum::of(p_, length); }
  void doChecksumUpdate(uint32_t length) {
    checksumIs(IpChecksum(0));
    checksumIs(computedChecksum(length));
  }

 private:
  uint8_t* p_;
};

}  // namespace Lomax
