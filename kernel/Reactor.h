// Timer reactors of state machines: a clock or wheel notifiee embedded in its machine, whose onTime
// calls one handler of the machine. The machine is the reactor's owner, so its zombie flag silences it.
#pragma once

#include "kernel/Clock.h"
#include "kernel/TimerWheel.h"

namespace Kiv {

template <class Sm, void (Sm::*Handler)()>
class ClockReactor : public Clock::NotifieeConst {
 public:
  explicit ClockReactor(Sm* sm) : Clock::NotifieeConst(sm) {}
  void onTime() override { (static_cast<Sm*>(kivOwner())->*Handler)(); }
};

}  // namespace Kiv

namespace Bez {

template <class Sm, void (Sm::*Handler)()>
class WheelReactor : public TimerWheel::NotifieeConst {
 public:
  explicit WheelReactor(Sm* sm) : TimerWheel::NotifieeConst(sm) {}
  void onTime() override { (static_cast<Sm*>(kivOwner())->*Handler)(); }
};

}  // namespace Bez
