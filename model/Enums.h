// Enumerations of the snooping state model, with their text forms for traces.
#pragma once

#include <cstdint>
#include <ostream>

namespace Bridging::IgmpSnooping {

enum IgmpMembershipState : uint8_t {
  membershipStateMember = 0,  // settled
  checkingMembership = 1,     // a group-specific query is out and no answer has come
  checkingGotReport = 2,      // an answer came during the check
};

// A lower number is a stronger source of router knowledge.
enum MulticastRouterType : uint8_t {
  routerTypePim = 0,
  routerTypeDvmrp = 1,
  routerTypeMrd = 2,
  routerTypeQuery = 3,
};

enum IgmpSnoopingFloodType : uint8_t {
  floodTypeMembers = 0,
  floodTypeVlan = 1,
  floodTypeRouter = 2,
  floodTypeRouterAndSwitchPort = 3,
  floodTypeSinglePort = 4,
};

enum IgmpSnoopingPktType : uint8_t {
  pktTypeQuery = 0,
  pktTypeReport = 1,
  pktTypeLeave = 2,
  pktTypePim = 3,
  pktTypeLinkLocal = 4,
  pktTypeOther = 5,
};

enum IgmpSnoopingState : uint8_t {
  snoopingStateDefault = 0,
  snoopingStateFlooding = 1,
  snoopingStateActive = 2,
  snoopingStateTopologyChange = 3,
};

// Per-VLAN tri-state settings: no choice of the VLAN's own, off, on.
enum VlanState : uint8_t {
  vlanStateDefault = 0,
  vlanStateDisabled = 1,
  vlanStateEnabled = 2,
};
enum immediateLeaveVlanState : uint8_t {
  immediateLeaveDefault = 0,
  immediateLeaveDisabled = 1,
  immediateLeaveEnabled = 2,
};

// How a port holds a group, for the group listings.
enum IgmpIntfType : uint8_t {
  intfTypeDynamic = 0,
  intfTypeStatic = 1,
};

std::ostream& operator<<(std::ostream& os, IgmpMembershipState v);
std::ostream& operator<<(std::ostream& os, MulticastRouterType v);
std::ostream& operator<<(std::ostream& os, IgmpSnoopingFloodType v);
std::ostream& operator<<(std::ostream& os, IgmpSnoopingPktType v);
std::ostream& operator<<(std::ostream& os, IgmpSnoopingState v);

}  // namespace Bridging::IgmpSnooping
