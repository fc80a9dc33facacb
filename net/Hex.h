// Hexadecimal digits for the text forms of addresses and frames.
#pragma once

namespace Lomax {

// The value of a hexadecimal digit of either case, or -1.
constexpr int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

inline constexpr char hexDigits[] = "0123456789abcdef";

}  // namespace Lomax
