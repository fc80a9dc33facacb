// Two packet-access objects joined back to back in memory, "pam0" and "pam1": what one sends the
// other receives, as the wire would carry it (tag inserted when sent tagged). The receiver hears of
// it on the next turn of the loop, never inside the sender's call.
#pragma once

#include <deque>

#include "glue/Pam.h"

namespace Lomax {

class PamConnector : public Kiv::PtrInterface {
 public:
  PamConnector();
  ~PamConnector() override;

  const Kiv::Ptr<Pam>& pam0() const { return pam0_; }
  const Kiv::Ptr<Pam>& pam1() const { return pam1_; }

 private:
  class End;
  Kiv::Ptr<Pam> pam0_;
  Kiv::Ptr<Pam> pam1_;
};

}  // namespace Lomax
