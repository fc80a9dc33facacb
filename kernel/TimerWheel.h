// A hierarchical timer wheel that serves many notifiees from one clock: arming and cancelling cost
// constant time and no allocation, and timers due in the same tick fire in the order they were set.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/Clock.h"

namespace Bez {

class TimerWheel : public Kiv::PtrInterface {
  struct Bucket;

 public:
  class NotifieeConst : public Kiv::NotifieeBase {
   public:
    explicit NotifieeConst(Kiv::PtrInterface* owner = nullptr) : NotifieeBase(owner) {}
    ~NotifieeConst() override { disarm(); }

    // The pending wake-up, or infinity when none is pending (also after it has fired).
    Kiv::Seconds timeMin() const { return timeMin_; }
    // Replaces the pending wake-up; a time that isNever cancels it. The timer fires on the wheel's
    // tick grid, at the first tick at or after t; a time already past fires on the next turn.
    void timeMinIs(Kiv::Seconds t);
    virtual void onTime() {}

    Kiv::Ptr<TimerWheel const> notifier() const { return wheel_; }
    void notifierIs(Kiv::Ptr<TimerWheel const> wheel);
    // An unregistered notifiee keeps its time but is not woken; registering again re-arms it.
    void isRegisteredNotifieeIs(bool on);

   private:
    void arm();
    void disarm();
    // Arming through a read-only reference is what a notifiee is for: the wheel's lists of pending
    // timers are bookkeeping, not the wheel's value.
    Kiv::Ptr<TimerWheel> wheel_;
    Kiv::Seconds timeMin_ = Kiv::infinity;
    // Non-null while armed: the bucket whose list holds this timer.
    Bucket* bucket_ = nullptr;
    NotifieeConst* wheelPrev_ = nullptr;
    NotifieeConst* wheelNext_ = nullptr;
    // The tick of the list this timer sits in: its own tick, or an earlier one after it was pushed
    // later in place (then the wheel files it anew when it reaches that list).
    uint64_t tick_ = 0;
    // When it was last set, in the wheel's count of settings: the order of timers due in one tick.
    uint64_t seq_ = 0;
    friend class TimerWheel;
  };

  TimerWheel(Kiv::Ptr<Kiv::Clock> clock, uint32_t tickMsecs, uint32_t initialMaxTicks);
  ~TimerWheel() override;
  TimerWheel(const TimerWheel&) = delete;
  TimerWheel& operator=(const TimerWheel&) = delete;

  Kiv::Ptr<Kiv::Clock> clock() const { return clock_; }
  Kiv::Seconds tickSeconds() const { return tickSeconds_; }
  Kiv::Seconds processTimeLimit() const { return processTimeLimit_; }
  // Bounds the processor time one turn spends firing timers; the rest fire on the next turn. 0: none.
  void processTimeLimitIs(Kiv::Seconds limit) { processTimeLimit_ = limit; }

 private:
  static constexpr unsigned slotBits = 6;
  static constexpr unsigned slotCount = 1u << slotBits;

  struct Bucket {
    NotifieeConst* head = nullptr;
    NotifieeConst* tail = nullptr;
    // The level's occupancy word and this bucket's bit in it; null for the due list.
    uint64_t* occupancy = nullptr;
    uint64_t bit = 0;
  };
  struct Level {
    Level();
    // Bit s set <=> slots[s] holds a timer.
    uint64_t occupied = 0;
    std::array<Bucket, slotCount> slots;
  };
  class ClockReactor : public Kiv::Clock::NotifieeConst, public Kiv::Clock::StepObserver {
   public:
    explicit ClockReactor(TimerWheel* wheel) : Kiv::Clock::NotifieeConst(wheel), wheel_(wheel) {}
    void onTime() override { wheel_->handleTime(); }
    void onClockStepBack(Kiv::Seconds by) override { wheel_->rebase(by); }

   private:
    TimerWheel* wheel_;
  };

  void doArm(NotifieeConst* n);
  // Follows a step back of the clock: every timer keeps the time it had left (see Clock::noteNow).
  void rebase(Kiv::Seconds stepBack);
  // Pushes an armed timer to a time whose tick is not before the one it is filed under, in place;
  // false if it must be moved now.
  bool pushedInPlace(NotifieeConst* n, Kiv::Seconds t);
  static NotifieeConst* sortedBySeq(NotifieeConst* head, size_t n);
  // Sorts the last n timers of the due list, those after `before` (null: the whole list).
  void sortDueAfter(NotifieeConst* before, size_t n);
  void unlink(NotifieeConst* n);
  static void append(Bucket& b, NotifieeConst* n);
  // Files n by its tick relative to current_; returns the tick at which the wheel must next look at
  // it (its own tick, or the tick at which its slot cascades).
  uint64_t place(NotifieeConst* n);
  void advanceTo(uint64_t tick);
  void handleTime();
  Kiv::Seconds nextWakeTime() const;
  Kiv::Seconds tickTime(uint64_t tick) const { return static_cast<double>(tick) * tickSeconds_; }
  uint64_t tickAtOrAfter(Kiv::Seconds t) const;
  uint64_t tickDueBy(Kiv::Seconds t) const;

  Kiv::Ptr<Kiv::Clock> clock_;
  const Kiv::Seconds tickSeconds_;
  Kiv::Seconds processTimeLimit_ = 0;
  // Every tick up to current_ has been processed: its timers have fired or sit in due_.
  uint64_t current_;
  // Allocated on demand for far timers; a Level never moves, buckets point into it.
  std::vector<std::unique_ptr<Level>> levels_;
  // Timers whose tick has come, in firing order.
  Bucket due_;
  uint64_t seq_ = 0;
  // While a turn fires: the last timer of due_ that this turn fires; later ones wait for the next.
  NotifieeConst* fireLast_ = nullptr;
  bool inTurn_ = false;
  ClockReactor reactor_;
};

// tickMsecs: the grid. initialMaxTicks: how far ahead, in ticks, the levels built at once reach;
// further timers add levels. Timers due in one tick always fire in arm order, since the placement
// that keeps it costs nothing extra, so preserveOrder is accepted as the caller's statement of need.
// defaultBucketSize is a sizing hint that intrusive bucket lists do not need.
Kiv::Ptr<TimerWheel> TimerWheelIs(Kiv::Ptr<Kiv::Clock> clock, uint32_t tickMsecs, uint32_t initialMaxTicks,
                                  bool preserveOrder, uint32_t defaultBucketSize);

}  // namespace Bez
