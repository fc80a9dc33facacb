// A platform's hook into software flooding: it may claim a received packet (a tunnelled one, say), add
// a router port for packets from an interface, and forbid a packet on an outgoing interface.
#pragma once

#include "kernel/Ptr.h"
#include "net/IntfId.h"
#include "net/Pkt.h"

namespace IgmpSnooping {

class FloodControl : public Kiv::PtrInterface {
 public:
  enum PktType : uint8_t { floodCtrlLinkLocal = 0, floodCtrlOther = 1 };

  // True when the hook takes the packet; the agent then keeps no more of it.
  virtual bool preProcessPkt(const Kiv::Ptr<Lomax::Pkt>& pkt) = 0;
  // One more interface to treat as a router port for packets from incoming; empty for none.
  virtual Lomax::IntfId additionalRouterIntf(Lomax::IntfId incoming) = 0;
  // Whether this packet may leave on outgoing.
  virtual bool floodAllowed(const Kiv::Ptr<Lomax::Pkt>& pkt, PktType type, Lomax::IntfId incoming,
                            Lomax::IntfId outgoing) = 0;
};

}  // namespace IgmpSnooping
