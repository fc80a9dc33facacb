// The querier's timer.
#include "core/CoreQuerierSm.h"

#include "core/CoreTrace.h"
#include "kernel/ActivityManager.h"

namespace Bridging::IgmpSnooping {

CoreQuerierSm::CoreQuerierSm(Kiv::Ptr<MulticastRouter> querier, Kiv::Ptr<IgmpContextStatus> status,
                             Kiv::Ptr<Bez::TimerWheel const> timerWheel)
    : querier_(std::move(querier)), status_(std::move(status)), kivQuerier_(this), querierTimer_(this) {
  querierTimer_.notifierIs(timerWheel);
  kivQuerier_.notifierIs(querier_);
  initialized_ = true;
}

void CoreQuerierSm::handleQuerierExpire() {
  if (!initialized_ || status_->querier() != querier_) return;
  KIV_TRACE(coreTrace, 9,
            "setting querier timeMin to " << querier_->expire() << " (now is " << Kiv::System::currentTime()
                                          << ")");
  querierTimer_.timeMinIs(querier_->expire());
}

void CoreQuerierSm::handleQuerierTimer() {
  if (status_->querier() != querier_) return;
  KIV_RING(
      2, "Querier " << querier_->addr() << " on Vlan " << status_->vlanId() << " timed out and is deleted.");
  status_->querierDel();
  status_->lastQueryRobustnessIs(0);
  status_->lastQueryQueryIntervalIs(0);
}

}  // namespace Bridging::IgmpSnooping
