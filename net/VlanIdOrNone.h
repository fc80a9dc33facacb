// A VLAN number or 0 for none, 0 to 4094; a larger value is a program error and throws.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "net/VlanId.h"

namespace Bridging {

class VlanIdOrNone {
 public:
  static constexpr uint16_t maxValue = 4094;
  constexpr VlanIdOrNone() = default;
  explicit VlanIdOrNone(uint16_t v) : v_(v) { check(v); }
  VlanIdOrNone(VlanId v) : v_(v.value()) {}
  static constexpr bool isValid(unsigned v) { return v <= maxValue; }

  constexpr uint16_t value() const { return v_; }
  constexpr bool isNone() const { return v_ == 0; }
  constexpr bool operator==(const VlanIdOrNone&) const = default;
  constexpr auto operator<=>(const VlanIdOrNone&) const = default;
  uint64_t hash() const { return Kiv::mixHash(v_); }

 private:
  static void check(unsigned v);
  uint16_t v_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, VlanIdOrNone v) { return os << v.value(); }

}  // namespace Bridging

namespace Kiv {

template <>
struct ValueTraits<Bridging::VlanIdOrNone>
    : Lomax::U16ValueTraits<Bridging::VlanIdOrNone, Bridging::VlanIdOrNone::isValid> {
  static constexpr const char* typeName = "Bridging::VlanIdOrNone";
};

}  // namespace Kiv
