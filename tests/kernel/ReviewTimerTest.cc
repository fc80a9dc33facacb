// Pacing of sliced reviews: a burst on credit, then one slice per maxDelay, other work in between.
#include "kernel/ReviewTimer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "kernel/ActivityManager.h"
#include "tests/support/TimerProbe.h"

namespace {

using Probe = TestSupport::TimerProbe<Kiv::Clock::NotifieeConst>;
using Log = std::vector<std::string>;

class ReviewTimerTest : public ::testing::Test {
 protected:
  ReviewTimerTest() { review_.notifierIs(Kiv::ActivityManagerConfig::clock()); }
  Kiv::VirtualTime vt_{1000};
  Kiv::ActivityManager* am_ = Kiv::activityManager();
  Log log_;
  Probe review_{&log_, "review"};
  Bez::ReviewTimer pacer_{&review_, 1.0, 4, 0.01, 0.05};
};

TEST_F(ReviewTimerTest, BurstOnCreditThenPacedWithRoomForOtherWork) {
  std::vector<double> slices;
  review_.action = [&] {
    slices.push_back(Kiv::System::currentTime());
    pacer_.doUpdateNextReview();
  };
  Probe other(&log_, "other");
  other.notifierIs(Kiv::ActivityManagerConfig::clock());
  other.timeMinIs(1000.1);
  pacer_.doUpdateNextReview();
  pacer_.doUpdateNextReview();  // already pending: neither moved nor charged twice
  am_->advanceBy(2);
  ASSERT_GT(slices.size(), 10u);
  EXPECT_NEAR(slices[0], 1000.01, 1e-9);
  size_t shortGaps = 0;
  for (size_t i = 1; i < slices.size(); ++i) {
    const double gap = slices[i] - slices[i - 1];
    const bool isShort = std::abs(gap - 0.01) < 1e-6;
    EXPECT_TRUE(isShort || std::abs(gap - 0.05) < 1e-6) << "slice " << i << " gap " << gap;
    EXPECT_TRUE(isShort || i >= 4) << "slice " << i;
    shortGaps += isShort;
  }
  // The burst spends the four credits; refilling earns about one more a second.
  EXPECT_GE(shortGaps, 3u);
  EXPECT_LE(shortGaps, 5u);
  EXPECT_LT(slices.size(), 50u);
  EXPECT_NE(std::find(log_.begin(), log_.end(), "other@1000.10"), log_.end());
}

TEST_F(ReviewTimerTest, ImmediatelyMeansNextTurn) {
  pacer_.doUpdateNextReview();
  pacer_.doUpdateNextReviewImmediately();
  EXPECT_TRUE(log_.empty());
  am_->advanceBy(0);
  EXPECT_EQ(log_, Log{"review@1000.00"});
  am_->advanceBy(1);
  EXPECT_EQ(log_.size(), 1u);
}

}  // namespace
