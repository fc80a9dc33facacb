// The process's one activity loop: file-descriptor readiness, the clock's wake-ups in time order,
// and work deferred to the next turn, all on one thread. It runs on the system clock behind a
// Poller, or on a virtual clock that tests and pcap replay advance by hand.
#pragma once

#include <functional>
#include <unordered_map>
#include <vector>

#include "kernel/Clock.h"
#include "kernel/Poller.h"

namespace Kiv {

class ActivityManager {
 public:
  using FdHandler = std::function<void(unsigned events)>;

  ActivityManager();
  ActivityManager(const ActivityManager&) = delete;
  ActivityManager& operator=(const ActivityManager&) = delete;

  const Ptr<Clock>& clock() const { return clock_; }

  Ptr<Poller> poller() const { return poller_; }
  // Fds registered so far move to the new poller.
  void pollerIs(Ptr<Poller> poller);
  // Adds fd or changes its interest and handler; the handler gets the ready events.
  void fdIs(int fd, unsigned interest, FdHandler handler);
  void fdDel(int fd);

  // Runs work on the next turn, after what is already deferred.
  void deferIs(std::function<void()> work);

  // One turn: deferred work, then a wait for fds bounded by the next wake-up, fd handlers, then the
  // clock's due wake-ups. Under virtual time the wait does not block.
  void runOnce();
  // Turns until stop() is called from a handler.
  void run();
  void stop() { stopped_ = true; }

  // The time that traces, the ring trace and the log limiter stamp with. Under the system clock a
  // turn reads the clock once per phase (deferred work, fd handlers, timers) instead of once per
  // trace statement; outside a turn, and under virtual time, it is the clock's now.
  [[gnu::always_inline]] Seconds stampNow() const { return stamping_ ? stamp_ : clock_->now(); }
  // Where stampNow() can be read, or null when it takes a reading of the system clock.
  const Seconds* stampAt() const {
    return stamping_ ? &stamp_ : clock_->isVirtual() ? clock_->virtualNowAt() : nullptr;
  }

  bool isVirtualTime() const { return clock_->isVirtual(); }
  void virtualTimeIs(Seconds start) { clock_->virtualTimeIs(start); }
  void systemTimeIs() { clock_->systemTimeIs(); }
  // Virtual time only. Runs deferred work, then takes the earliest wake-up at or before t, sets now
  // to its time, fires it and runs the work it deferred, until none is left; then now becomes t.
  // advanceBy(0) runs what is due now.
  void advanceTo(Seconds t);
  void advanceBy(Seconds dt) { advanceTo(clock_->now() + dt); }
  // Drops work that was deferred and has not run.
  void deferredDelAll() { deferred_.clear(); }

 private:
  struct FdEntry {
    unsigned interest;
    FdHandler handler;
    // Tells a registration apart from a later one of the same fd number.
    uint64_t generation;
  };
  void runDeferred();
  void stampIs();
  void dispatch(const std::vector<Poller::Ready>& ready);

  Ptr<Clock> clock_;
  Ptr<Poller> poller_;
  std::unordered_map<int, FdEntry> fds_;
  std::vector<std::function<void()>> deferred_;
  std::vector<std::pair<Poller::Ready, uint64_t>> readyScratch_;
  uint64_t fdGeneration_ = 0;
  Seconds stamp_ = 0;
  bool stamping_ = false;
  bool stopped_ = false;
};

namespace detail {
// Set when the loop is first asked for; every trace statement and every now() reads it.
extern ActivityManager* processLoop;
ActivityManager* processLoopMake();
}  // namespace detail

// The process's loop.
[[gnu::always_inline]] inline ActivityManager* activityManager() {
  ActivityManager* am = detail::processLoop;
  return am ? am : detail::processLoopMake();
}

struct ActivityManagerConfig {
  // The process loop's clock.
  static Ptr<Clock> clock() { return activityManager()->clock(); }
};

namespace System {
// The process clock's now, read without a clock object.
inline Seconds currentTime() { return activityManager()->clock()->now(); }
}  // namespace System

// Switches the process loop to virtual time for its lifetime, then back to the time base it had.
// Work still deferred at the end is dropped: it belongs to the scope that is closing.
class VirtualTime {
 public:
  explicit VirtualTime(Seconds start);
  ~VirtualTime();
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;

 private:
  bool wasVirtual_;
  Seconds previousNow_;
};

}  // namespace Kiv
