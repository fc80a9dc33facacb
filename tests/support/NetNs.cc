// Namespaces through the ip tool, entered with setns(2).
#include "tests/support/NetNs.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace TestNet {

bool shell(const std::string& command) {
  FILE* p = popen((command + " 2>&1").c_str(), "r");
  if (!p) return false;
  std::string out;
  char buf[512];
  while (size_t n = fread(buf, 1, sizeof buf, p)) out.append(buf, n);
  const int status = pclose(p);
  if (status == 0) return true;
  std::fprintf(stderr, "command failed: %s\n%s", command.c_str(), out.c_str());
  return false;
}

const std::string& NetNs::unavailable() {
  static const std::string reason = [] {
    if (geteuid() != 0) return std::string("needs root to make network namespaces");
    const std::string probe = "igs-probe-" + std::to_string(getpid());
    if (!shell("ip netns add " + probe))
      return std::string("network namespaces unavailable (ip netns add failed)");
    shell("ip netns del " + probe);
    return std::string();
  }();
  return reason;
}

NetNs::NetNs(const std::string& tag) : name_("igs-" + tag + "-" + std::to_string(getpid())) {
  // A namespace left by a crashed run of a process with the same pid goes first.
  if (access(("/run/netns/" + name_).c_str(), F_OK) == 0) shell("ip netns del " + name_);
  ok_ = shell("ip netns add " + name_) && exec("sysctl -qw net.ipv6.conf.all.disable_ipv6=1") &&
        exec("sysctl -qw net.ipv6.conf.default.disable_ipv6=1") && ip("link set lo up");
}

NetNs::~NetNs() { shell("ip netns del " + name_); }

bool NetNs::ip(const std::string& args) const { return shell("ip -n " + name_ + " " + args); }

bool NetNs::exec(const std::string& command) const { return shell("ip netns exec " + name_ + " " + command); }

int NetNs::ifindex(const std::string& intf) const {
  Inside in(*this);
  return static_cast<int>(if_nametoindex(intf.c_str()));
}

NetNs::Inside::Inside(const NetNs& ns) : back_(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC)) {
  const int fd = open(("/run/netns/" + ns.name()).c_str(), O_RDONLY | O_CLOEXEC);
  const bool entered = fd >= 0 && back_ >= 0 && setns(fd, CLONE_NEWNET) == 0;
  if (fd >= 0) close(fd);
  if (!entered) {
    if (back_ >= 0) close(back_);
    throw std::runtime_error("cannot enter network namespace " + ns.name() + ": " + std::strerror(errno));
  }
}

NetNs::Inside::~Inside() {
  setns(back_, CLONE_NEWNET);
  close(back_);
}

}  // namespace TestNet
