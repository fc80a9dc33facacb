// Packet access in memory.
#include "glue/MemoryPam.h"

#include "net/PktVlanTag.h"

namespace Lomax {

Kiv::Ptr<Pkt> MemoryPam::rxPkt() {
  if (rx_.empty()) return nullptr;
  Kiv::Ptr<Pkt> pkt = std::move(rx_.front());
  rx_.pop_front();
  return pkt;
}

void MemoryPam::txPkt(const Kiv::Ptr<Pkt>& pkt, Bridging::VlanId vlan, bool tagged) {
  ++txCount_;
  if (!txRecord_) return;
  TxFrame f{vlan, tagged, {pkt->data(), pkt->data() + pkt->len()}};
  if (tagged) {
    const uint16_t tci = vlan.value();
    const uint8_t tag[vlanTagBytes] = {ethTypeVlan >> 8, ethTypeVlan & 0xff, static_cast<uint8_t>(tci >> 8),
                                       static_cast<uint8_t>(tci)};
    f.bytes.insert(f.bytes.begin() + 12, tag, tag + vlanTagBytes);
  }
  tx_.push_back(std::move(f));
}

}  // namespace Lomax
