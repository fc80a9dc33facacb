// Interface kinds that the agent defines itself: thin value types over IntfId that differ only in kind.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "net/IntfId.h"

namespace Lomax {

inline constexpr uint8_t switchIntfIdType = 11;
inline constexpr uint8_t l2QuerierLinkIntfIdType = 12;

constexpr bool isSwitchIntfId(IntfId id) { return GenericIntfId::typeId(id) == switchIntfIdType; }
constexpr bool isL2QuerierLinkIntfId(IntfId id) {
  return GenericIntfId::typeId(id) == l2QuerierLinkIntfIdType;
}

// The kind is not checked at construction: a name of another family yields a value of that family.
template <uint8_t Kind>
class KindIntfId {
 public:
  static constexpr uint8_t kind = Kind;

  constexpr KindIntfId() = default;
  explicit KindIntfId(const Kiv::String& name) { id_.handleInitialized(name); }
  constexpr explicit KindIntfId(IntfId id) : id_(id) {}

  constexpr IntfId intfId() const { return id_; }
  constexpr operator IntfId() const { return id_; }
  const Kiv::String& stringValue() const { return id_.stringValue(); }
  const Kiv::String& shortName() const { return id_.shortName(); }
  uint64_t hash() const { return id_.hash(); }

  constexpr bool operator==(const KindIntfId&) const = default;
  bool operator<(const KindIntfId& o) const { return GenericIntfId(id_) < GenericIntfId(o.id_); }
  // True for the value built from an empty name.
  constexpr bool operator!() const { return !id_; }

 private:
  IntfId id_;
};

using SwitchIntfId = KindIntfId<switchIntfIdType>;
using L2QuerierLinkIntfId = KindIntfId<l2QuerierLinkIntfIdType>;

template <uint8_t Kind>
std::ostream& operator<<(std::ostream& os, KindIntfId<Kind> id) {
  return os << id.stringValue();
}

}  // namespace Lomax

namespace Kiv {

template <uint8_t Kind>
struct ValueTraits<Lomax::KindIntfId<Kind>> {
  static constexpr const char* typeName =
      Kind == Lomax::switchIntfIdType ? "Lomax::SwitchIntfId" : "Lomax::L2QuerierLinkIntfId";
  static std::string text(Lomax::KindIntfId<Kind> v) { return ValueTraits<Lomax::IntfId>::text(v.intfId()); }
  static bool fromText(std::string_view s, Lomax::KindIntfId<Kind>& v) {
    Lomax::IntfId id;
    if (!ValueTraits<Lomax::IntfId>::fromText(s, id)) return false;
    v = Lomax::KindIntfId<Kind>(id);
    return true;
  }
  static void binary(std::string& out, Lomax::KindIntfId<Kind> v) {
    ValueTraits<Lomax::IntfId>::binary(out, v.intfId());
  }
  static bool fromBinary(std::string_view& in, Lomax::KindIntfId<Kind>& v) {
    Lomax::IntfId id;
    if (!ValueTraits<Lomax::IntfId>::fromBinary(in, id)) return false;
    v = Lomax::KindIntfId<Kind>(id);
    return true;
  }
};

}  // namespace Kiv
