// The clock's wake-ups: arming, replacing, cancelling, order, turn boundaries, and handlers that
// change the set of pending wake-ups or the notifiees themselves.
#include "kernel/Clock.h"

#include <gtest/gtest.h>

#include <cmath>

#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"
#include "kernel/TimerWheel.h"
#include "tests/support/TimerProbe.h"

namespace {

using Probe = TestSupport::TimerProbe<Kiv::Clock::NotifieeConst>;
using Log = std::vector<std::string>;

class ClockTest : public ::testing::Test {
 protected:
  Probe* probe(const std::string& name) {
    probes_.push_back(Kiv::make<Probe>(&log_, name));
    probes_.back()->notifierIs(Kiv::ActivityManagerConfig::clock());
    return probes_.back().ptr();
  }
  Kiv::VirtualTime vt_{1000};
  Kiv::ActivityManager* am_ = Kiv::activityManager();
  Log log_;
  std::vector<Kiv::Ptr<Probe>> probes_;
};

TEST_F(ClockTest, ReplaceAndCancel) {
  Probe* a = probe("a");
  a->timeMinIs(1010);
  a->timeMinIs(1020);
  EXPECT_EQ(a->timeMin(), 1020);
  am_->advanceTo(1015);
  EXPECT_TRUE(log_.empty());
  am_->advanceTo(1020);
  EXPECT_EQ(log_, Log{"a@1020.00"});
  EXPECT_TRUE(Kiv::isNever(a->timeMin()));

  a->timeMinIs(1030);
  a->timeMinIs(Kiv::infinity);
  a->timeMinIs(1030);
  a->timeMinIs(std::numeric_limits<double>::max() * 2);
  am_->advanceTo(2000);
  EXPECT_EQ(log_.size(), 1u);
  EXPECT_EQ(Kiv::System::currentTime(), 2000);
}

// NaN and negative infinity order nothing: they are refused as text and as a time set anywhere.
TEST_F(ClockTest, NanAndNegativeInfinityAreNotTimes) {
  double v = 7;
  for (const char* bad : {"nan", "-nan", "NaN", "-inf", "nan(1)"})
    EXPECT_FALSE(Kiv::ValueTraits<double>::fromText(bad, v)) << bad;
  EXPECT_EQ(v, 7);
  EXPECT_TRUE(Kiv::ValueTraits<double>::fromText("inf", v) && Kiv::isNever(v));
  EXPECT_TRUE(Kiv::ValueTraits<double>::fromText("-12.5", v) && v == -12.5);

  Probe* a = probe("a");
  auto wheel = Bez::TimerWheelIs(Kiv::ActivityManagerConfig::clock(), 100, 1000, true, 0);
  TestSupport::TimerProbe<Bez::TimerWheel::NotifieeConst> w(&log_, "w");
  w.notifierIs(wheel);
  for (double t : {std::nan(""), -Kiv::infinity}) {
    try {
      a->timeMinIs(t);
      ADD_FAILURE() << "clock took " << t;
    } catch (const Kiv::RangeException& e) {
      EXPECT_STREQ(e.what(), "Seconds::value NaN or -inf not allowed");
    }
    EXPECT_THROW(w.timeMinIs(t), Kiv::RangeException);
    EXPECT_THROW(Kiv::ActivityManagerConfig::clock()->virtualTimeIs(t), Kiv::RangeException);
  }
  a->timeMinIs(1001);
  am_->advanceTo(1002);
  EXPECT_EQ(log_, Log{"a@1001.00"});
}

TEST_F(ClockTest, TimeOrderThenArmOrderAndNeverInsideTimeMinIs) {
  probe("late")->timeMinIs(1002);
  probe("first")->timeMinIs(1001);
  probe("second")->timeMinIs(1001);
  probe("now")->timeMinIs(1000);
  probe("past")->timeMinIs(900);
  EXPECT_TRUE(log_.empty());
  am_->advanceBy(0);
  EXPECT_EQ(log_, (Log{"past@1000.00", "now@1000.00"}));
  am_->advanceBy(5);
  EXPECT_EQ(log_, (Log{"past@1000.00", "now@1000.00", "first@1001.00", "second@1001.00", "late@1002.00"}));
}

TEST_F(ClockTest, HandlersRearmCancelAndDestroy) {
  Probe* a = probe("a");
  Probe* b = probe("b");
  Probe* c = probe("c");
  int rounds = 0;
  // a re-arms itself for the present: that is the next step, after b's cancellation and c.
  a->action = [&] {
    if (++rounds < 3) a->timeMinIs(Kiv::System::currentTime());
  };
  b->action = [&] { c->timeMinIs(Kiv::infinity); };
  a->timeMinIs(1001);
  b->timeMinIs(1001);
  c->timeMinIs(1001);
  am_->advanceBy(1);
  EXPECT_EQ(log_, (Log{"a@1001.00", "b@1001.00", "a@1001.00", "a@1001.00"}));

  // A notifiee that drops the last reference to itself, and one whose handler destroys another
  // that is due at the same time.
  log_.clear();
  Kiv::Ptr<Probe> self = Kiv::make<Probe>(&log_, "self");
  Kiv::Ptr<Probe> victim = Kiv::make<Probe>(&log_, "victim");
  self->notifierIs(Kiv::ActivityManagerConfig::clock());
  victim->notifierIs(Kiv::ActivityManagerConfig::clock());
  self->action = [&] { self = nullptr, victim = nullptr; };
  self->timeMinIs(1002);
  victim->timeMinIs(1002);
  am_->advanceBy(1);
  EXPECT_EQ(log_, Log{"self@1002.00"});
}

TEST_F(ClockTest, ZombiesAndUnregisteredNotifieesAreNotWoken) {
  struct Owner : Kiv::PtrInterface {};
  Kiv::Ptr<Owner> owner = Kiv::make<Owner>();
  Probe zombie(&log_, "zombie", owner.ptr());
  zombie.notifierIs(Kiv::ActivityManagerConfig::clock());
  zombie.timeMinIs(1001);
  owner->kivMarkedForDeletionIs(true);

  Probe* quiet = probe("quiet");
  quiet->timeMinIs(1001);
  quiet->isRegisteredNotifieeIs(false);
  am_->advanceBy(2);
  EXPECT_TRUE(log_.empty());
  EXPECT_TRUE(Kiv::isNever(zombie.timeMin()));
  EXPECT_EQ(quiet->timeMin(), 1001);
  quiet->isRegisteredNotifieeIs(true);
  am_->advanceBy(0);
  EXPECT_EQ(log_, Log{"quiet@1002.00"});

  // Moving to another clock takes the pending time along.
  auto other = Kiv::make<Kiv::Clock>();
  quiet->timeMinIs(1005);
  quiet->notifierIs(other);
  am_->advanceBy(10);
  EXPECT_EQ(log_.size(), 1u);
  EXPECT_EQ(other->nextTime(), 1005);
}

TEST(ClockTurnTest, WakeUpsArmedDuringATurnWaitForTheNext) {
  auto clock = Kiv::make<Kiv::Clock>();
  Log log;
  Probe a(&log, "a"), b(&log, "b");
  a.notifierIs(clock);
  b.notifierIs(clock);
  a.action = [&] { b.timeMinIs(0); };
  a.timeMinIs(1);
  clock->doFireDue();
  EXPECT_EQ(log.size(), 1u);
  clock->doFireDue();
  EXPECT_EQ(log.size(), 2u);
}

}  // namespace
