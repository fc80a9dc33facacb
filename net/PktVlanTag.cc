// 802.1Q tags are moved in and out by shifting the two addresses, which keeps the rest of the frame still.
#include "net/PktVlanTag.h"

#include <cstring>

namespace Lomax {

namespace {
constexpr uint16_t addressBytes = 12;

bool isTagged(const Pkt& pkt) {
  return pkt.len() >= addressBytes + vlanTagBytes && (pkt.data()[12] << 8 | pkt.data()[13]) == ethTypeVlan;
}
}  // namespace

uint16_t vlanIdFromEthPkt(const Kiv::Ptr<Pkt>& pkt) {
  if (!isTagged(*pkt)) return 0;
  return static_cast<uint16_t>((pkt->data()[14] << 8 | pkt->data()[15]) & 0x0fff);
}

bool stripPktVlanTag(const Kiv::Ptr<Pkt>& pkt) {
  if (!isTagged(*pkt)) return false;
  pkt->doUnshare();
  std::memmove(pkt->data() + vlanTagBytes, pkt->data(), addressBytes);
  pkt->frontInc(vlanTagBytes);
  return true;
}

void insertPktVlanTag(const Kiv::Ptr<Pkt>& pkt, Bridging::VlanId vlan) {
  insertPktVlanTag(pkt, ethTypeVlan, vlan.value());
}

void insertPktVlanTag(const Kiv::Ptr<Pkt>& pkt, uint16_t tpid, uint16_t tci) {
  KIV_ASSERT(pkt->len() >= addressBytes);
  pkt->doUnshare(vlanTagBytes);
  pkt->frontInc(-vlanTagBytes);
  uint8_t* d = pkt->data();
  std::memmove(d, d + vlanTagBytes, addressBytes);
  d[12] = static_cast<uint8_t>(tpid >> 8);
  d[13] = static_cast<uint8_t>(tpid);
  d[14] = static_cast<uint8_t>(tci >> 8);
  d[15] = static_cast<uint8_t>(tci);
}

}  // namespace Lomax
