// epoll behind the activity loop, on a pipe: readiness, interest changes, hang-up, removal.
#include "platform/EpollPoller.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(EpollPollerTest, PipeReadinessThroughTheLoop) {
  Kiv::ActivityManager am;
  Platform::epollPollerInstall(&am);
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  std::vector<std::string> log;
  am.fdIs(fds[0], Kiv::Poller::readable, [&](unsigned events) {
    char buf[8];
    const ssize_t n = read(fds[0], buf, sizeof buf);
    log.push_back("read " + std::to_string(events) + " " + std::to_string(n));
  });
  am.fdIs(fds[1], Kiv::Poller::writable, [&](unsigned events) {
    log.push_back("writable " + std::to_string(events));
    am.fdIs(fds[1], 0, [&](unsigned) { log.push_back("no interest"); });
  });
  am.runOnce();
  EXPECT_EQ(log, std::vector<std::string>{"writable 2"});
  ASSERT_EQ(write(fds[1], "ab", 2), 2);
  am.runOnce();
  EXPECT_EQ(log.back(), "read 1 2");

  // A closed writer reads as readable with end of file.
  am.fdDel(fds[1]);
  close(fds[1]);
  am.runOnce();
  EXPECT_EQ(log.back(), "read 1 0");

  // Once removed, the fd is not polled though still at end of file; a due wake-up bounds the wait.
  am.fdDel(fds[0]);
  Kiv::Clock::NotifieeConst due;
  due.notifierIs(am.clock());
  due.timeMinIs(0);
  am.runOnce();
  EXPECT_EQ(log.size(), 3u);
  close(fds[0]);
}

}  // namespace
