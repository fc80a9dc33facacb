// View of an IGMP version 1 or 2 message (RFC 2236), also the first eight bytes of a version 3 query.
#pragma once

#include <cstdint>
#include <optional>

#include "net/IgmpCommonHdr.h"
#include "net/IpAddr.h"

namespace Lomax {

class IgmpV12Hdr {
 public:
  static constexpr uint16_t minBytes = 8;

  // A view exists only over bytes that hold it: none when fewer than minBytes are there.
  static std::optional<IgmpV12Hdr> of(uint8_t* p, uint32_t bytes) {
    if (bytes < minBytes) return std::nullopt;
    return IgmpV12Hdr(p);
  }
  uint8_t* bytes() const { return p_; }

  MessageType type() const { return static_cast<MessageType>(p_[0]); }
  // In tenths of a second; 0 in a version 1 query.
  uint8_t maxResponseTime() const { return p_[1]; }
  IpChecksum checksum() const { return IpChecksum(NetU16::read(p_ + 2)); }
  IpAddr group() const { return IpAddr::fromBytes(p_ + 4); }

 private:
  explicit IgmpV12Hdr(uint8_t* p) : p_(p) {}
  uint8_t* p_;
};

}  // namespace Lomax
