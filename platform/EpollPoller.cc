// epoll behind Kiv::Poller: level-triggered, one event record per registered fd.
#include "platform/EpollPoller.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <string>

#include "kernel/Exception.h"

namespace Platform {

namespace {
[[noreturn]] void fail(const char* what) {
  throw Kiv::Exception(std::string(what) + ": " + std::strerror(errno));
}
}  // namespace

EpollPoller::EpollPoller() : epfd_(epoll_create1(EPOLL_CLOEXEC)) {
  if (epfd_ < 0) fail("epoll_create1");
}

EpollPoller::~EpollPoller() { close(epfd_); }

void EpollPoller::control(int op, int fd, unsigned interest) {
  epoll_event ev{};
  if (interest & readable) ev.events |= EPOLLIN;
  if (interest & writable) ev.events |= EPOLLOUT;
  ev.data.fd = fd;
  if (epoll_ctl(epfd_, op, fd, &ev) < 0) fail("epoll_ctl");
}

void EpollPoller::fdAdd(int fd, unsigned interest) { control(EPOLL_CTL_ADD, fd, interest); }

void EpollPoller::fdModify(int fd, unsigned interest) { control(EPOLL_CTL_MOD, fd, interest); }

void EpollPoller::fdRemove(int fd) {
  // The fd may already be closed, which has removed it from the epoll set.
  epoll_ctl(epfd_, EPOLL_CTL_DEL, fd, nullptr);
}

const std::vector<Kiv::Poller::Ready>& EpollPoller::wait(Kiv::Seconds timeout) {
  int ms = -1;
  if (!Kiv::isNever(timeout)) ms = static_cast<int>(std::min(std::ceil(timeout * 1000), double{INT_MAX}));
  epoll_event events[64];
  const int n = epoll_wait(epfd_, events, 64, ms);
  ready_.clear();
  if (n < 0) {
    if (errno == EINTR) return ready_;
    fail("epoll_wait");
  }
  for (int i = 0; i < n; ++i) {
    unsigned r = 0;
    if (events[i].events & (EPOLLIN | EPOLLERR | EPOLLHUP)) r |= readable;
    if (events[i].events & (EPOLLOUT | EPOLLERR | EPOLLHUP)) r |= writable;
    ready_.push_back(Ready{events[i].data.fd, r});
  }
  return ready_;
}

void epollPollerInstall(Kiv::ActivityManager* am) { am->pollerIs(Kiv::make<EpollPoller>()); }

}  // namespace Platform
