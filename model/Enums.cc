// Text forms of the model's enumerations.
#include "model/Enums.h"

namespace Bridging::IgmpSnooping {

namespace {
template <size_t N>
std::ostream& named(std::ostream& os, unsigned v, const char* const (&names)[N]) {
  return v < N ? os << names[v] : os << "unknown(" << v << ")";
}
}  // namespace

std::ostream& operator<<(std::ostream& os, IgmpMembershipState v) {
  static const char* const names[] = {"membershipStateMember", "checkingMembership", "checkingGotReport"};
  return named(os, v, names);
}
std::ostream& operator<<(std::ostream& os, MulticastRouterType v) {
  static const char* const names[] = {"routerTypePim", "routerTypeDvmrp", "routerTypeMrd", "routerTypeQuery"};
  return named(os, v, names);
}
std::ostream& operator<<(std::ostream& os, IgmpSnoopingFloodType v) {
  static const char* const names[] = {"floodTypeMembers", "floodTypeVlan", "floodTypeRouter",
                                      "floodTypeRouterAndSwitchPort", "floodTypeSinglePort"};
  return named(os, v, names);
}
std::ostream& operator<<(std::ostream& os, IgmpSnoopingPktType v) {
  static const char* const names[] = {"pktTypeQuery", "pktTypeReport",    "pktTypeLeave",
                                      "pktTypePim",   "pktTypeLinkLocal", "pktTypeOther"};
  return named(os, v, names);
}
std::ostream& operator<<(std::ostream& os, IgmpSnoopingState v) {
  static const char* const names[] = {"default", "flooding", "active", "topologyChange"};
  return named(os, v, names);
}

}  // namespace Bridging::IgmpSnooping
