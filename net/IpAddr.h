// An IPv4 address kept in network byte order, so that it can be copied to and from packet bytes as is.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>

#include "kernel/RingTrace.h"
#include "kernel/String.h"
#include "kernel/Value.h"

namespace Lomax {

class IpAddr {
 public:
  constexpr IpAddr() = default;
  constexpr IpAddr(uint8_t a, uint8_t b, uint8_t c, uint8_t d)
      : IpAddr(fromHost(a << 24 | b << 16 | c << 8 | d)) {}
  static constexpr IpAddr fromHost(uint32_t host) {
    IpAddr r;
    r.nbo_ = toNbo(host);
    return r;
  }
  // Reads four bytes in wire order from any alignment.
  static IpAddr fromBytes(const uint8_t* p) {
    IpAddr r;
    std::memcpy(&r.nbo_, p, 4);
    return r;
  }
  // Parses dotted-quad text; false, and the value untouched, for anything else.
  [[nodiscard]] static bool parse(std::string_view text, IpAddr& out);

  constexpr uint32_t value() const { return toNbo(nbo_); }
  void bytesOut(uint8_t* p) const { std::memcpy(p, &nbo_, 4); }
  Kiv::String stringValue() const;
  // Throws a range exception for text that is not a dotted-quad address.
  void stringValueIs(const Kiv::String& text);

  constexpr bool isMulticast() const { return (value() >> 28) == 0xe; }
  // The link-local block 224.0.0.0/24, which is never snooped.
  constexpr bool isReservedMulticast() const { return (value() >> 8) == 0xe00000; }
  constexpr bool isZero() const { return nbo_ == 0; }

  constexpr bool operator==(const IpAddr&) const = default;
  constexpr bool operator<(const IpAddr& o) const { return value() < o.value(); }
  uint64_t hash() const { return Kiv::mixHash(nbo_); }

 private:
  // Byte order swap, written out so that it stays constexpr; it is its own inverse.
  static constexpr uint32_t toNbo(uint32_t v) {
    if constexpr (std::endian::native == std::endian::big) return v;
    return (v >> 24) | ((v >> 8) & 0xff00) | ((v << 8) & 0xff0000) | (v << 24);
  }
  uint32_t nbo_ = 0;
};

std::ostream& operator<<(std::ostream& os, IpAddr a);
// The ring trace stores an address as its four bytes; text is made only when the ring is decoded.
[[gnu::always_inline]] inline void ringArg(Vellum::Writer& w, IpAddr a) {
  uint32_t netOrder;
  a.bytesOut(reinterpret_cast<uint8_t*>(&netOrder));
  w.ipv4(netOrder);
}

}  // namespace Lomax

namespace Kiv {

template <>
struct ValueTraits<Lomax::IpAddr> {
  static constexpr const char* typeName = "Lomax::IpAddr";
  static std::string text(Lomax::IpAddr v) { return v.stringValue().stdString(); }
  static bool fromText(std::string_view s, Lomax::IpAddr& v) { return Lomax::IpAddr::parse(s, v); }
  static void binary(std::string& out, Lomax::IpAddr v) {
    char b[4];
    v.bytesOut(reinterpret_cast<uint8_t*>(b));
    out.append(b, 4);
  }
  static bool fromBinary(std::string_view& in, Lomax::IpAddr& v) {
    if (in.size() < 4) return false;
    v = Lomax::IpAddr::fromBytes(reinterpret_cast<const uint8_t*>(in.data()));
    in.remove_prefix(4);
    return true;
  }
};

}  // namespace Kiv
