// Sends queries on one port that has just begun to forward, so that the hosts behind it report at
// once instead of waiting for the querier's next general query.
#pragma once

#include "kernel/Reactor.h"
#include "kernel/StateMachine.h"
#include "model/Config.h"
#include "model/IgmpContextStatus.h"

namespace Bridging::IgmpSnooping {

class CoreSm;

class IntfQuerySpoofer : public Kiv::StateMachine, public Kiv::HashLink<IntfQuerySpoofer> {
 public:
  // With no initial query times configured, one query goes out this long after the start.
  static constexpr Kiv::Seconds defaultFirstDelay = 2.0;

  IntfQuerySpoofer(Lomax::IntfId intf, Kiv::Ptr<Config const> config,
                   Kiv::Ptr<IgmpContextStatus const> status, Kiv::Ptr<Bez::TimerWheel const> timerWheel,
                   CoreSm* coreSm);
  const Lomax::IntfId& kivKey() const { return intf_; }
  void kivCheckParams(const Kiv::Ptr<Config const>&, const Kiv::Ptr<IgmpContextStatus const>&,
                      const Kiv::Ptr<Bez::TimerWheel const>&, CoreSm*) const {}

  Lomax::IntfId intf() const { return intf_; }
  const Kiv::Ptr<Config const>& config() const { return config_; }
  const Kiv::Ptr<IgmpContextStatus const>& status() const { return status_; }
  uint32_t queriesSent() const { return queriesSent_; }
  Kiv::Seconds timerTime() const { return queryTimer_.timeMin(); }

  void handleQueryTimer();

 private:
  void handleInitialized();
  // Entry i of the configured times, in milliseconds; a missing entry counts as 0.
  uint32_t queryTime(uint32_t i) const;

  Lomax::IntfId intf_;
  Kiv::Ptr<Config const> config_;
  Kiv::Ptr<IgmpContextStatus const> status_;
  CoreSm* coreSm_;
  Bez::WheelReactor<IntfQuerySpoofer, &IntfQuerySpoofer::handleQueryTimer> queryTimer_;
  uint32_t queriesSent_ = 0;
  bool initialized_ = false;
};

}  // namespace Bridging::IgmpSnooping
