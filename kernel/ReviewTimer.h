// Paces a long review done in slices: each slice asks for the next, and the pause between slices
// keeps the review from holding the loop while packets and timers wait.
#pragma once

#include "kernel/Clock.h"

namespace Bez {

// Credits refill continuously, one per fillInterval, up to maxCredits; the bucket starts full. A
// request that finds a whole credit spends it and schedules the review minDelay ahead; without one
// the review comes maxDelay ahead. So a burst of up to maxCredits slices runs quickly, and a long
// review then settles to one slice per maxDelay. A request while a review is already pending
// leaves that review where it is and spends nothing.
class ReviewTimer {
 public:
  ReviewTimer(Kiv::Clock::NotifieeConst* notifiee, float fillInterval, unsigned maxCredits, float minDelay,
              float maxDelay);

  void doUpdateNextReview();
  // The review runs on the loop's next turn.
  void doUpdateNextReviewImmediately();
  double credits() const { return credits_; }

 private:
  Kiv::Seconds now() const;

  // Owned by the user of this timer; its onTime() is the review.
  Kiv::Clock::NotifieeConst* notifiee_;
  const double fillInterval_;
  const double maxCredits_;
  const double minDelay_;
  const double maxDelay_;
  double credits_;
  // The time up to which credits_ has been refilled.
  Kiv::Seconds filledAt_;
};

}  // namespace Bez
