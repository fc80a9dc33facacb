// RFC 1071 checksum: 16-bit big-endian words summed in a wide accumulator, carries folded at the end.
#include "net/IpChecksum.h"

#include <cstdio>

namespace Lomax {

IpChecksum IpChecksum::of(const uint8_t* data, size_t len) {
  uint64_t sum = 0;
  size_t i = 0;
  for (; i + 1 < len; i += 2) sum += static_cast<uint32_t>(data[i] << 8 | data[i + 1]);
  // An odd last byte is the high half of a word whose low half is zero.
  if (i < len) sum += static_cast<uint32_t>(data[i] << 8);
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return IpChecksum(static_cast<uint16_t>(~sum));
}

std::ostream& operator<<(std::ostream& os, IpChecksum c) {
  char buf[8];
  std::snprintf(buf, sizeof buf, "0x%04x", c.value());
  return os << buf;
}

}  // namespace Lomax
