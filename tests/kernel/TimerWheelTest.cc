// The timer wheel: the tick grid, order within a tick across cascades, far timers, handlers that
// change the wheel while it fires, zombies, the per-turn time limit, and a membership-like timeline.
#include "kernel/TimerWheel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <tuple>

#include "kernel/ActivityManager.h"
#include "tests/support/TimerProbe.h"

namespace {

using Probe = TestSupport::TimerProbe<Bez::TimerWheel::NotifieeConst>;
using Log = std::vector<std::string>;

class TimerWheelTest : public ::testing::Test {
 protected:
  Probe* probe(const std::string& name) {
    probes_.push_back(Kiv::make<Probe>(&log_, name));
    probes_.back()->notifierIs(wheel_);
    return probes_.back().ptr();
  }
  Kiv::VirtualTime vt_{1000};
  Kiv::ActivityManager* am_ = Kiv::activityManager();
  Kiv::Ptr<Bez::TimerWheel> wheel_ =
      Bez::TimerWheelIs(Kiv::ActivityManagerConfig::clock(), 100, 108200, true, 1024);
  Log log_;
  std::vector<Kiv::Ptr<Probe>> probes_;
};

TEST_F(TimerWheelTest, FiresOnTheTickGridNeverEarly) {
  probe("mid")->timeMinIs(1000.05);
  probe("onGrid")->timeMinIs(1000.3);
  probe("justAfter")->timeMinIs(1000.3000001);
  probe("now")->timeMinIs(1000);
  probe("past")->timeMinIs(10);
  EXPECT_TRUE(log_.empty());
  am_->advanceBy(0);
  EXPECT_EQ(log_, (Log{"now@1000.00", "past@1000.00"}));
  am_->advanceTo(1000.29);
  EXPECT_EQ(log_.size(), 3u);
  EXPECT_EQ(log_.back(), "mid@1000.10");
  am_->advanceTo(1001);
  EXPECT_EQ(log_, (Log{"now@1000.00", "past@1000.00", "mid@1000.10", "onGrid@1000.30", "justAfter@1000.40"}));
}

// A step back of the clock keeps each timer's remaining time, on the wheel and on the clock itself; a
// step forward is time passing, and what it overtakes fires at once.
TEST_F(TimerWheelTest, ClockStepsBackKeepRemainingTimesAndStepsForwardFireWhatIsOverdue) {
  Kiv::Clock& clock = *Kiv::ActivityManagerConfig::clock();
  probe("a")->timeMinIs(1010);
  probe("b")->timeMinIs(1010);
  probe("far")->timeMinIs(5000);
  TestSupport::TimerProbe<Kiv::Clock::NotifieeConst> direct(&log_, "direct");
  direct.notifierIs(Kiv::ActivityManagerConfig::clock());
  direct.timeMinIs(1020);
  am_->advanceTo(1005);
  clock.virtualTimeIs(505);       // back by 500
  probe("late")->timeMinIs(512);  // set after the step: not moved again
  am_->advanceTo(520);
  EXPECT_EQ(log_, (Log{"a@510.00", "b@510.00", "late@512.00", "direct@520.00"}));
  EXPECT_EQ(probes_[2]->timeMin(), 4500);

  log_.clear();
  probe("soon")->timeMinIs(600);
  clock.virtualTimeIs(2000);  // forward by 1480
  am_->advanceBy(0);
  EXPECT_EQ(log_, Log{"soon@2000.00"});
  am_->advanceTo(4500);
  EXPECT_EQ(log_, (Log{"soon@2000.00", "far@4500.00"}));
}

TEST_F(TimerWheelTest, ReplaceCancelAndMove) {
  Probe* a = probe("a");
  a->timeMinIs(1001);
  a->timeMinIs(1002);
  EXPECT_EQ(a->timeMin(), 1002);
  a->timeMinIs(1500);
  a->timeMinIs(Kiv::infinity);
  Probe* quiet = probe("quiet");
  quiet->timeMinIs(1003);
  quiet->isRegisteredNotifieeIs(false);
  auto other = Bez::TimerWheelIs(Kiv::ActivityManagerConfig::clock(), 100, 108200, true, 1024);
  Probe* moved = probe("moved");
  moved->timeMinIs(1004);
  moved->notifierIs(other);
  am_->advanceTo(2000);
  EXPECT_EQ(log_, Log{"moved@1004.00"});
  quiet->isRegisteredNotifieeIs(true);
  am_->advanceBy(0);
  EXPECT_EQ(log_.back(), "quiet@2000.00");
}

// Timers armed in several rounds, between which the wheel advances and cascades, fire in tick
// order and, within a tick, in arm order; each exactly on its tick.
TEST_F(TimerWheelTest, OrderAcrossLevelsAndCascades) {
  struct Armed {
    uint64_t tick;
    int seq;
  };
  std::vector<Armed> armed;
  std::vector<std::pair<uint64_t, int>> fired;
  std::vector<Kiv::Ptr<Probe>> keep;
  uint64_t seed = 12345;
  auto next = [&seed] { return (seed = seed * 6364136223846793005ull + 1442695040888963407ull) >> 33; };
  int seq = 0;
  for (int round = 0; round < 4; ++round) {
    const uint64_t nowTick = static_cast<uint64_t>(Kiv::System::currentTime() * 10 + 0.5);
    for (int i = 0; i < 1500; ++i) {
      // Few distinct ticks over three hours, so that many timers share one.
      const uint64_t tick = nowTick + 1 + (next() % 400) * 271;
      auto p = Kiv::make<Probe>(&log_, "t");
      const int s = seq++;
      p->action = [&fired, tick, s] {
        const double expected = static_cast<double>(tick) / 10;
        EXPECT_NEAR(Kiv::System::currentTime(), expected, 1e-6);
        fired.emplace_back(tick, s);
      };
      p->notifierIs(wheel_);
      p->timeMinIs((static_cast<double>(tick) - 0.5) / 10);
      keep.push_back(p);
      armed.push_back({tick, s});
    }
    am_->advanceBy(1234.5);
  }
  am_->advanceBy(4 * 3600);
  std::stable_sort(armed.begin(), armed.end(),
                   [](const Armed& a, const Armed& b) { return a.tick < b.tick; });
  ASSERT_EQ(fired.size(), armed.size());
  for (size_t i = 0; i < armed.size(); ++i) {
    ASSERT_EQ(fired[i], std::make_pair(armed[i].tick, armed[i].seq)) << "at " << i;
  }
}

TEST_F(TimerWheelTest, FarTimersAcrossLongJumps) {
  probe("days")->timeMinIs(1000 + 3 * 86400 + 0.05);
  probe("years")->timeMinIs(1000 + 5 * 365 * 86400.0);
  Probe* cancelled = probe("farCancelled");
  cancelled->timeMinIs(1e15);
  cancelled->timeMinIs(Kiv::infinity);
  probe("soon")->timeMinIs(1001);
  am_->advanceBy(4 * 86400);
  EXPECT_EQ(log_, (Log{"soon@1001.00", "days@260200.10"}));
  am_->advanceBy(6 * 365 * 86400.0);
  EXPECT_EQ(log_.back(), "years@157681000.00");
}

TEST_F(TimerWheelTest, HandlersChangeTheWheelWhileItFires) {
  Probe* a = probe("a");
  Probe* b = probe("b");
  Kiv::Ptr<Probe> c = Kiv::make<Probe>(&log_, "c");
  c->notifierIs(wheel_);
  Probe* d = probe("d");
  Probe* e = probe("e");
  // a cancels b, arms d for this very tick (it fires on the next turn, after work deferred now),
  // and moves e later; c drops the last reference to itself.
  a->action = [&] {
    b->timeMinIs(Kiv::infinity);
    d->timeMinIs(Kiv::System::currentTime());
    e->timeMinIs(1003);
    am_->deferIs([&] { log_.push_back("deferred"); });
  };
  c->action = [&] { c = nullptr; };
  for (Probe* p : {a, b, c.ptr(), e}) p->timeMinIs(1001);
  am_->advanceBy(5);
  EXPECT_EQ(log_, (Log{"a@1001.00", "c@1001.00", "deferred", "d@1001.00", "e@1003.00"}));
  EXPECT_FALSE(c);
}

TEST_F(TimerWheelTest, ZombiesSkippedOwnersKeptAlive) {
  struct Owner : Kiv::PtrInterface {
    Owner(Log* log) : probe(log, "owned", this) {}
    Probe probe;
  };
  Kiv::Ptr<Owner> zombieOwner = Kiv::make<Owner>(&log_);
  zombieOwner->probe.notifierIs(wheel_);
  zombieOwner->probe.timeMinIs(1001);
  zombieOwner->kivMarkedForDeletionIs(true);
  Kiv::Ptr<Owner> owner = Kiv::make<Owner>(&log_);
  owner->probe.notifierIs(wheel_);
  owner->probe.timeMinIs(1001);
  owner->probe.action = [&] {
    owner = nullptr;
    log_.push_back("after");
  };
  am_->advanceBy(1);
  EXPECT_EQ(log_, (Log{"owned@1001.00", "after"}));
}

TEST_F(TimerWheelTest, ProcessTimeLimitLeavesTheRestForTheNextTurn) {
  for (const char* name : {"a", "b", "c"}) probe(name)->timeMinIs(1000);
  am_->runOnce();
  EXPECT_EQ(log_.size(), 3u);
  wheel_->processTimeLimitIs(1e-12);
  for (const char* name : {"d", "e", "f"}) probe(name)->timeMinIs(1000);
  am_->runOnce();
  EXPECT_EQ(log_.size(), 4u);
  am_->runOnce();
  EXPECT_EQ(log_.size(), 5u);
  am_->runOnce();
  EXPECT_EQ(log_, (Log{"a@1000.00", "b@1000.00", "c@1000.00", "d@1000.00", "e@1000.00", "f@1000.00"}));
}

// Queries every 125 s refresh a membership that expires 260 s after the last report; the reports
// stop after the second query, so the membership expires 260 s after it.
TEST_F(TimerWheelTest, MembershipTimeline) {
  Probe* query = probe("query");
  Probe* membership = probe("expire");
  int reports = 0;
  query->action = [&] {
    if (++reports <= 2) membership->timeMinIs(Kiv::System::currentTime() + 260);
    query->timeMinIs(Kiv::System::currentTime() + 125);
  };
  query->timeMinIs(1000);
  am_->advanceBy(0);
  am_->advanceBy(260);
  EXPECT_EQ(log_, (Log{"query@1000.00", "query@1125.00", "query@1250.00"}));
  am_->advanceBy(260);
  EXPECT_EQ(log_, (Log{"query@1000.00", "query@1125.00", "query@1250.00", "query@1375.00", "expire@1385.00",
                       "query@1500.00"}));
}

// Timers pushed later stay in place until the wheel reaches them; those pushed within their tick, or
// filed behind timers set after them, must still fire in the order of their last setting. A model
// with no wheel at all says what must fire, when and in which order; random settings (later, within
// the same tick, earlier, cancelled) on a few crowded ticks, far levels and the first ticks of spans
// (which timers reach straight from a higher level), with uneven advances.
TEST_F(TimerWheelTest, PushedTimersFireAsAModelSaysWhateverTheSettings) {
  constexpr int timers = 60;
  // The wheel's grid: the first tick at or after t.
  auto tickOf = [](Kiv::Seconds t) {
    auto tick = static_cast<int64_t>(std::ceil(t / 0.1));
    if ((tick - 1) * 0.1 >= t) --tick;
    if (tick * 0.1 < t) ++tick;
    return tick;
  };
  for (unsigned seed = 1; seed <= 6; ++seed) {
    std::mt19937 rng(seed);
    log_.clear();
    probes_.clear();
    struct Model {
      bool armed = false;
      Kiv::Seconds time = 0;
      int64_t tick = 0;
      uint64_t seq = 0;
    };
    std::vector<Model> model(timers);
    std::vector<Probe*> p;
    for (int i = 0; i < timers; ++i) p.push_back(probe("t" + std::to_string(i)));
    uint64_t seq = 0;
    Log expected;
    for (int step = 0; step < 400; ++step) {
      const Kiv::Seconds now = Kiv::System::currentTime();
      for (int k = 0; k < 5; ++k) {
        const int i = static_cast<int>(rng() % timers);
        Model& m = model[i];
        Kiv::Seconds t;
        switch (rng() % 7) {
          case 0:  // cancel
            t = Kiv::infinity;
            break;
          case 1:  // within the tick it has, if any, or right on the tick before
            t = !m.armed ? now + 1 : rng() % 6 == 0 ? (m.tick - 1) * 0.1 : m.tick * 0.1 - 0.01 * (rng() % 5);
            break;
          case 2:  // far: a level or two up
            t = now + 0.05 * (rng() % 100000);
            break;
          case 3:  // the first tick of a coming span of 64 ticks, reached by cascading from above
            t = (std::floor(now / 6.4) + 1 + rng() % 3) * 6.4 - 0.01 * (rng() % 5);
            break;
          default:  // near, on a coarse grid, so that ticks are crowded
            t = now + 0.05 * (2 + rng() % 200);
        }
        if (t <= now + 0.1) t = now + 0.15;
        p[i]->timeMinIs(t);
        if (Kiv::isNever(t)) {
          m.armed = false;
        } else if (!m.armed || t != m.time) {
          m = Model{true, t, tickOf(t), ++seq};
        }
      }
      const Kiv::Seconds to = now + (rng() % 10 == 0 ? 0.05 * (rng() % 20000) : 0.05 * (rng() % 60));
      std::vector<std::tuple<int64_t, uint64_t, int>> due;
      for (int i = 0; i < timers; ++i) {
        if (model[i].armed && model[i].tick * 0.1 <= to) due.emplace_back(model[i].tick, model[i].seq, i);
      }
      std::sort(due.begin(), due.end());
      for (auto& [tick, s, i] : due) {
        expected.push_back("t" + std::to_string(i) + Kiv::format("@%.2f", tick * 0.1).stdString());
        model[i].armed = false;
      }
      am_->advanceTo(to);
      ASSERT_EQ(log_, expected) << "seed " << seed << " step " << step;
      for (int i = 0; i < timers; ++i) {
        ASSERT_EQ(p[i]->timeMin(), model[i].armed ? model[i].time : Kiv::infinity) << i;
      }
    }
  }
}

}  // namespace
