// The activity loop: deferred work, virtual-time stepping, the time base guard, and fd dispatch
// through a scripted poller.
#include "kernel/ActivityManager.h"

#include <gtest/gtest.h>

#include "kernel/TimeSource.h"
#include "tests/support/TimerProbe.h"

namespace {

using Probe = TestSupport::TimerProbe<Kiv::Clock::NotifieeConst>;
using Log = std::vector<std::string>;

TEST(ActivityManagerTest, DeferredWorkRunsNextTurnAndBetweenSteps) {
  Kiv::VirtualTime vt(500);
  Kiv::ActivityManager* am = Kiv::activityManager();
  Log log;
  am->deferIs([&] {
    log.push_back("one");
    am->deferIs([&] { log.push_back("two"); });
  });
  EXPECT_TRUE(log.empty());
  am->runOnce();
  EXPECT_EQ(log, Log{"one"});
  am->runOnce();
  EXPECT_EQ(log, (Log{"one", "two"}));

  // advanceTo steps now to each wake-up in turn, and runs the work each one defers before the next.
  log.clear();
  Probe a(&log, "a"), b(&log, "b");
  a.notifierIs(am->clock());
  b.notifierIs(am->clock());
  a.action = [&] { am->deferIs([&] { log.push_back("afterA"); }); };
  b.timeMinIs(503);
  a.timeMinIs(501);
  am->advanceTo(510);
  EXPECT_EQ(log, (Log{"a@501.00", "afterA", "b@503.00"}));
  EXPECT_EQ(Kiv::System::currentTime(), 510);
}

TEST(ActivityManagerTest, VirtualTimeGuardRestoresTheTimeBase) {
  Kiv::ActivityManager* am = Kiv::activityManager();
  EXPECT_FALSE(am->isVirtualTime());
  {
    Kiv::VirtualTime outer(100);
    {
      Kiv::VirtualTime inner(7);
      EXPECT_EQ(Kiv::System::currentTime(), 7);
      am->deferIs([] { FAIL() << "work deferred in a closed scope ran"; });
    }
    EXPECT_EQ(Kiv::System::currentTime(), 100);
    am->runOnce();
  }
  EXPECT_FALSE(am->isVirtualTime());
  EXPECT_GT(Kiv::System::currentTime(), 1.5e9);
}

TEST(ActivityManagerTest, SystemTimeStampsOncePerPhaseAndLiveOutsideATurn) {
  Kiv::ActivityManager* am = Kiv::activityManager();
  ASSERT_FALSE(am->isVirtualTime());
  Kiv::Seconds first = 0, second = 0;
  am->deferIs([&] {
    first = Kiv::timeSourceNow();
    // The clock moves on within the turn; trace stamps do not.
    while (Kiv::Clock::systemNow() <= first) {
    }
    second = Kiv::timeSourceNow();
  });
  am->runOnce();
  EXPECT_GT(first, 1.5e9);
  EXPECT_EQ(second, first);
  EXPECT_GT(Kiv::timeSourceNow(), first);
  {
    Kiv::VirtualTime vt(250);
    EXPECT_EQ(Kiv::timeSourceNow(), 250);
    am->runOnce();
    am->advanceBy(1.5);
    EXPECT_EQ(Kiv::timeSourceNow(), 251.5);
    // An installed source wins over the loop until it is removed.
    Kiv::timeSourceIs([] { return Kiv::Seconds(42); });
    EXPECT_EQ(Kiv::timeSourceNow(), 42);
    am->runOnce();
    EXPECT_EQ(Kiv::timeSourceNow(), 42);
    Kiv::timeSourceIs(nullptr);
    EXPECT_EQ(Kiv::timeSourceNow(), 251.5);
  }
  // Back on system time and outside a turn: live readings, not the virtual time or a turn's stamp.
  EXPECT_GT(Kiv::timeSourceNow(), first);
}

class ScriptedPoller : public Kiv::Poller {
 public:
  void fdAdd(int fd, unsigned interest) override { interest_[fd] = interest; }
  void fdModify(int fd, unsigned interest) override { interest_.at(fd) = interest; }
  void fdRemove(int fd) override { interest_.erase(fd); }
  const std::vector<Ready>& wait(Kiv::Seconds timeout) override {
    timeouts.push_back(timeout);
    return ready;
  }
  std::map<int, unsigned> interest_;
  std::vector<Ready> ready;
  std::vector<Kiv::Seconds> timeouts;
};

TEST(ActivityManagerTest, FdHandlersSurviveChangesMadeByOtherHandlers) {
  Kiv::ActivityManager am;
  auto poller = Kiv::make<ScriptedPoller>();
  Log log;
  am.fdIs(3, Kiv::Poller::readable, [&](unsigned) { log.push_back("3"); });
  am.pollerIs(poller);
  EXPECT_EQ(poller->interest_.at(3), Kiv::Poller::readable);
  // fd 4's handler removes 5 and re-registers 6, both ready in the same batch: neither is called.
  am.fdIs(4, Kiv::Poller::readable, [&](unsigned events) {
    log.push_back("4:" + std::to_string(events));
    am.fdDel(5);
    am.fdDel(6);
    am.fdIs(6, Kiv::Poller::readable, [&](unsigned) { log.push_back("new6"); });
  });
  am.fdIs(5, Kiv::Poller::readable, [&](unsigned) { log.push_back("5"); });
  am.fdIs(6, Kiv::Poller::readable, [&](unsigned) { log.push_back("6"); });
  am.fdIs(3, Kiv::Poller::readable | Kiv::Poller::writable,
          [&](unsigned e) { log.push_back("3:" + std::to_string(e)); });
  EXPECT_EQ(poller->interest_.at(3), Kiv::Poller::readable | Kiv::Poller::writable);
  poller->ready = {{4, Kiv::Poller::readable | Kiv::Poller::writable}, {5, 1}, {6, 1}, {3, 2}, {9, 1}};
  am.runOnce();
  EXPECT_EQ(log, (Log{"4:1", "3:2"}));
  EXPECT_EQ(poller->interest_.count(5), 0u);

  // The wait is bounded by the next wake-up, and does not block while deferred work waits.
  Probe p(&log, "p");
  p.notifierIs(am.clock());
  p.timeMinIs(am.clock()->now() + 100);
  poller->ready.clear();
  am.runOnce();
  EXPECT_GT(poller->timeouts.back(), 99);
  EXPECT_LE(poller->timeouts.back(), 100);
  am.deferIs([&] { am.deferIs([] {}); });
  am.runOnce();
  EXPECT_EQ(poller->timeouts.back(), 0);
  p.timeMinIs(Kiv::infinity);
  am.runOnce();
  EXPECT_TRUE(Kiv::isNever(poller->timeouts.back()));
}

}  // namespace
