// Names of the protocol's enumerations for traces.
#include "net/Igmp.h"

namespace Gmp::Igmp {

std::ostream& operator<<(std::ostream& os, IgmpVersion v) {
  if (v >= igmpVersion1 && v <= igmpVersion3) return os << "igmpVersion" << unsigned{v};
  if (v == igmpVersionUnknown) return os << "igmpVersionUnknown";
  return os << "IgmpVersion(" << unsigned{v} << ")";
}

std::ostream& operator<<(std::ostream& os, IgmpFilterMode m) {
  if (m == filterModeExclude) return os << "filterModeExclude";
  if (m == filterModeInclude) return os << "filterModeInclude";
  return os << "IgmpFilterMode(" << unsigned{m} << ")";
}

std::ostream& operator<<(std::ostream& os, RecordType t) {
  static constexpr const char* names[] = {
      "recordTypeUnknown",         "recordTypeModeIsInclude",   "recordTypeModeIsExclude",
      "recordTypeChangeToInclude", "recordTypeChangeToExclude", "recordTypeAllowNewSources",
      "recordTypeBlockOldSources",
  };
  if (t <= recordTypeBlockOldSources) return os << names[t];
  return os << "RecordType(" << unsigned{t} << ")";
}

}  // namespace Gmp::Igmp
