// View of an IPv4 header (RFC 791) over packet bytes: reads and writes in place, owns nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "net/IpAddr.h"
#include "net/IpChecksum.h"
#include "net/NetU16.h"

namespace Lomax {

inline constexpr uint8_t ipProtocolIgmp = 2;
inline constexpr uint8_t ipProtocolPim = 103;

class IpHdr {
 public:
  static constexpr uint16_t minBytes = 20;

  // A view exists only over a header that the bytes hold: version 4, a header length of at least
  // minBytes, and no longer than the bytes. Nothing is read before those three are known.
  static std::optional<IpHdr> of(uint8_t* p, uint32_t bytes) {
    if (bytes < minBytes || p[0] >> 4 != 4 || (p[0] & 0xf) * 4u < minBytes || (p[0] & 0xf) * 4u > bytes)
      return std::nullopt;
    return IpHdr(p);
  }
  uint8_t* bytes() const { return p_; }
  // The same header after its bytes were copied d bytes further on.
  IpHdr movedBy(ptrdiff_t d) const { return IpHdr(p_ + d); }

  uint8_t version() const { return p_[0] >> 4; }
  uint16_t headerBytes() const { return static_cast<uint16_t>((p_[0] & 0xf) * 4); }
  uint16_t totalLen() const { return NetU16::read(p_ + 2); }
  void totalLenIs(uint16_t v) { NetU16::write(p_ + 2, v); }
  // What the total length leaves behind the header; 0 when the length is shorter than the header.
  uint16_t payloadLen() const {
    return totalLen() > headerBytes() ? static_cast<uint16_t>(totalLen() - headerBytes()) : 0;
  }
  uint8_t ttl() const { return p_[8]; }
  uint8_t protocol() const { return p_[9]; }
  IpChecksum checksum() const { return IpChecksum(NetU16::read(p_ + 10)); }
  void checksumIs(IpChecksum c) { NetU16::write(p_ + 10, c.value()); }
  IpAddr src() const { return IpAddr::fromBytes(p_ + 12); }
  void srcIs(IpAddr a) { a.bytesOut(p_ + 12); }
  IpAddr dst() const { return IpAddr::fromBytes(p_ + 16); }
  void dstIs(IpAddr a) { a.bytesOut(p_ + 16); }

  // Over the header as it stands: zeroChecksum when the checksum field is right.
  IpChecksum computedChecksum() const { return IpChecksum::of(p_, headerBytes()); }
  void doChecksumUpdate() {
    checksumIs(IpChecksum(0));
    checksumIs(computedChecksum());
  }

 private:
  explicit IpHdr(uint8_t* p) : p_(p) {}
  uint8_t* p_;
};

}  // namespace Lomax
