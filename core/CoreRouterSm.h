// Ages one multicast router entry, and carries out a planned move of it to another interface.
#pragma once

#include <ostream>

#include "kernel/EntityDecl.h"
#include "kernel/Reactor.h"
#include "kernel/StateMachine.h"
#include "model/MulticastRouter.h"

namespace Bridging::IgmpSnooping {

class CoreSm;

class CoreRouterSm : public Kiv::StateMachine, public Kiv::HashLink<CoreRouterSm> {
 public:
  // A planned move; the default (empty interface, 0.0) means none.
  struct RouterMove {
    Lomax::IntfId newIntfId;
    Kiv::Seconds newLife = 0.0;
    bool operator==(const RouterMove&) const = default;
  };

  CoreRouterSm(Lomax::IpAddr addr, Kiv::Ptr<MulticastRouter> router,
               Kiv::Ptr<Bez::TimerWheel const> timerWheel, Kiv::Ptr<Bez::TimerWheel const> moveTimerWheel,
               CoreSm* coreSm);
  const Lomax::IpAddr& kivKey() const { return addr_; }
  void kivCheckParams(const Kiv::Ptr<MulticastRouter>& r, const Kiv::Ptr<Bez::TimerWheel const>&,
                      const Kiv::Ptr<Bez::TimerWheel const>&, CoreSm*) const {
    Kiv::checkParam("router", router_, r);
  }

  Lomax::IpAddr addr() const { return addr_; }
  const Kiv::Ptr<MulticastRouter>& router() const { return router_; }
  bool initialized() const { return initialized_; }
  const RouterMove& routerMove() const { return routerMove_; }
  void routerMoveIs(const RouterMove& m);
  Kiv::Seconds timerTime() const { return routerTimer_.timeMin(); }

  void handleRouterExpire();
  void handleRouterTimer();
  void handleRouterLastHeard();
  void handleRouterMove();
  void handleRouterMoveTimer();

 private:
  class KivRouter : public MulticastRouter::NotifieeConst {
   public:
    explicit KivRouter(CoreRouterSm* sm) : MulticastRouter::NotifieeConst(sm) {}
    void onExpire() override { sm()->handleRouterExpire(); }
    void onLastHeard() override { sm()->handleRouterLastHeard(); }

   private:
    CoreRouterSm* sm() const { return static_cast<CoreRouterSm*>(kivOwner()); }
  };

  Lomax::IpAddr addr_;
  Kiv::Ptr<MulticastRouter> router_;
  CoreSm* coreSm_;
  RouterMove routerMove_;
  KivRouter kivRouter_;
  Bez::WheelReactor<CoreRouterSm, &CoreRouterSm::handleRouterTimer> routerTimer_;
  Bez::WheelReactor<CoreRouterSm, &CoreRouterSm::handleRouterMoveTimer> routerMoveTimer_;
  bool initialized_ = false;
};

std::ostream& operator<<(std::ostream& os, const CoreRouterSm::RouterMove& m);

}  // namespace Bridging::IgmpSnooping
