// A VLAN number, 1 to 4094; building one outside that range is a program error and throws.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "kernel/RingTrace.h"
#include "kernel/Value.h"
#include "net/NetU16.h"

namespace Bridging {

class VlanId {
 public:
  static constexpr uint16_t minValue = 1;
  static constexpr uint16_t maxValue = 4094;
  // 1, which walks that keep a VLAN bookmark read as "none".
  constexpr VlanId() = default;
  explicit VlanId(uint16_t v) : v_(v) { check(v); }
  static constexpr bool isValid(unsigned v) { return v >= minValue && v <= maxValue; }

  constexpr uint16_t value() const { return v_; }
  constexpr bool operator==(const VlanId&) const = default;
  constexpr auto operator<=>(const VlanId&) const = default;
  uint64_t hash() const { return Kiv::mixHash(v_); }

 private:
  static void check(unsigned v);
  uint16_t v_ = minValue;
};

inline std::ostream& operator<<(std::ostream& os, VlanId v) { return os << v.value(); }
// The ring trace takes the number, as the text form prints it.
[[gnu::always_inline]] inline void ringArg(Vellum::Writer& w, VlanId v) { w.uint64(v.value()); }

}  // namespace Bridging

namespace Kiv {

template <>
struct ValueTraits<Bridging::VlanId> : Lomax::U16ValueTraits<Bridging::VlanId, Bridging::VlanId::isValid> {
  static constexpr const char* typeName = "Bridging::VlanId";
};

}  // namespace Kiv
