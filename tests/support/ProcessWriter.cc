// Forking the writer, its token pipe, and reaping it.
#include "tests/support/ProcessWriter.h"

#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "platform/EpollPoller.h"

namespace TestSupport {

ProcessWriter::ProcessWriter(const std::string& address, const Script& script) {
  int fds[2];
  if (pipe(fds) != 0) return;
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[1]);
    Platform::epollPollerInstall();
    auto db = Platform::stateDbOpen(address);
    const int in = fds[0];
    const bool ok = script(*db, [in] {
      char c;
      return read(in, &c, 1) == 1;
    });
    _exit(ok ? 0 : 1);
  }
  close(fds[0]);
  pid_ = pid;
  go_ = fds[1];
}

ProcessWriter::~ProcessWriter() { wait(); }

void ProcessWriter::go(int n) {
  const std::string tokens(static_cast<size_t>(n), 'g');
  if (go_ >= 0 && write(go_, tokens.data(), tokens.size()) < 0) return;
}

int ProcessWriter::wait() {
  if (go_ >= 0) close(go_), go_ = -1;
  if (pid_ <= 0) return -1;
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace TestSupport
