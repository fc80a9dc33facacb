// Packet access of one interface: a source of received frames that says when it has some, and a sink
// that puts a frame on the wire with or without an 802.1Q tag. The platform implements it.
#pragma once

#include "kernel/Ptr.h"
#include "net/Pkt.h"
#include "net/VlanId.h"

namespace Lomax {

class Pam : public Kiv::PtrInterface {
 public:
  // Told, on the agent's thread, that frames wait; it reads them with rxPkt.
  class Notifiee {
   public:
    virtual ~Notifiee() = default;
    virtual void onRxPkt() = 0;
  };

  // The next received frame as the wire carried it (a tag in front of the EtherType), or null when
  // none waits.
  virtual Kiv::Ptr<Pkt> rxPkt() = 0;
  // Sends the frame from its first to its last byte (offsets play no part), with a tag of vlan
  // inserted behind the addresses when tagged. The frame's bytes are left as they are.
  virtual void txPkt(const Kiv::Ptr<Pkt>& pkt, Bridging::VlanId vlan, bool tagged) = 0;

  Notifiee* notifiee() const { return notifiee_; }
  void notifieeIs(Notifiee* n) { notifiee_ = n; }

 protected:
  // Implementations call this when frames wait, and again later while some are left unread.
  void doRxReady() {
    if (notifiee_) notifiee_->onRxPkt();
  }

 private:
  Notifiee* notifiee_ = nullptr;
};

}  // namespace Lomax
