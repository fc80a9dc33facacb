// The loop's turn, the virtual-time stepping, and fd handler dispatch.
#include "kernel/ActivityManager.h"

#include <algorithm>

#include "kernel/Exception.h"

namespace Kiv {

ActivityManager::ActivityManager() : clock_(make<Clock>()) {}

namespace detail {

ActivityManager* processLoop = nullptr;

ActivityManager* processLoopMake() {
  static ActivityManager am;
  processLoop = &am;
  stampAtUpdate();
  return processLoop;
}

}  // namespace detail

void ActivityManager::pollerIs(Ptr<Poller> poller) {
  if (poller == poller_) return;
  for (auto& [fd, e] : fds_) {
    if (poller_) poller_->fdRemove(fd);
    if (poller) poller->fdAdd(fd, e.interest);
  }
  poller_ = std::move(poller);
}

void ActivityManager::fdIs(int fd, unsigned interest, FdHandler handler) {
  auto [it, added] = fds_.try_emplace(fd);
  const bool changed = !added && it->second.interest != interest;
  it->second.interest = interest;
  it->second.handler = std::move(handler);
  if (added) it->second.generation = fdGeneration_++;
  if (!poller_) return;
  if (added) {
    poller_->fdAdd(fd, interest);
  } else if (changed) {
    poller_->fdModify(fd, interest);
  }
}

void ActivityManager::fdDel(int fd) {
  if (!fds_.erase(fd)) return;
  if (poller_) poller_->fdRemove(fd);
}

void ActivityManager::deferIs(std::function<void()> work) { deferred_.push_back(std::move(work)); }

void ActivityManager::runDeferred() {
  if (deferred_.empty()) return;
  // Work deferred by this work runs next turn.
  std::vector<std::function<void()>> batch;
  batch.swap(deferred_);
  for (auto& work : batch) work();
}

void ActivityManager::dispatch(const std::vector<Poller::Ready>& ready) {
  // The poller's list is overwritten by a nested wait, and a handler may remove or re-register any
  // fd: copy first, and call only registrations that were there when the wait returned.
  std::vector<std::pair<Poller::Ready, uint64_t>> batch;
  batch.swap(readyScratch_);
  for (const Poller::Ready& r : ready) {
    auto it = fds_.find(r.fd);
    if (it != fds_.end()) batch.emplace_back(r, it->second.generation);
  }
  for (const auto& [r, generation] : batch) {
    auto it = fds_.find(r.fd);
    if (it == fds_.end() || it->second.generation != generation) continue;
    const unsigned events = r.events & it->second.interest;
    // Hold a copy: the handler may replace or delete its own registration.
    FdHandler handler = it->second.handler;
    handler(events);
  }
  batch.clear();
  readyScratch_.swap(batch);
}

void ActivityManager::stampIs() {
  stamping_ = !clock_->isVirtual();
  if (stamping_) stamp_ = Clock::systemNow();
  detail::stampAtUpdate();
}

void ActivityManager::runOnce() {
  // A turn run from inside a handler leaves the outer turn's stamping as it found it.
  struct Restore {
    ActivityManager* am;
    bool stamping;
    ~Restore() {
      am->stamping_ = stamping;
      detail::stampAtUpdate();
    }
  } restore{this, stamping_};
  stampIs();
  runDeferred();
  if (poller_) {
    Seconds timeout = 0;
    if (!clock_->isVirtual() && deferred_.empty())
      timeout = std::max(0.0, clock_->nextTime() - clock_->now());
    const std::vector<Poller::Ready>& ready = poller_->wait(timeout);
    // Before any handler sets a time: a step of the clock during the wait is known first.
    clock_->noteNow();
    stampIs();
    dispatch(ready);
  }
  stampIs();
  clock_->doFireDue();
}

void ActivityManager::run() {
  stopped_ = false;
  while (!stopped_) runOnce();
}

void ActivityManager::advanceTo(Seconds t) {
  KIV_ASSERT(clock_->isVirtual());
  runDeferred();
  while (clock_->nextTime() <= t) {
    clock_->virtualTimeIs(std::max(clock_->now(), clock_->nextTime()));
    clock_->doFireNext();
    runDeferred();
  }
  clock_->virtualTimeIs(std::max(clock_->now(), t));
}

VirtualTime::VirtualTime(Seconds start)
    : wasVirtual_(activityManager()->isVirtualTime()), previousNow_(activityManager()->clock()->now()) {
  activityManager()->virtualTimeIs(start);
}

VirtualTime::~VirtualTime() {
  ActivityManager* am = activityManager();
  am->deferredDelAll();
  if (wasVirtual_) {
    am->virtualTimeIs(previousNow_);
  } else {
    am->systemTimeIs();
  }
}

}  // namespace Kiv
