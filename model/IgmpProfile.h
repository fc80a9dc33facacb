// Filter profiles: ranges of groups that an interface's reports may or may not join.
#pragma once

#include <ostream>

#include "kernel/EntityDecl.h"
#include "net/IpAddr.h"

namespace IgmpProfile {

// An inclusive range of group addresses.
struct Range {
  Lomax::IpAddr low;
  Lomax::IpAddr high;
  bool operator==(const Range&) const = default;
  bool operator<(const Range& o) const { return low < o.low || (low == o.low && high < o.high); }
  bool contains(Lomax::IpAddr a) const { return !(a < low) && !(high < a); }
};
std::ostream& operator<<(std::ostream& os, const Range& r);

#define PROFILE_ATTRS(X)                         \
  X(ordered, ranges, Ranges, Range, bool, false) \
  X(scalar, denyRanges, DenyRanges, bool, false)

// With denyRanges the ranges name what is denied; without, what is permitted.
class Profile : public Kiv::KeyedEntity<Kiv::String> {
  KIV_ENTITY_KEYED(Profile, Kiv::String, profileName, PROFILE_ATTRS)

 public:
  // Whether a report for group may pass this profile.
  bool permits(Lomax::IpAddr group) const;
};

#define PROFILE_CONFIG_ATTRS(X) X(entities, profile, Profile, Kiv::String, Profile)

class ProfileConfig : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(ProfileConfig, PROFILE_CONFIG_ATTRS)
};

}  // namespace IgmpProfile

namespace Kiv {
template <>
struct ValueTraits<IgmpProfile::Range> {
  using V = IgmpProfile::Range;
  static constexpr const char* typeName = "IgmpProfile::Range";
  static std::string text(const V& v);
  static bool fromText(std::string_view s, V& v);
  static void binary(std::string& out, const V& v);
  static bool fromBinary(std::string_view& in, V& v);
};
}  // namespace Kiv
