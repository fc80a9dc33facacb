// Back-to-back packet access in memory.
#include "glue/PamConnector.h"

#include "kernel/ActivityManager.h"
#include "net/PktVlanTag.h"

namespace Lomax {

class PamConnector::End : public Pam {
 public:
  Kiv::Ptr<Pkt> rxPkt() override {
    if (rx_.empty()) return nullptr;
    Kiv::Ptr<Pkt> pkt = std::move(rx_.front());
    rx_.pop_front();
    return pkt;
  }
  // The peer gets a copy of its own, as from a wire.
  void txPkt(const Kiv::Ptr<Pkt>& pkt, Bridging::VlanId vlan, bool tagged) override {
    if (!peer_ || !pkt) return;
    Kiv::Ptr<Pkt> copy = globalPktManager().newPkt(std::span<const uint8_t>(pkt->data(), pkt->len()));
    if (tagged) insertPktVlanTag(copy, vlan);
    peer_->rxPktEnqueue(std::move(copy));
  }
  void peerIs(End* peer) { peer_ = peer; }

 private:
  // One notice per batch: frames sent in one turn are read together on the next.
  void rxPktEnqueue(Kiv::Ptr<Pkt> pkt) {
    rx_.push_back(std::move(pkt));
    if (noticePending_) return;
    noticePending_ = true;
    Kiv::Ptr<End> self(this);
    Kiv::activityManager()->deferIs([self] {
      self->noticePending_ = false;
      if (!self->rx_.empty()) self->doRxReady();
    });
  }

  End* peer_ = nullptr;
  std::deque<Kiv::Ptr<Pkt>> rx_;
  bool noticePending_ = false;
};

PamConnector::PamConnector() {
  Kiv::Ptr<End> a = Kiv::make<End>(), b = Kiv::make<End>();
  a->peerIs(b.ptr());
  b->peerIs(a.ptr());
  pam0_ = a;
  pam1_ = b;
}

PamConnector::~PamConnector() {
  static_cast<End*>(pam0_.ptr())->peerIs(nullptr);
  static_cast<End*>(pam1_.ptr())->peerIs(nullptr);
}

}  // namespace Lomax
