// IGMP message types: the first byte of every IGMP message, DVMRP and multicast router discovery included.
#pragma once

#include <cstdint>
#include <ostream>

namespace Lomax {

enum MessageType : uint8_t {
  messageTypeMembershipQuery = 0x11,
  messageTypeV1MembershipReport = 0x12,
  messageTypeDvmrp = 0x13,
  messageTypeV2MembershipReport = 0x16,
  messageTypeV2LeaveGroup = 0x17,
  messageTypeV3MembershipReport = 0x22,
  messageTypeMrdAdvertisement = 0x30,
  messageTypeMrdSolicitation = 0x31,
  messageTypeMrdTermination = 0x32,
};

std::ostream& operator<<(std::ostream& os, MessageType t);

}  // namespace Lomax
