// A source of time that wakes its notifiees: each notifiee asks for one absolute time and is called
// back once the clock has reached it. The activity loop owns the process's clock and drives it.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "kernel/Exception.h"
#include "kernel/Notifiee.h"
#include "kernel/Ptr.h"
#include "kernel/Value.h"

namespace Kiv {

namespace detail {
// Where trace and log stamps can be read without a call (the loop's phase stamp, or its virtual time),
// or null; kept by stampAtUpdate() whenever what it depends on changes.
extern const double* stampAt;
void stampAtUpdate();
}  // namespace detail

class Clock : public PtrInterface {
 public:
  class NotifieeConst : public NotifieeBase {
   public:
    explicit NotifieeConst(PtrInterface* owner = nullptr) : NotifieeBase(owner) {}
    ~NotifieeConst() override { disarm(); }

    // The pending wake-up, or infinity when none is pending (also after it has fired).
    Seconds timeMin() const { return timeMin_; }
    // Replaces the pending wake-up; a time that isNever cancels it. A time at or before now fires on
    // the loop's next turn, never inside this call.
    void timeMinIs(Seconds t);
    virtual void onTime() {}

    Ptr<Clock> notifier() const { return notifier_; }
    void notifierIs(Ptr<Clock> clock);
    // An unregistered notifiee keeps its time but is not woken; registering again re-arms it.
    void isRegisteredNotifieeIs(bool on);

   private:
    void arm();
    void disarm();
    Ptr<Clock> notifier_;
    Seconds timeMin_ = infinity;
    // Valid while armed_: the notifiee's entry in notifier_->pending_.
    std::multimap<Seconds, NotifieeConst*>::iterator entry_;
    // Arm sequence number: a turn fires only entries armed before it began.
    uint64_t armSeq_ = 0;
    bool armed_ = false;
    friend class Clock;
  };

  Clock() = default;
  Clock(const Clock&) = delete;
  Clock& operator=(const Clock&) = delete;

  // Seconds since the epoch: the system clock, or the virtual time that tests and replay set by hand.
  [[gnu::always_inline]] Seconds now() const { return virtual_ ? virtualNow_ : systemNow(); }
  bool isVirtual() const { return virtual_; }
  // Setting a virtual time earlier than the current one is a step back of the clock (see stepBack).
  void virtualTimeIs(Seconds t) {
    if (!isOrderedTime(t)) throwRangeException(secondsRangeText);
    const bool was = virtual_;
    const Seconds before = virtualNow_;
    virtual_ = true, virtualNow_ = t;
    lastNow_ = t;
    if (!was) {
      detail::stampAtUpdate();
    } else if (t < before) {
      stepBackBy(before - t);
    }
  }
  void systemTimeIs() {
    virtual_ = false;
    lastNow_ = systemNow();
    detail::stampAtUpdate();
  }

  // Steps of the system clock. A step forward cannot be told from time passing, and is taken as
  // such: wake-ups it overtakes fire at once. A step back, seen when now() is earlier than at the
  // previous look, moves every pending wake-up back by the step, so that each keeps the time it had
  // left; timers kept elsewhere on this clock (the timer wheel) follow through StepObserver.
  // noteNow looks; the loop calls it at the start of each turn and before firing.
  void noteNow() {
    const Seconds t = now();
    if (t < lastNow_) stepBackBy(lastNow_ - t);
    lastNow_ = t;
  }
  // The sum of every step back seen so far.
  Seconds stepBackTotal() const { return stepBackTotal_; }

  // Told of each step back once the clock's own wake-ups have moved: keepers of their own timers.
  class StepObserver {
   public:
    virtual void onClockStepBack(Seconds by) = 0;

   protected:
    ~StepObserver() = default;
  };
  void stepObserverAdd(StepObserver* o) { stepObservers_.push_back(o); }
  void stepObserverDel(StepObserver* o) { std::erase(stepObservers_, o); }
  // Where a virtual time is kept: it follows every change of it.
  const Seconds* virtualNowAt() const { return &virtualNow_; }

  // The earliest pending wake-up, or infinity.
  Seconds nextTime() const { return pending_.empty() ? infinity : pending_.begin()->first; }
  // Fires, in time order, every wake-up at or before now that was armed before this call began.
  void doFireDue();
  // Fires the earliest pending wake-up alone, whatever its time; a virtual loop steps with it.
  void doFireNext();

  static Seconds systemNow();

 private:
  void fire(NotifieeConst* n);
  void stepBackBy(Seconds d);
  std::multimap<Seconds, NotifieeConst*> pending_;
  Seconds lastNow_ = -std::numeric_limits<double>::max();
  Seconds stepBackTotal_ = 0;
  std::vector<StepObserver*> stepObservers_;
  uint64_t armCount_ = 0;
  Seconds virtualNow_ = 0;
  bool virtual_ = false;
};

}  // namespace Kiv
