// Text and binary forms of a reporter's advertised mode.
#include "model/SyncStatus.h"

namespace Bridging::IgmpSnooping {

std::ostream& operator<<(std::ostream& os, const IgmpV3ModeState& v) {
  return os << v.filterMode << "@" << v.lastRcvd;
}

}  // namespace Bridging::IgmpSnooping

namespace Kiv {

using Mode = Bridging::IgmpSnooping::IgmpV3ModeState;

std::string ValueTraits<Mode>::text(const Mode& v) {
  return ValueTraits<Gmp::Igmp::IgmpFilterMode>::text(v.filterMode) + "@" +
         ValueTraits<double>::text(v.lastRcvd);
}

bool ValueTraits<Mode>::fromText(std::string_view s, Mode& v) {
  size_t at = s.find('@');
  if (at == std::string_view::npos) return false;
  Mode r;
  if (!ValueTraits<Gmp::Igmp::IgmpFilterMode>::fromText(s.substr(0, at), r.filterMode) ||
      !ValueTraits<double>::fromText(s.substr(at + 1), r.lastRcvd)) {
    return false;
  }
  v = r;
  return true;
}

void ValueTraits<Mode>::binary(std::string& out, const Mode& v) {
  ValueTraits<Gmp::Igmp::IgmpFilterMode>::binary(out, v.filterMode);
  ValueTraits<double>::binary(out, v.lastRcvd);
}

bool ValueTraits<Mode>::fromBinary(std::string_view& in, Mode& v) {
  Mode r;
  if (!ValueTraits<Gmp::Igmp::IgmpFilterMode>::fromBinary(in, r.filterMode) ||
      !ValueTraits<double>::fromBinary(in, r.lastRcvd)) {
    return false;
  }
  v = r;
  return true;
}

}  // namespace Kiv
