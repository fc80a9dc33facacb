// A timer notifiee for tests: logs "name@time" when woken, then runs an optional action.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "kernel/ActivityManager.h"
#include "kernel/String.h"

namespace TestSupport {

template <class Notifiee>
class TimerProbe : public Notifiee {
 public:
  TimerProbe(std::vector<std::string>* log, std::string name, Kiv::PtrInterface* owner = nullptr)
      : Notifiee(owner), log_(log), name_(std::move(name)) {}
  void onTime() override {
    log_->push_back(name_ + Kiv::format("@%.2f", Kiv::System::currentTime()).stdString());
    if (action) action();
  }
  std::function<void()> action;

 private:
  std::vector<std::string>* log_;
  std::string name_;
};

}  // namespace TestSupport
