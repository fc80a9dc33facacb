// The command socket: listening, peer checks, and each client's request and answer without blocking.
#include "platform/CommandSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <unordered_map>

#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"
#include "kernel/Trace.h"
#include "platform/RedisConnection.h"

namespace Platform {

namespace {

Kiv::TraceHandle commandTrace("IgmpSnoopingCommand", false);

[[noreturn]] void fail(const std::string& what) { throw Kiv::Exception(what + ": " + std::strerror(errno)); }

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  if (path.size() >= sizeof a.sun_path) throw Kiv::Exception("command socket path too long: " + path);
  std::memcpy(a.sun_path, path.data(), path.size());
  return a;
}

// Makes every missing directory of path's parent, for the owner only.
void parentMake(const std::string& path) {
  for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1)) {
    const std::string dir = path.substr(0, at);
    if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) fail("cannot make " + dir);
  }
}

}  // namespace

class CommandSocket::Client {
 public:
  Client(CommandSocket& owner, int fd) : owner_(owner), fd_(fd) {
    deadline_.timeMinIs(Kiv::System::currentTime() + requestTimeout);
    Kiv::activityManager()->fdIs(fd_, Kiv::Poller::readable, [this](unsigned) { handleReadable(); });
  }
  ~Client() {
    Kiv::activityManager()->fdDel(fd_);
    ::close(fd_);
  }

 private:
  void handleReadable() {
    char buf[1024];
    for (;;) {
      const ssize_t n = ::read(fd_, buf, sizeof buf);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && errno == EAGAIN) return;
      if (n < 0) return done(false);
      request_.append(buf, static_cast<size_t>(n));
      const size_t end = request_.find('\n');
      if (end != std::string::npos || n == 0) {
        if (end != std::string::npos) request_.resize(end);
        if (!request_.empty() && request_.back() == '\r') request_.pop_back();
        return answer();
      }
      if (request_.size() > maxRequestBytes) return done(false);
    }
  }

  void answer() {
    const Kiv::Ptr<Agent::AgentCommandCallback> cb = owner_.agentCommandCallback();
    if (cb) {
      // The callback closes what it is given; the copy keeps the answer readable.
      const int memfd = ::memfd_create("igmpsnoop-answer", MFD_CLOEXEC);
      if (memfd < 0) return done(false);
      const int given = ::dup(memfd);
      KIV_TRACE(commandTrace, 6, "command " << request_);
      try {
        cb->handleCommand(given, Kiv::String(request_));
      } catch (const Kiv::Exception& e) {
        KIV_TRACE(commandTrace, 2, "command " << request_ << " failed: " << e.what());
      }
      const off_t size = ::lseek(memfd, 0, SEEK_END);
      reply_.resize(size > 0 ? static_cast<size_t>(size) : 0);
      if (!reply_.empty() &&
          ::pread(memfd, reply_.data(), reply_.size(), 0) != static_cast<ssize_t>(reply_.size()))
        reply_.clear();
      ::close(memfd);
    }
    deadline_.timeMinIs(Kiv::System::currentTime() + replyTimeout);
    Kiv::activityManager()->fdIs(fd_, Kiv::Poller::writable, [this](unsigned) { handleWritable(); });
    handleWritable();
  }

  void handleWritable() {
    while (sent_ < reply_.size()) {
      const ssize_t n = ::send(fd_, reply_.data() + sent_, reply_.size() - sent_, MSG_NOSIGNAL);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && errno == EAGAIN) return;
      if (n < 0) return done(false);
      sent_ += static_cast<size_t>(n);
    }
    done(true);
  }

  // Deletes this client: nothing of it may be touched after.
  void done(bool served) {
    if (!served) ++owner_.refused_;
    owner_.clientDel(fd_);
  }

  CommandSocket& owner_;
  int fd_;
  std::string request_, reply_;
  size_t sent_ = 0;
  LoopTimer deadline_{[this] {
    KIV_TRACE(commandTrace, 3, "command client too slow, closed");
    done(false);
  }};
};

struct CommandSocket::Clients {
  std::unordered_map<int, std::unique_ptr<Client>> byFd;
};

CommandSocket::CommandSocket(std::string path)
    : path_(std::move(path)), clients_(std::make_unique<Clients>()) {
  const sockaddr_un addr = addressOf(path_);
  parentMake(path_);
  struct stat st {};
  if (::lstat(path_.c_str(), &st) == 0) {
    if (!S_ISSOCK(st.st_mode)) throw Kiv::Exception("command socket path exists and is no socket: " + path_);
    ::unlink(path_.c_str());
  }
  fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd_ < 0) fail("command socket");
  // Created with mode 0600: there is no moment at which others could connect.
  const mode_t mask = ::umask(0177);
  const int bound = ::bind(fd_, reinterpret_cast<const sockaddr*>(&addr), sizeof addr);
  ::umask(mask);
  if (bound != 0 || ::listen(fd_, static_cast<int>(maxClients)) != 0) {
    const int e = errno;
    ::close(fd_);
    errno = e;
    fail("command socket " + path_);
  }
  Kiv::activityManager()->fdIs(fd_, Kiv::Poller::readable, [this](unsigned) { handleAccept(); });
}

CommandSocket::~CommandSocket() {
  clients_->byFd.clear();
  Kiv::activityManager()->fdDel(fd_);
  ::close(fd_);
  ::unlink(path_.c_str());
}

size_t CommandSocket::clients() const { return clients_->byFd.size(); }

void CommandSocket::handleAccept() {
  for (;;) {
    const int fd = ::accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;
    ucred cred{};
    socklen_t len = sizeof cred;
    const bool allowed = ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0 &&
                         (cred.uid == 0 || cred.uid == ::geteuid());
    if (!allowed || clients_->byFd.size() >= maxClients) {
      KIV_TRACE(commandTrace, 3,
                "command client refused: uid " << cred.uid << ", " << clients_->byFd.size() << " clients");
      ++refused_;
      ::close(fd);
      continue;
    }
    clients_->byFd[fd] = std::make_unique<Client>(*this, fd);
  }
}

void CommandSocket::clientDel(int fd) {
  // The client may be deleting itself from inside its own handler: the loop holds no reference to
  // it past the call, and this is the last thing the handler does.
  clients_->byFd.erase(fd);
}

void CommandSocket::install(const std::string& path) {
  Agent::AgentCommandRequestDirSm::factoryIs(
      [path](const Kiv::Ptr<Kiv::Dir>&) -> Kiv::Ptr<Agent::AgentCommandRequestDirSm> {
        return Kiv::make<CommandSocket>(path);
      });
}

std::string commandSocketRequest(const std::string& path, const std::string& command, Kiv::Seconds timeout) {
  const sockaddr_un addr = addressOf(path);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) fail("socket");
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) != 0)
    fail("cannot reach the agent at " + path);
  const std::string line = command + "\n";
  if (::send(fd, line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size()))
    fail("cannot send to the agent at " + path);
  std::string out;
  char buf[4096];
  for (;;) {
    pollfd p{fd, POLLIN, 0};
    const int ready = ::poll(&p, 1, static_cast<int>(timeout * 1000));
    if (ready == 0) throw Kiv::Exception("no answer from the agent at " + path);
    if (ready < 0 && errno == EINTR) continue;
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) fail("cannot read from the agent at " + path);
    if (n == 0) return out;
    out.append(buf, static_cast<size_t>(n));
  }
}

}  // namespace Platform
