// Child process with pipes for its output, read while the loop turns.
#include "tests/support/ToolRun.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "kernel/ActivityManager.h"
#include "platform/EpollPoller.h"

namespace TestSupport {

std::string toolPath(const std::string& program) {
  return std::string(IGMPSNOOP_BINARY_DIR) + "/tools/" + program;
}

ToolResult toolRun(const std::string& program, const std::vector<std::string>& args, double limitSeconds) {
  ToolResult result;
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return result;
  const std::string path = toolPath(program);
  std::vector<char*> argv{const_cast<char*>(path.c_str())};
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(out[1], 1);
    dup2(err[1], 2);
    execv(path.c_str(), argv.data());
    _exit(127);
  }
  close(out[1]);
  close(err[1]);
  fcntl(out[0], F_SETFL, O_NONBLOCK);
  fcntl(err[0], F_SETFL, O_NONBLOCK);
  auto drain = [](int fd, std::string& into) {
    char buf[4096];
    for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;) into.append(buf, n);
  };
  Kiv::ActivityManager* am = Kiv::activityManager();
  if (!am->poller()) Platform::epollPollerInstall(am);
  Kiv::Clock::NotifieeConst tick;
  tick.notifierIs(am->clock());
  const auto limit = std::chrono::steady_clock::now() + std::chrono::duration<double>(limitSeconds);
  int status = 0;
  pid_t done = 0;
  while ((done = waitpid(pid, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < limit) {
    drain(out[0], result.out);
    drain(err[0], result.err);
    tick.timeMinIs(Kiv::System::currentTime() + 0.005);
    am->runOnce();
  }
  if (done == 0) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
  } else if (WIFEXITED(status)) {
    result.status = WEXITSTATUS(status);
  }
  drain(out[0], result.out);
  drain(err[0], result.err);
  close(out[0]);
  close(err[0]);
  return result;
}

}  // namespace TestSupport
