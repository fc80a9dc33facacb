// Number parsing and printing for the text forms of attribute values.
#include "kernel/Value.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace Kiv::detail {

bool parseInteger(std::string_view s, long long& out) {
  auto r = std::from_chars(s.data(), s.data() + s.size(), out);
  return r.ec == std::errc() && r.ptr == s.data() + s.size() && !s.empty();
}

bool parseUnsigned(std::string_view s, unsigned long long& out) {
  if (s.empty() || s[0] == '-') return false;
  auto r = std::from_chars(s.data(), s.data() + s.size(), out);
  return r.ec == std::errc() && r.ptr == s.data() + s.size();
}

// from_chars: no copy and no locale, which a restart that reads back a million times needs. Every double
// of the model is a time or a span of one, so NaN and negative infinity, which order nothing, are refused.
bool parseDouble(std::string_view s, double& out) {
  if (s == "inf") return out = std::numeric_limits<double>::infinity(), true;
  double v;
  const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
  if (s.empty() || r.ec != std::errc() || r.ptr != s.data() + s.size() || !isOrderedTime(v)) return false;
  out = v;
  return true;
}

// The shortest text that reads back as the same double: replicated times stay short and exact.
std::string doubleText(double v) {
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  char buf[64];
  const auto r = std::to_chars(buf, buf + sizeof buf, v);
  return std::string(buf, r.ptr);
}

}  // namespace Kiv::detail
