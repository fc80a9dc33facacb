// RFC 1071 checksum: words summed in a wide accumulator, carries folded at the end.
#include "net/IpChecksum.h"

#include <bit>
#include <cstdio>
#include <cstring>

namespace Lomax {

// The one's complement sum does not care for byte order or for the width of the words added, as long
// as every carry out of the top comes back in at the bottom (RFC 1071 2.B): words are added in the
// host's order, eight bytes at a time, and the folded sum is turned to network order once.
IpChecksum IpChecksum::of(const uint8_t* data, size_t len) {
  uint64_t sum = 0;
  auto add = [&sum](uint64_t w) {
    sum += w;
    sum += sum < w;
  };
  size_t i = 0;
  for (; i + 8 <= len; i += 8) {
    uint64_t w;
    std::memcpy(&w, data + i, 8);
    add(w);
  }
  if (i + 4 <= len) {
    uint32_t w;
    std::memcpy(&w, data + i, 4);
    add(w);
    i += 4;
  }
  if (i + 2 <= len) {
    uint16_t w;
    std::memcpy(&w, data + i, 2);
    add(w);
    i += 2;
  }
  // An odd last byte is the high half of a word whose low half is zero.
  if (i < len) {
    const uint8_t last[2] = {data[i], 0};
    uint16_t w;
    std::memcpy(&w, last, 2);
    add(w);
  }
  sum = (sum & 0xffffffff) + (sum >> 32);
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
