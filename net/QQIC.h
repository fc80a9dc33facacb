// The exponential code of IGMPv3 (RFC 3376 4.1.1, 4.1.7): the querier's query interval code, and the same
// form that the maximum response code uses for values of 128 and more.
#pragma once

#include <cstdint>

namespace Gmp::Igmp {

class QQIC {
 public:
  // The largest value the code can carry: mantissa 0xf, exponent 7.
  static constexpr uint32_t maxValue = 0x1f << 10;

  constexpr explicit QQIC(uint8_t code) : code_(code) {}
  // The code for value, rounded down to a value that the code can carry; above maxValue, maxValue.
  static constexpr QQIC fromValue(uint32_t value) { return QQIC(encode(value)); }

  constexpr uint8_t code() const { return code_; }
  constexpr uint32_t seconds() const { return decode(code_); }

  static constexpr uint32_t decode(uint8_t code) {
    if (code < 0x80) return code;
    return (uint32_t{code & 0x0fu} | 0x10u) << (((code >> 4) & 0x7) + 3);
  }
  static constexpr uint8_t encode(uint32_t value) {
    if (value < 0x80) return static_cast<uint8_t>(value);
    if (value >= maxValue) return 0xff;
    // The top set bit stands for the implied mantissa bit 0x10, at position exp + 7.
    int top = 31;
    while (!(value >> top)) --top;
    int exp = top - 7;
    return static_cast<uint8_t>(0x80 | exp << 4 | ((value >> (exp + 3)) & 0xf));
  }

 private:
  uint8_t code_;
};

}  // namespace Gmp::Igmp
