// Pending wake-ups live in one multimap keyed by time; equal times keep the order in which they
// were armed, because a multimap inserts an equal key after those already present.
#include "kernel/Clock.h"

#include <chrono>

namespace Kiv {

void Clock::NotifieeConst::timeMinIs(Seconds t) {
  if (!isOrderedTime(t)) throwRangeException(secondsRangeText);
  if (isNever(t)) t = infinity;
  if (t == timeMin_) return;
  disarm();
  timeMin_ = t;
  arm();
}

void Clock::NotifieeConst::notifierIs(Ptr<Clock> clock) {
  if (clock == notifier_) return;
  disarm();
  notifier_ = std::move(clock);
  arm();
}

void Clock::NotifieeConst::isRegisteredNotifieeIs(bool on) {
  if (on == isRegisteredNotifiee()) return;
  disarm();
  registeredIs(on);
  arm();
}

void Clock::NotifieeConst::arm() {
  if (!notifier_ || !isRegisteredNotifiee() || isNever(timeMin_)) return;
  entry_ = notifier_->pending_.emplace(timeMin_, this);
  armSeq_ = notifier_->armCount_++;
  armed_ = true;
}

void Clock::NotifieeConst::disarm() {
  if (!armed_) return;
  notifier_->pending_.erase(entry_);
  armed_ = false;
}

Seconds Clock::systemNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void Clock::stepBackBy(Seconds d) {
  stepBackTotal_ += d;
  // Rebuilt in the map's order, so that equal times keep their order.
  std::multimap<Seconds, NotifieeConst*> moved;
  for (auto& [t, n] : pending_) {
    n->timeMin_ = t - d;
    n->entry_ = moved.emplace_hint(moved.end(), n->timeMin_, n);
  }
  pending_.swap(moved);
  const std::vector<StepObserver*> observers = stepObservers_;
  for (StepObserver* o : observers) o->onClockStepBack(d);
}

void Clock::doFireDue() {
  noteNow();
  KeepAlive self(this);
  const uint64_t fence = armCount_;
  const Seconds t = now();
  // Refresh from the map each time: a handler may have cancelled or armed any entry.
  while (!pending_.empty()) {
    NotifieeConst* n = pending_.begin()->second;
    if (pending_.begin()->first > t || n->armSeq_ >= fence) {
      // An entry armed during this turn waits for the next; later ones wait behind it to keep order.
      break;
    }
    fire(n);
  }
}

void Clock::doFireNext() {
  KeepAlive self(this);
  if (!pending_.empty()) fire(pending_.begin()->second);
}

void Clock::fire(NotifieeConst* n) {
  n->disarm();
  n->timeMin_ = infinity;
  if (n->kivIsZombie()) return;
  KeepAlive hold(n->kivOwner());
  NotifieeBase::kivCall(n, [n] { n->onTime(); });
}

}  // namespace Kiv
