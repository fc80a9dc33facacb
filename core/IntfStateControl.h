// Hooks that other components install in a core to steer what happens to state when ports change:
// whether a router may move to another port, and which port takes over from one going down.
#pragma once

#include "kernel/HashMap.h"
#include "kernel/Ptr.h"
#include "kernel/String.h"
#include "net/IntfId.h"
#include "net/IpAddr.h"

namespace IgmpSnooping {

class IntfStateControl : public Kiv::PtrInterface, public Kiv::HashLink<IntfStateControl> {
 public:
  enum MoveDecision : uint8_t { noOpinion = 0, doNotMove = 1, move = 2 };

  explicit IntfStateControl(const Kiv::Name& name) : name_(name) {}
  const Kiv::Name& name() const { return name_; }

  // A router heard on newIntf is known on currentIntf: may it move?
  virtual MoveDecision routerMove(Lomax::IpAddr router, Lomax::IntfId currentIntf, Lomax::IntfId newIntf) = 0;
  // intf is going down: the port that takes over its state, or the empty id.
  virtual Lomax::IntfId moveToIntf(Lomax::IntfId intf, bool overrideDownState) = 0;

 private:
  Kiv::Name name_;
};

struct IntfStateControlName {
  const Kiv::Name& operator()(const IntfStateControl& c) const { return c.name(); }
};

// The controls installed in one core, asked in turn.
class IntfStateControls : public Kiv::PtrInterface {
 public:
  void controlIs(const Kiv::Ptr<IntfStateControl>& c) { controls_.insert(c->name(), c); }
  void controlDel(const Kiv::Name& name) { controls_.take(name); }
  bool empty() const { return controls_.empty(); }
  auto controlIter() const { return controls_.iter(); }

 private:
  Kiv::HashMap<Kiv::Name, IntfStateControl, IntfStateControlName> controls_;
};

}  // namespace IgmpSnooping
