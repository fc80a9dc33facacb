// A 48-bit MAC address as three 16-bit words, the first word first on the wire.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "kernel/String.h"
#include "kernel/Value.h"

namespace Lomax {

class EthAddr {
 public:
  constexpr EthAddr() = default;
  constexpr EthAddr(uint16_t w0, uint16_t w1, uint16_t w2) : w_{w0, w1, w2} {}
  static constexpr EthAddr fromBytes(const uint8_t* p) {
    return EthAddr(static_cast<uint16_t>(p[0] << 8 | p[1]), static_cast<uint16_t>(p[2] << 8 | p[3]),
                   static_cast<uint16_t>(p[4] << 8 | p[5]));
  }
  // Parses "01:00:5e:00:01:01"; false, and the value untouched, for anything else.
  [[nodiscard]] static bool parse(std::string_view text, EthAddr& out);

  constexpr uint16_t word(int index) const { return w_[index]; }
  constexpr void wordIs(int index, uint16_t word) { w_[index] = word; }
  void bytesOut(uint8_t* p) const {
    for (int i = 0; i < 3; ++i)
      p[2 * i] = static_cast<uint8_t>(w_[i] >> 8), p[2 * i + 1] = static_cast<uint8_t>(w_[i]);
  }
  Kiv::String stringValue() const;

  constexpr bool operator==(const EthAddr&) const = default;
  constexpr auto operator<=>(const EthAddr&) const = default;
  uint64_t hash() const { return Kiv::mixHash(uint64_t{w_[0]} << 32 | uint64_t{w_[1]} << 16 | w_[2]); }

 private:
  uint16_t w_[3] = {0, 0, 0};
};

std::ostream& operator<<(std::ostream& os, EthAddr a);

}  // namespace Lomax

namespace Kiv {

template <>
struct ValueTraits<Lomax::EthAddr> {
  static constexpr const char* typeName = "Lomax::EthAddr";
  static std::string text(Lomax::EthAddr v) { return v.stringValue().stdString(); }
  static bool fromText(std::string_view s, Lomax::EthAddr& v) { return Lomax::EthAddr::parse(s, v); }
  static void binary(std::string& out, Lomax::EthAddr v) {
    uint8_t b[6];
    v.bytesOut(b);
    out.append(reinterpret_cast<const char*>(b), 6);
  }
  static bool fromBinary(std::string_view& in, Lomax::EthAddr& v) {
    if (in.size() < 6) return false;
    v = Lomax::EthAddr::fromBytes(reinterpret_cast<const uint8_t*>(in.data()));
    in.remove_prefix(6);
    return true;
  }
};

}  // namespace Kiv
