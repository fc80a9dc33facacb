// Deciding a group against a filter profile, and the forms of a range.
#include "model/IgmpProfile.h"

namespace IgmpProfile {

bool Profile::permits(Lomax::IpAddr group) const {
  // Ranges are ordered by their low end: only those starting at or below the group can hold it.
  for (auto& r : rangesIter()) {
    if (group < r.key().low) break;
    if (r.key().contains(group)) return !denyRanges();
  }
  return denyRanges();
}

std::ostream& operator<<(std::ostream& os, const Range& r) { return os << r.low << "-" << r.high; }

}  // namespace IgmpProfile

namespace Kiv {

using IgmpProfile::Range;

std::string ValueTraits<Range>::text(const Range& v) {
  return ValueTraits<Lomax::IpAddr>::text(v.low) + "-" + ValueTraits<Lomax::IpAddr>::text(v.high);
}

bool ValueTraits<Range>::fromText(std::string_view s, Range& v) {
  size_t dash = s.find('-');
  if (dash == std::string_view::npos) return false;
  Range r;
  if (!ValueTraits<Lomax::IpAddr>::fromText(s.substr(0, dash), r.low) ||
      !ValueTraits<Lomax::IpAddr>::fromText(s.substr(dash + 1), r.high)) {
    return false;
  }
  v = r;
  return true;
}

void ValueTraits<Range>::binary(std::string& out, const Range& v) {
  ValueTraits<Lomax::IpAddr>::binary(out, v.low);
  ValueTraits<Lomax::IpAddr>::binary(out, v.high);
}

bool ValueTraits<Range>::fromBinary(std::string_view& in, Range& v) {
  Range r;
  if (!ValueTraits<Lomax::IpAddr>::fromBinary(in, r.low) ||
      !ValueTraits<Lomax::IpAddr>::fromBinary(in, r.high)) {
    return false;
  }
  v = r;
  return true;
}

}  // namespace Kiv
