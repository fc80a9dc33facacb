// Reading, removing and adding the 802.1Q tag of an Ethernet frame.
#pragma once

#include <cstdint>

#include "kernel/Ptr.h"
#include "net/Pkt.h"
#include "net/VlanId.h"

namespace Lomax {

inline constexpr uint16_t ethTypeVlan = 0x8100;
inline constexpr uint16_t ethTypeIp = 0x0800;
inline constexpr uint16_t ethHeaderBytes = 14;
inline constexpr uint16_t vlanTagBytes = 4;

// The VLAN number of the frame's tag as it stands (0 to 4095), or 0 for an untagged or short frame.
// Raw, since a tag may carry a number that is no VlanId.
uint16_t vlanIdFromEthPkt(const Kiv::Ptr<Pkt>& pkt);
// Removes the frame's 802.1Q tag in place; false, and the frame unchanged, if it has none.
bool stripPktVlanTag(const Kiv::Ptr<Pkt>& pkt);
// Inserts an 802.1Q tag (priority 0) behind the addresses, for transmit on a tagged port.
void insertPktVlanTag(const Kiv::Ptr<Pkt>& pkt, Bridging::VlanId vlan);
// Inserts a tag with exactly this TPID and TCI (priority and VLAN number as they were on the wire).
void insertPktVlanTag(const Kiv::Ptr<Pkt>& pkt, uint16_t tpid, uint16_t tci);

}  // namespace Lomax
