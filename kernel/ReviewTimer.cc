// The credit bucket behind the pacing of reviews.
#include "kernel/ReviewTimer.h"

#include <algorithm>

#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"

namespace Bez {

ReviewTimer::ReviewTimer(Kiv::Clock::NotifieeConst* notifiee, float fillInterval, unsigned maxCredits,
                         float minDelay, float maxDelay)
    : notifiee_(notifiee),
      fillInterval_(fillInterval),
      maxCredits_(maxCredits),
      minDelay_(minDelay),
      maxDelay_(maxDelay),
      credits_(maxCredits),
      filledAt_(now()) {
  KIV_ASSERT(fillInterval > 0 && minDelay > 0 && minDelay <= maxDelay);
}

Kiv::Seconds ReviewTimer::now() const {
  Kiv::Ptr<Kiv::Clock> clock = notifiee_->notifier();
  return clock ? clock->now() : Kiv::System::currentTime();
}

void ReviewTimer::doUpdateNextReview() {
  if (!Kiv::isNever(notifiee_->timeMin())) return;
  const Kiv::Seconds t = now();
  // A clock set back (virtual time restarted) refills nothing rather than draining the bucket.
  credits_ = std::min(maxCredits_, credits_ + std::max(0.0, t - filledAt_) / fillInterval_);
  filledAt_ = t;
  if (credits_ >= 1) {
    credits_ -= 1;
    notifiee_->timeMinIs(t + minDelay_);
  } else {
    notifiee_->timeMinIs(t + maxDelay_);
  }
}

void ReviewTimer::doUpdateNextReviewImmediately() { notifiee_->timeMinIs(now()); }

}  // namespace Bez
