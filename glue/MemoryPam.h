// Packet access in memory: received frames are queued by the caller, transmitted ones recorded as
// they would leave (tag inserted when tagged). For tests, benchmarks and replaying captures.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "glue/Pam.h"

namespace Lomax {

class MemoryPam : public Pam {
 public:
  struct TxFrame {
    Bridging::VlanId vlan;
    bool tagged;
    std::vector<uint8_t> bytes;
  };

  Kiv::Ptr<Pkt> rxPkt() override;
  void txPkt(const Kiv::Ptr<Pkt>& pkt, Bridging::VlanId vlan, bool tagged) override;

  // Queues a frame; nothing is read until rxReady.
  void rxPktEnqueue(Kiv::Ptr<Pkt> pkt) { rx_.push_back(std::move(pkt)); }
  // Tells the reader that frames wait, as a packet source's readiness does.
  void rxReady() { doRxReady(); }
  size_t rxQueued() const { return rx_.size(); }

  // Transmitted frames; with recording off only counted.
  const std::vector<TxFrame>& tx() const { return tx_; }
  void txClear() { tx_.clear(); }
  uint64_t txCount() const { return txCount_; }
  void txRecordIs(bool on) { txRecord_ = on; }

 private:
  std::deque<Kiv::Ptr<Pkt>> rx_;
  std::vector<TxFrame> tx_;
  uint64_t txCount_ = 0;
  bool txRecord_ = true;
};

}  // namespace Lomax
