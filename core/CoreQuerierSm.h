// Ages the elected querier: when its expire comes, it is deleted.
#pragma once

#include "kernel/EntityDecl.h"
#include "kernel/Reactor.h"
#include "kernel/StateMachine.h"
#include "model/IgmpContextStatus.h"

namespace Bridging::IgmpSnooping {

class CoreQuerierSm : public Kiv::StateMachine {
 public:
  CoreQuerierSm(Kiv::Ptr<MulticastRouter> querier, Kiv::Ptr<IgmpContextStatus> status,
                Kiv::Ptr<Bez::TimerWheel const> timerWheel);
  bool kivSameArgs(const Kiv::Ptr<MulticastRouter>& q, const Kiv::Ptr<IgmpContextStatus>&,
                   const Kiv::Ptr<Bez::TimerWheel const>&) const {
    return q == querier_;
  }
  const Kiv::Ptr<MulticastRouter>& querier() const { return querier_; }
  Kiv::Seconds timerTime() const { return querierTimer_.timeMin(); }

  void handleQuerierExpire();
  void handleQuerierTimer();

 private:
  class KivQuerier : public MulticastRouter::NotifieeConst {
   public:
    explicit KivQuerier(CoreQuerierSm* sm) : MulticastRouter::NotifieeConst(sm) {}
    void onExpire() override { static_cast<CoreQuerierSm*>(kivOwner())->handleQuerierExpire(); }
  };

  Kiv::Ptr<MulticastRouter> querier_;
  Kiv::Ptr<IgmpContextStatus> status_;
  KivQuerier kivQuerier_;
  Bez::WheelReactor<CoreQuerierSm, &CoreQuerierSm::handleQuerierTimer> querierTimer_;
  bool initialized_ = false;
};

}  // namespace Bridging::IgmpSnooping
