// Design. Ticks are absolute: tick T is the time T * tickSeconds. The wheel has levels of 64 slots;
// digit l of a tick (bits 6l..6l+5) picks its slot at level l. current_ (C) is the last tick
// processed. A timer due at T > C lives at the level of the highest digit in which T and C differ,
// in the slot of T's digit there. So every timer agrees with C on all digits above its level, and
// its slot lies ahead of C's digit at that level. Finding the next thing to do is then the lowest
// level with an occupied slot, and its lowest occupied slot (a bitmap scan): at level 0 that slot's
// tick fires; higher up, when C reaches the start of the slot's span the slot cascades: each timer
// is filed again against the new C, landing at a lower level or in the due list. C jumps straight
// to that tick, so empty stretches of any length cost nothing.
//
// Pushing later. A million membership timers are pushed later by every report. Moving a timer means
// unlinking it, which writes its neighbours: other timers, scattered in memory, two cache misses each
// time. So a timer pushed to a tick at or after the one it is filed under stays where it is with its
// new time; when the wheel reaches its list it files it by its real time, like any cascade. It never
// fires early: a list's processing refiles every timer whose time has not come.
//
// Order. Every setting of a timer takes the next number of the wheel's count (seq_). Timers due in one
// tick fire in the order of those numbers, the order in which they were last set. Arming appends and
// a cascade appends in list order, which keeps that order, except after a push in place: a pushed timer
// may sit ahead of timers set after it, or land behind them when it is filed anew. Timers reach the
// due list only while one list is processed (level 0, or a higher level at the first tick of its
// span), so that processing compares each timer it sends there with the one sent before it, and
// merge-sorts what it sent, by number, only when some pair was out of order.

#include "kernel/TimerWheel.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>

#include "kernel/Exception.h"

namespace Bez {

namespace {
// Ticks beyond this are filed at the largest tick: a time so far away that it never comes.
constexpr double maxTickValue = 1.8e19;

// The tick at which the wheel acts on slot s of level l while the current tick is c.
uint64_t slotTick(uint64_t c, unsigned l, unsigned s) {
  const unsigned above = 6 * (l + 1);
  const uint64_t high = above >= 64 ? 0 : (c >> above) << above;
  return high | (static_cast<uint64_t>(s) << (6 * l));
}
}  // namespace

TimerWheel::Level::Level() {
  for (unsigned s = 0; s < slots.size(); ++s) {
    slots[s].occupancy = &occupied;
    slots[s].bit = uint64_t{1} << s;
  }
}

TimerWheel::TimerWheel(Kiv::Ptr<Kiv::Clock> clock, uint32_t tickMsecs, uint32_t initialMaxTicks)
    : clock_(std::move(clock)), tickSeconds_(tickMsecs / 1000.0), reactor_(this) {
  KIV_ASSERT(tickMsecs > 0);
  current_ = tickDueBy(clock_->now());
  // One level more than the span needs: a timer within the span may still cross a boundary of
  // the top level's digit.
  unsigned levels = 1;
  for (uint64_t span = slotCount; span < initialMaxTicks && levels < 64 / slotBits; span <<= slotBits)
    ++levels;
  for (unsigned l = 0; l <= levels; ++l) levels_.push_back(std::make_unique<Level>());
  reactor_.notifierIs(clock_);
  clock_->stepObserverAdd(&reactor_);
}

TimerWheel::~TimerWheel() { clock_->stepObserverDel(&reactor_); }

Kiv::Ptr<TimerWheel> TimerWheelIs(Kiv::Ptr<Kiv::Clock> clock, uint32_t tickMsecs, uint32_t initialMaxTicks,
                                  bool, uint32_t) {
  return Kiv::make<TimerWheel>(std::move(clock), tickMsecs, initialMaxTicks);
}

uint64_t TimerWheel::tickAtOrAfter(Kiv::Seconds t) const {
  if (!(t > 0)) return 0;
  const double q = t / tickSeconds_;
  if (q >= maxTickValue) return UINT64_MAX;
  // Correct the division's rounding against tickTime itself, so that a timer set to a tick's own
  // time is due in that tick and never early.
  uint64_t tick = static_cast<uint64_t>(std::ceil(q));
  if (tick > 0 && tickTime(tick - 1) >= t) {
    --tick;
  } else if (tickTime(tick) < t) {
    ++tick;
  }
  return tick;
}

uint64_t TimerWheel::tickDueBy(Kiv::Seconds t) const {
  if (!(t > 0)) return 0;
  const double q = t / tickSeconds_;
  if (q >= maxTickValue) return UINT64_MAX;
  uint64_t tick = static_cast<uint64_t>(q);
  if (tickTime(tick + 1) <= t) {
    ++tick;
  } else if (tick > 0 && tickTime(tick) > t) {
    --tick;
  }
  return tick;
}

void TimerWheel::NotifieeConst::timeMinIs(Kiv::Seconds t) {
  if (!Kiv::isOrderedTime(t)) Kiv::throwRangeException(Kiv::secondsRangeText);
  if (Kiv::isNever(t)) t = Kiv::infinity;
  if (t == timeMin_) return;
  if (bucket_ && wheel_->pushedInPlace(this, t)) return;
  disarm();
  timeMin_ = t;
  arm();
}

void TimerWheel::NotifieeConst::notifierIs(Kiv::Ptr<TimerWheel const> wheel) {
  if (wheel == wheel_) return;
  disarm();
  wheel_ = Kiv::Ptr<TimerWheel>(const_cast<TimerWheel*>(wheel.ptr()));
  arm();
}

void TimerWheel::NotifieeConst::isRegisteredNotifieeIs(bool on) {
  if (on == isRegisteredNotifiee()) return;
  disarm();
  registeredIs(on);
  arm();
}

void TimerWheel::NotifieeConst::arm() {
  if (wheel_ && isRegisteredNotifiee() && !Kiv::isNever(timeMin_)) wheel_->doArm(this);
}

void TimerWheel::NotifieeConst::disarm() {
  if (bucket_) wheel_->unlink(this);
}

bool TimerWheel::pushedInPlace(NotifieeConst* n, Kiv::Seconds t) {
  if (n->bucket_ == &due_ || Kiv::isNever(t)) return false;
  // Its tick is not before the one it is filed under exactly when t is after the tick before that
  // one: a multiplication where finding the tick itself takes a division and its corrections.
  if (n->tick_ > 0 && !(t > tickTime(n->tick_ - 1))) return false;
  n->timeMin_ = t;
  n->seq_ = ++seq_;
  return true;
}

void TimerWheel::append(Bucket& b, NotifieeConst* n) {
  n->bucket_ = &b;
  n->wheelPrev_ = b.tail;
  n->wheelNext_ = nullptr;
  (b.tail ? b.tail->wheelNext_ : b.head) = n;
  b.tail = n;
  if (b.occupancy) *b.occupancy |= b.bit;
}

void TimerWheel::unlink(NotifieeConst* n) {
  if (n == fireLast_) fireLast_ = n->wheelPrev_;
  Bucket& b = *n->bucket_;
  (n->wheelPrev_ ? n->wheelPrev_->wheelNext_ : b.head) = n->wheelNext_;
  (n->wheelNext_ ? n->wheelNext_->wheelPrev_ : b.tail) = n->wheelPrev_;
  if (!b.head && b.occupancy) *b.occupancy &= ~b.bit;
  n->bucket_ = nullptr;
  n->wheelPrev_ = n->wheelNext_ = nullptr;
}

uint64_t TimerWheel::place(NotifieeConst* n) {
  if (n->tick_ <= current_) {
    append(due_, n);
    return current_;
  }
  const unsigned l = (std::bit_width(n->tick_ ^ current_) - 1) / slotBits;
  while (levels_.size() <= l) levels_.push_back(std::make_unique<Level>());
  append(levels_[l]->slots[(n->tick_ >> (slotBits * l)) & (slotCount - 1)], n);
  return slotTick(current_, l, (n->tick_ >> (slotBits * l)) & (slotCount - 1));
}

void TimerWheel::doArm(NotifieeConst* n) {
  n->seq_ = ++seq_;
  n->tick_ = tickAtOrAfter(n->timeMin_);
  const uint64_t wake = place(n);
  // A turn in progress sets the clock once it is done.
  if (inTurn_) return;
  const Kiv::Seconds t = tickTime(wake);
  if (t < reactor_.timeMin()) reactor_.timeMinIs(t);
}

void TimerWheel::advanceTo(uint64_t tick) {
  for (;;) {
    unsigned l = 0;
    while (l < levels_.size() && !levels_[l]->occupied) ++l;
    if (l == levels_.size()) break;
    const unsigned s = std::countr_zero(levels_[l]->occupied);
    const uint64_t next = slotTick(current_, l, s);
    if (next > tick) break;
    current_ = next;
    Bucket& b = levels_[l]->slots[s];
    NotifieeConst* n = b.head;
    b.head = b.tail = nullptr;
    *b.occupancy &= ~b.bit;
    NotifieeConst* const dueBefore = due_.tail;
    size_t dueCount = 0;
    bool dueUnordered = false;
    while (n) {
      NotifieeConst* following = n->wheelNext_;
      // Its real tick: it may have been pushed later in place.
      n->tick_ = tickAtOrAfter(n->timeMin_);
      place(n);
      if (n->bucket_ == &due_) {
        if (dueCount++ && n->wheelPrev_->seq_ > n->seq_) dueUnordered = true;
      }
      n = following;
    }
    if (dueUnordered) sortDueAfter(dueBefore, dueCount);
  }
  current_ = tick;
}

TimerWheel::NotifieeConst* TimerWheel::sortedBySeq(NotifieeConst* head, size_t n) {
  if (n <= 1) {
    if (head) head->wheelNext_ = nullptr;
    return head;
  }
  NotifieeConst* second = head;
  for (size_t i = 0; i < n / 2; ++i) second = second->wheelNext_;
  NotifieeConst* a = sortedBySeq(head, n / 2);
  NotifieeConst* b = sortedBySeq(second, n - n / 2);
  NotifieeConst* merged = nullptr;
  NotifieeConst** end = &merged;
  while (a && b) {
    NotifieeConst*& from = a->seq_ <= b->seq_ ? a : b;
    *end = from;
    end = &from->wheelNext_;
    from = from->wheelNext_;
  }
  *end = a ? a : b;
  return merged;
}

void TimerWheel::sortDueAfter(NotifieeConst* before, size_t n) {
  NotifieeConst*& first = before ? before->wheelNext_ : due_.head;
  first = sortedBySeq(first, n);
  NotifieeConst* prev = before;
  for (NotifieeConst* i = first; i; i = i->wheelNext_) {
    i->wheelPrev_ = prev;
    prev = i;
  }
  due_.tail = prev;
}

Kiv::Seconds TimerWheel::nextWakeTime() const {
  if (due_.head) return tickTime(current_);
  for (unsigned l = 0; l < levels_.size(); ++l) {
    if (levels_[l]->occupied) return tickTime(slotTick(current_, l, std::countr_zero(levels_[l]->occupied)));
  }
  return Kiv::infinity;
}

void TimerWheel::rebase(Kiv::Seconds stepBack) {
  std::vector<NotifieeConst*> timers;
  auto take = [&](Bucket& b) {
    for (NotifieeConst* n = b.head; n; n = n->wheelNext_) timers.push_back(n);
    b.head = b.tail = nullptr;
    if (b.occupancy) *b.occupancy &= ~b.bit;
  };
  take(due_);
  for (auto& level : levels_) {
    for (Bucket& b : level->slots) take(b);
  }
  // Filed again in the order they were set, so that timers due in one tick keep their order.
  std::sort(timers.begin(), timers.end(),
            [](NotifieeConst* a, NotifieeConst* b) { return a->seq_ < b->seq_; });
  current_ = tickDueBy(tickTime(current_) - stepBack);
  for (NotifieeConst* n : timers) {
    n->timeMin_ -= stepBack;
    n->tick_ = tickAtOrAfter(n->timeMin_);
    place(n);
  }
  if (!inTurn_) reactor_.timeMinIs(nextWakeTime());
}

void TimerWheel::handleTime() {
  const uint64_t now = tickDueBy(clock_->now());
  if (now > current_) advanceTo(now);
  inTurn_ = true;
  fireLast_ = due_.tail;
  const auto start = std::chrono::steady_clock::now();
  while (fireLast_) {
    NotifieeConst* n = due_.head;
    if (n == fireLast_) fireLast_ = nullptr;
    unlink(n);
    n->timeMin_ = Kiv::infinity;
    if (!n->kivIsZombie()) {
      Kiv::KeepAlive hold(n->kivOwner());
      // n may be gone after this call; what it throws goes to its own hook before it is.
      Kiv::NotifieeBase::kivCall(n, [n] { n->onTime(); });
    }
    if (processTimeLimit_ > 0 &&
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() >=
            processTimeLimit_) {
      break;
    }
  }
  fireLast_ = nullptr;
  inTurn_ = false;
  reactor_.timeMinIs(nextWakeTime());
}

}  // namespace Bez
