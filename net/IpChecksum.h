// The 16-bit one's-complement checksum of IP, IGMP and PIM (RFC 1071).
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "net/NetU16.h"

namespace Lomax {

class IpChecksum {
 public:
  constexpr IpChecksum() = default;
  constexpr explicit IpChecksum(uint16_t v) { v_.valueIs(v); }
  // Checksum of len bytes; over bytes that already hold a correct checksum field it is zero.
  static IpChecksum of(const uint8_t* data, size_t len);

  constexpr uint16_t value() const { return v_.value(); }
  constexpr bool operator==(const IpChecksum&) const = default;
  uint64_t hash() const { return v_.hash(); }

 private:
  NetU16 v_;
};

// What a correct header computes to.
inline constexpr IpChecksum zeroChecksum{0};

std::ostream& operator<<(std::ostream& os, IpChecksum c);

}  // namespace Lomax

namespace Kiv {

template <>
struct ValueTraits<Lomax::IpChecksum> : Lomax::U16ValueTraits<Lomax::IpChecksum> {
  static constexpr const char* typeName = "Lomax::IpChecksum";
};

}  // namespace Kiv
