// What the activity loop needs from the operating system: a set of file descriptors with read and
// write interest, and a wait for readiness bounded by a timeout. platform/ implements it.
#pragma once

#include <vector>

#include "kernel/Ptr.h"
#include "kernel/Value.h"

namespace Kiv {

class Poller : public PtrInterface {
 public:
  // Interest and readiness bits. An error or hang-up is reported as the interest the fd has, so
  // that its handler's next read or write meets the condition.
  static constexpr unsigned readable = 1;
  static constexpr unsigned writable = 2;

  struct Ready {
    int fd;
    unsigned events;
  };

  virtual void fdAdd(int fd, unsigned interest) = 0;
  virtual void fdModify(int fd, unsigned interest) = 0;
  virtual void fdRemove(int fd) = 0;
  // Blocks until an fd is ready or timeout seconds have passed (infinity: no bound). The result
  // stays valid until the next wait.
  virtual const std::vector<Ready>& wait(Seconds timeout) = 0;
};

}  // namespace Kiv
