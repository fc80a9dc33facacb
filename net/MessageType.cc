// Names of IGMP message types for traces; a type that has none prints in hexadecimal.
#include "net/MessageType.h"

#include <cstdio>

namespace Lomax {

std::ostream& operator<<(std::ostream& os, MessageType t) {
  switch (t) {
    case messageTypeMembershipQuery:
      return os << "membershipQuery";
    case messageTypeV1MembershipReport:
      return os << "v1MembershipReport";
    case messageTypeDvmrp:
      return os << "dvmrp";
    case messageTypeV2MembershipReport:
      return os << "v2MembershipReport";
    case messageTypeV2LeaveGroup:
      return os << "v2LeaveGroup";
    case messageTypeV3MembershipReport:
      return os << "v3MembershipReport";
    case messageTypeMrdAdvertisement:
      return os << "mrdAdvertisement";
    case messageTypeMrdSolicitation:
      return os << "mrdSolicitation";
    case messageTypeMrdTermination:
      return os << "mrdTermination";
  }
  char buf[8];
  std::snprintf(buf, sizeof buf, "0x%02x", unsigned{t});
  return os << buf;
}

}  // namespace Lomax
