// The protocol times of a VLAN, computed from the querier's last values and the configuration.
#include "model/IgmpContextStatus.h"

#include <sstream>

#include "net/QQIC.h"

namespace Bridging::IgmpSnooping {

uint32_t IgmpContextStatus::robustness() const {
  if (lastQueryRobustness()) return lastQueryRobustness();
  if (configuredRobustness()) return configuredRobustness();
  return defaultRobustness;
}

uint32_t IgmpContextStatus::queryInterval() const {
  if (lastQueryQueryInterval())
    return Gmp::Igmp::QQIC::decode(static_cast<uint8_t>(lastQueryQueryInterval()));
  if (configuredQueryInterval()) return configuredQueryInterval();
  return defaultQueryInterval;
}

Kiv::Seconds IgmpContextStatus::restartQueryInterval() const {
  if (configuredRestartQueryInterval() > 0) return configuredRestartQueryInterval();
  return queryInterval() / 4.0;
}

Kiv::Seconds IgmpContextStatus::groupMembershipInterval() const {
  return Kiv::Seconds(robustness()) * queryInterval() + queryResponseInterval();
}

Kiv::Seconds IgmpContextStatus::otherQuerierPresentInterval() const {
  return Kiv::Seconds(robustness()) * queryInterval() + 0.5 * queryResponseInterval();
}

std::ostream& operator<<(std::ostream& os, const NoQuerierLogInfo& v) {
  return os << v.reporter << " " << v.intf << " " << v.group;
}

}  // namespace Bridging::IgmpSnooping

namespace Kiv {

using Info = Bridging::IgmpSnooping::NoQuerierLogInfo;

std::string ValueTraits<Info>::text(const Info& v) {
  return ValueTraits<Lomax::IpAddr>::text(v.reporter) + "," + ValueTraits<Lomax::IntfId>::text(v.intf) + "," +
         ValueTraits<Lomax::IpAddr>::text(v.group);
}

bool ValueTraits<Info>::fromText(std::string_view s, Info& v) {
  size_t a = s.find(','), b = s.rfind(',');
  if (a == std::string_view::npos || a == b) return false;
  Info r;
  if (!ValueTraits<Lomax::IpAddr>::fromText(s.substr(0, a), r.reporter) ||
      !ValueTraits<Lomax::IntfId>::fromText(s.substr(a + 1, b - a - 1), r.intf) ||
      !ValueTraits<Lomax::IpAddr>::fromText(s.substr(b + 1), r.group)) {
    return false;
  }
  v = r;
  return true;
}

void ValueTraits<Info>::binary(std::string& out, const Info& v) {
  ValueTraits<Lomax::IpAddr>::binary(out, v.reporter);
  ValueTraits<Lomax::IntfId>::binary(out, v.intf);
  ValueTraits<Lomax::IpAddr>::binary(out, v.group);
}

bool ValueTraits<Info>::fromBinary(std::string_view& in, Info& v) {
  Info r;
  if (!ValueTraits<Lomax::IpAddr>::fromBinary(in, r.reporter) ||
      !ValueTraits<Lomax::IntfId>::fromBinary(in, r.intf) ||
      !ValueTraits<Lomax::IpAddr>::fromBinary(in, r.group)) {
    return false;
  }
  v = r;
  return true;
}

}  // namespace Kiv
