// Dotted-quad text of IPv4 addresses.
#include "net/IpAddr.h"

#include <charconv>
#include <cstdio>

#include "kernel/Exception.h"
#include "kernel/RingTrace.h"

namespace Lomax {

bool IpAddr::parse(std::string_view text, IpAddr& out) {
  uint32_t host = 0;
  const char* p = text.data();
  const char* end = p + text.size();
  for (int i = 0; i < 4; ++i) {
    if (i > 0) {
      if (p == end || *p != '.') return false;
      ++p;
    }
    // from_chars would take a sign or a long run of zeros; a quad is one to three digits.
    const char* start = p;
    unsigned v = 0;
    auto r = std::from_chars(p, end, v);
    if (r.ec != std::errc() || r.ptr - start > 3 || *start == '+' || v > 255) return false;
    p = r.ptr;
    host = host << 8 | v;
  }
  if (p != end) return false;
  out = fromHost(host);
  return true;
}

Kiv::String IpAddr::stringValue() const {
  uint32_t v = value();
  char buf[16];
  int n = std::snprintf(buf, sizeof buf, "%u.%u.%u.%u", v >> 24, (v >> 16) & 0xff, (v >> 8) & 0xff, v & 0xff);
  return Kiv::String(std::string_view(buf, n));
}

void IpAddr::stringValueIs(const Kiv::String& text) {
  if (!parse(text.view(), *this)) Kiv::throwRangeException("IpAddr::stringValue not a dotted-quad address");
}

std::ostream& operator<<(std::ostream& os, IpAddr a) { return os << a.stringValue(); }

}  // namespace Lomax
