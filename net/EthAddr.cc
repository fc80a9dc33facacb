// Colon-separated hexadecimal text of MAC addresses.
#include "net/EthAddr.h"

#include <cstdio>

#include "net/Hex.h"

namespace Lomax {

bool EthAddr::parse(std::string_view text, EthAddr& out) {
  if (text.size() != 17) return false;
  uint8_t b[6];
  for (int i = 0; i < 6; ++i) {
    int hi = hexDigit(text[3 * i]), lo = hexDigit(text[3 * i + 1]);
    if (hi < 0 || lo < 0 || (i < 5 && text[3 * i + 2] != ':')) return false;
    b[i] = static_cast<uint8_t>(hi << 4 | lo);
  }
  out = fromBytes(b);
  return true;
}

Kiv::String EthAddr::stringValue() const {
  uint8_t b[6];
  bytesOut(b);
  char buf[18];
  std::snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
  return Kiv::String(std::string_view(buf, 17));
}

std::ostream& operator<<(std::ostream& os, EthAddr a) { return os << a.stringValue(); }

}  // namespace Lomax
