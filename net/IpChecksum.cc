// RFC 1071 checksum: words summed in a wide accumulator, carries folded at the end.
#include "net/IpChecksum.h"

#include <bit>
#include <cstdio>
#include <cstring>

namespace Lomax {

// The one's complement sum does not care for byte order (RFC 1071 2.B): words are added in the
// host's order, four bytes at a time, and the folded sum is turned to network order once.
IpChecksum IpChecksum::of(const uint8_t* data, size_t len) {
  uint64_t sum = 0;
  size_t i = 0;
  for (; i + 4 <= len; i += 4) {
    uint32_t w;
    std::memcpy(&w, data + i, 4);
    sum += w;
  }
  if (i + 2 <= len) {
    uint16_t w;
    std::memcpy(&w, data + i, 2);
    sum += w;
    i += 2;
  }
  // An odd last byte is the high half of a word whose low half is zero.
  if (i < len) {
    const uint8_t last[2] = {data[i], 0};
    uint16_t w;
    std::memcpy(&w, last, 2);
    sum += w;
  }
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  uint16_t folded = static_cast<uint16_t>(sum);
  if constexpr (std::endian::native == std::endian::little)
    folded = static_cast<uint16_t>(folded << 8 | folded >> 8);
  return IpChecksum(static_cast<uint16_t>(~folded));
}

std::ostream& operator<<(std::ostream& os, IpChecksum c) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "0x%04x", c.value());
  return os << buf;
}

}  // namespace Lomax
