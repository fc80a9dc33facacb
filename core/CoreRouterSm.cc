// A router entry's timer, and the delayed move that only the generic attribute interface plans.
#include "core/CoreRouterSm.h"

#include "core/CoreSm.h"
#include "core/CoreTrace.h"

namespace Bridging::IgmpSnooping {

CoreRouterSm::CoreRouterSm(Lomax::IpAddr addr, Kiv::Ptr<MulticastRouter> router,
                           Kiv::Ptr<Bez::TimerWheel const> timerWheel,
                           Kiv::Ptr<Bez::TimerWheel const> moveTimerWheel, CoreSm* coreSm)
    : addr_(addr),
      router_(std::move(router)),
      coreSm_(coreSm),
      kivRouter_(this),
      routerTimer_(this),
      routerMoveTimer_(this) {
  routerTimer_.notifierIs(timerWheel);
  routerMoveTimer_.notifierIs(moveTimerWheel);
  kivRouter_.notifierIs(router_);
  // The router timer is armed by the next change of expire, not here.
  initialized_ = true;
}

void CoreRouterSm::routerMoveIs(const RouterMove& m) {
  if (m == routerMove_) return;
  routerMove_ = m;
  handleRouterMove();
}

void CoreRouterSm::handleRouterExpire() {
  if (!initialized_) return;
  KIV_TRACE(coreTrace, 9, "setting router timeMin to " << router_->expire());
  routerTimer_.timeMinIs(router_->expire());
}

void CoreRouterSm::handleRouterTimer() {
  KIV_RING(2,
           "Multicast router " << addr_ << " on Vlan " << coreSm_->vlanId() << " timed out and is deleted");
  coreSm_->status()->routerDel(addr_);
}

void CoreRouterSm::handleRouterMove() {
  if (!initialized_ || routerMove_ == RouterMove()) return;
  KIV_TRACE(coreTrace, 9,
            "CoreRouterSm::"
                << "handleRouterMove"
                << " scheduling move for router " << addr_);
  routerMoveTimer_.timeMinIs(coreSm_->now() + 1.0);
}

void CoreRouterSm::handleRouterLastHeard() {
  if (!initialized_ || routerMove_ == RouterMove()) return;
  KIV_TRACE(coreTrace, 9,
            "CoreRouterSm::"
                << "handleRouterLastHeard"
                << " cancelling move for router " << addr_);
  routerMoveTimer_.timeMinIs(Kiv::infinity);
  routerMove_ = RouterMove();
}

void CoreRouterSm::handleRouterMoveTimer() {
  if (routerMove_ == RouterMove()) return;
  KIV_TRACE(coreTrace, 9,
            "CoreRouterSm::"
                << "handleRouterMoveTimer"
                << " moving router " << addr_ << " from " << router_->intf() << " to "
                << routerMove_.newIntfId);
  // Hearing of the router (lastHeard below) cancels the plan, so take it first.
  const RouterMove move = routerMove_;
  router_->intfIs(move.newIntfId);
  router_->lastHeardIs(coreSm_->now() - 1.0);
  router_->expireIs(move.newLife + router_->lastHeard());
  routerMoveTimer_.timeMinIs(Kiv::infinity);
  routerMove_ = RouterMove();
}

std::ostream& operator<<(std::ostream& os, const CoreRouterSm::RouterMove& m) {
  return os << "Value('Bridging::IgmpSnooping::CoreRouterSm::RouterMove', ** {'newIntfId': " << m.newIntfId
            << ", 'newLife': " << m.newLife << "})";
}

}  // namespace Bridging::IgmpSnooping
