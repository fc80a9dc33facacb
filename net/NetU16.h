// Network-order integers as they lie in a header: byte arrays, so any alignment will do.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "kernel/Value.h"

namespace Lomax {

class NetU8 {
 public:
  constexpr NetU8() = default;
  constexpr explicit NetU8(uint8_t v) : b_(v) {}
  constexpr uint8_t value() const { return b_; }
  constexpr void valueIs(uint8_t v) { b_ = v; }
  constexpr bool operator==(const NetU8&) const = default;
  uint64_t hash() const { return Kiv::mixHash(b_); }

 private:
  uint8_t b_ = 0;
};

class NetU16 {
 public:
  constexpr NetU16() = default;
  constexpr explicit NetU16(uint16_t v) { valueIs(v); }
  // Two bytes in network order at any alignment.
  static constexpr uint16_t read(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
  static constexpr void write(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
  }
  constexpr uint16_t value() const { return static_cast<uint16_t>(b_[0] << 8 | b_[1]); }
  constexpr void valueIs(uint16_t v) {
    b_[0] = static_cast<uint8_t>(v >> 8);
    b_[1] = static_cast<uint8_t>(v);
  }
  constexpr bool operator==(const NetU16&) const = default;
  constexpr bool operator<(const NetU16& o) const { return value() < o.value(); }
  uint64_t hash() const { return Kiv::mixHash(value()); }

 private:
  uint8_t b_[2] = {0, 0};
};

constexpr bool anyU16(unsigned) { return true; }

// Text and binary forms of a value that a 16-bit number carries: those of the number, which must pass
// valid before T is built from it.
template <class T, bool (*valid)(unsigned) = anyU16>
struct U16ValueTraits {
  static std::string text(T v) { return std::to_string(v.value()); }
  static bool fromText(std::string_view s, T& v) {
    uint16_t x;
    return Kiv::ValueTraits<uint16_t>::fromText(s, x) && make(x, v);
  }
  static void binary(std::string& out, T v) { Kiv::ValueTraits<uint16_t>::binary(out, v.value()); }
  static bool fromBinary(std::string_view& in, T& v) {
    uint16_t x;
    return Kiv::ValueTraits<uint16_t>::fromBinary(in, x) && make(x, v);
  }

 private:
  static bool make(uint16_t x, T& v) {
    if (!valid(x)) return false;
    v = T(x);
    return true;
  }
};

inline std::ostream& operator<<(std::ostream& os, NetU8 v) { return os << unsigned{v.value()}; }
inline std::ostream& operator<<(std::ostream& os, NetU16 v) { return os << v.value(); }

}  // namespace Lomax

namespace Kiv {

template <>
struct ValueTraits<Lomax::NetU8> {
  static constexpr const char* typeName = "Lomax::NetU8";
  static std::string text(Lomax::NetU8 v) { return std::to_string(v.value()); }
  static bool fromText(std::string_view s, Lomax::NetU8& v) {
    uint8_t x;
    if (!ValueTraits<uint8_t>::fromText(s, x)) return false;
    v.valueIs(x);
    return true;
  }
  static void binary(std::string& out, Lomax::NetU8 v) { out.push_back(static_cast<char>(v.value())); }
  static bool fromBinary(std::string_view& in, Lomax::NetU8& v) {
    uint8_t x;
    if (!detail::getRaw(in, x)) return false;
    v.valueIs(x);
    return true;
  }
};

template <>
struct ValueTraits<Lomax::NetU16> : Lomax::U16ValueTraits<Lomax::NetU16> {
  static constexpr const char* typeName = "Lomax::NetU16";
};

}  // namespace Kiv
