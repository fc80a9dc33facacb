// The activity loop's poller on Linux epoll. Nothing but the agent's start-up and tests know it.
#pragma once

#include "kernel/ActivityManager.h"
#include "kernel/Poller.h"

namespace Platform {

class EpollPoller : public Kiv::Poller {
 public:
  EpollPoller();
  ~EpollPoller() override;
  EpollPoller(const EpollPoller&) = delete;
  EpollPoller& operator=(const EpollPoller&) = delete;

  void fdAdd(int fd, unsigned interest) override;
  void fdModify(int fd, unsigned interest) override;
  void fdRemove(int fd) override;
  const std::vector<Ready>& wait(Kiv::Seconds timeout) override;

 private:
  void control(int op, int fd, unsigned interest);
  int epfd_;
  std::vector<Ready> ready_;
};

// Puts the process loop on epoll.
void epollPollerInstall(Kiv::ActivityManager* am = Kiv::activityManager());

}  // namespace Platform
