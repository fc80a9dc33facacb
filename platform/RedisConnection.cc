// The connection's socket, output buffer, reply queue, watchdog and reconnection.
#include "platform/RedisConnection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <hiredis/hiredis.h>
#include <hiredis/read.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"
#include "platform/StateDbLogs.h"

namespace Platform {

namespace {

constexpr Kiv::Seconds maxBackoff = 1.0;
// The output buffer drops what the socket took once that is more than this and half of it.
constexpr size_t compactAt = 1 << 20;

Kiv::Seconds now() { return Kiv::System::currentTime(); }

// A socket connecting to address, or -1 with the reason in why.
int connectTo(const std::string& address, std::string& why) {
  sockaddr_storage sa{};
  socklen_t len = 0;
  int family;
  if (address.rfind("unix:", 0) == 0) {
    const std::string path = address.substr(5);
    auto* un = reinterpret_cast<sockaddr_un*>(&sa);
    if (path.empty() || path.size() >= sizeof un->sun_path) {
      why = "bad unix socket path";
      return -1;
    }
    un->sun_family = family = AF_UNIX;
    std::memcpy(un->sun_path, path.data(), path.size());
    len = sizeof *un;
  } else if (address.rfind("tcp:", 0) == 0) {
    const size_t colon = address.rfind(':');
    std::string host = address.substr(4, colon - 4);
    unsigned port = 0;
    const char* p = address.data() + colon + 1;
    if (colon < 4 || std::from_chars(p, address.data() + address.size(), port).ec != std::errc() || !port ||
        port > 65535) {
      why = "bad tcp address";
      return -1;
    }
    if (host == "localhost") host = "127.0.0.1";
    if (!host.empty() && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    auto* in4 = reinterpret_cast<sockaddr_in*>(&sa);
    auto* in6 = reinterpret_cast<sockaddr_in6*>(&sa);
    if (inet_pton(AF_INET, host.c_str(), &in4->sin_addr) == 1) {
      in4->sin_family = family = AF_INET;
      in4->sin_port = htons(static_cast<uint16_t>(port));
      len = sizeof *in4;
    } else if (inet_pton(AF_INET6, host.c_str(), &in6->sin6_addr) == 1) {
      in6->sin6_family = family = AF_INET6;
      in6->sin6_port = htons(static_cast<uint16_t>(port));
      len = sizeof *in6;
    } else {
      why = "host must be numeric or localhost";
      return -1;
    }
  } else {
    why = "address must start with unix: or tcp:";
    return -1;
  }
  const int fd = socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    why = std::strerror(errno);
    return -1;
  }
  if (family != AF_UNIX) {
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  }
  if (connect(fd, reinterpret_cast<sockaddr*>(&sa), len) < 0 && errno != EINPROGRESS) {
    why = std::strerror(errno);
    close(fd);
    return -1;
  }
  return fd;
}

void appendDecimal(std::string& out, uint64_t n) {
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, n);
  out.append(buf, r.ptr);
}

}  // namespace

LoopTimer::LoopTimer(std::function<void()> fn) : fn_(std::move(fn)) {
  notifierIs(Kiv::ActivityManagerConfig::clock());
}

RedisConnection::RedisConnection(std::string address) : address_(std::move(address)) { connectNow(); }

RedisConnection::~RedisConnection() {
  *alive_ = false;
  if (fd_ >= 0) {
    Kiv::activityManager()->fdDel(fd_);
    close(fd_);
  }
  if (reader_) redisReaderFree(reader_);
}

void RedisConnection::connectNow() {
  std::string why;
  fd_ = connectTo(address_, why);
  if (fd_ < 0) {
    drop(why);
    return;
  }
  state_ = State::connecting;
  interest_ = 0;
  interestUpdate();
  Kiv::activityManager()->fdIs(fd_, Kiv::Poller::writable, [this](unsigned events) { handleFd(events); });
  interest_ = Kiv::Poller::writable;
}

void RedisConnection::up() {
  int err = 0;
  socklen_t len = sizeof err;
  if (getsockopt(fd_, SOL_SOCKET, SO_ERROR, &err, &len) < 0 || err) {
    drop(std::strerror(err ? err : errno));
    return;
  }
  state_ = State::up;
  reader_ = redisReaderCreate();
  lastProgress_ = now();
  if (backoff_ > 0.05) Kiv::log(STATEDB_REACHABLE, address_);
  backoff_ = 0.05;
  interestUpdate();
  if (onUp_) onUp_();
}

void RedisConnection::drop(const std::string& why) {
  if (fd_ >= 0) {
    Kiv::activityManager()->fdDel(fd_);
    close(fd_);
    fd_ = -1;
  }
  if (reader_) {
    redisReaderFree(reader_);
    reader_ = nullptr;
  }
  state_ = State::down;
  out_.clear();
  outAt_ = 0;
  argsLeft_ = 0;
  watchdog_.timeMinIs(Kiv::infinity);
  Kiv::log(STATEDB_UNREACHABLE, address_, why);
  retry_.timeMinIs(now() + backoff_);
  backoff_ = std::min(backoff_ * 2, maxBackoff);
  // The handlers may send again (they see connected() false) or destroy this connection.
  std::deque<Expected> failed;
  failed.swap(expected_);
  std::shared_ptr<bool> alive = alive_;
  for (Expected& e : failed) {
    if (e.handler) e.handler(nullptr);
    if (!*alive) return;
  }
  if (onDown_) onDown_(why);
}

void RedisConnection::interestUpdate() {
  if (fd_ < 0 || state_ != State::up) return;
  const unsigned want = Kiv::Poller::readable | (pendingBytes() ? Kiv::Poller::writable : 0u);
  if (want == interest_) return;
  interest_ = want;
  Kiv::activityManager()->fdIs(fd_, want, [this](unsigned events) { handleFd(events); });
}

void RedisConnection::command(const std::vector<std::string_view>& args, Handler h, unsigned blockMs) {
  begin(args.size());
  for (std::string_view a : args) arg(a);
  end(std::move(h), blockMs);
}

void RedisConnection::begin(size_t argc) {
  argsLeft_ = argc;
  if (state_ != State::up) return;
  out_.push_back('*');
  appendDecimal(out_, argc);
  out_.append("\r\n");
}

void RedisConnection::arg(std::string_view a) {
  --argsLeft_;
  if (state_ != State::up) return;
  out_.push_back('$');
  appendDecimal(out_, a.size());
  out_.append("\r\n");
  out_.append(a);
  out_.append("\r\n");
}

void RedisConnection::arg(uint64_t n) {
  char buf[24];
  auto r = std::to_chars(buf, buf + sizeof buf, n);
  arg(std::string_view(buf, r.ptr - buf));
}

void RedisConnection::end(Handler h, unsigned blockMs) {
  KIV_ASSERT(argsLeft_ == 0);
  if (state_ != State::up) {
    if (h) h(nullptr);
    return;
  }
  if (expected_.empty()) lastProgress_ = now();
  expected_.push_back(Expected{std::move(h), blockMs});
  if (watchdog_.timeMin() == Kiv::infinity) watchdog_.timeMinIs(now() + replyTimeout_);
  interestUpdate();
}

void RedisConnection::handleFd(unsigned events) {
  std::shared_ptr<bool> alive = alive_;
  if (state_ == State::connecting) {
    if (events & Kiv::Poller::writable) up();
    return;
  }
  if (events & Kiv::Poller::readable) handleReadable();
  if (*alive && state_ == State::up && (events & Kiv::Poller::writable)) handleWritable();
}

void RedisConnection::handleWritable() {
  while (pendingBytes()) {
    // A server gone under us is an error to handle, not a signal that ends the agent.
    const ssize_t n = send(fd_, out_.data() + outAt_, pendingBytes(), MSG_NOSIGNAL);
    if (n < 0) {
      if (errno == EAGAIN || errno == EINTR) break;
      drop(std::strerror(errno));
      return;
    }
    outAt_ += static_cast<size_t>(n);
  }
  if (outAt_ == out_.size()) {
    out_.clear();
    outAt_ = 0;
  } else if (outAt_ > compactAt && outAt_ > out_.size() / 2) {
    out_.erase(0, outAt_);
    outAt_ = 0;
  }
  interestUpdate();
}

void RedisConnection::handleReadable() {
  char buf[65536];
  const ssize_t n = read(fd_, buf, sizeof buf);
  if (n <= 0) {
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
    drop(n == 0 ? "connection closed" : std::strerror(errno));
    return;
  }
  lastProgress_ = now();
  if (redisReaderFeed(reader_, buf, static_cast<size_t>(n)) != REDIS_OK) {
    drop("bad reply");
    return;
  }
  std::shared_ptr<bool> alive = alive_;
  for (;;) {
    void* reply = nullptr;
    if (redisReaderGetReply(reader_, &reply) != REDIS_OK) {
      drop(std::string("bad reply: ") + reader_->errstr);
      return;
    }
    if (!reply) break;
    if (expected_.empty()) {
      freeReplyObject(reply);
      drop("reply to no command");
      return;
    }
    Handler h = std::move(expected_.front().handler);
    expected_.pop_front();
    if (h) h(static_cast<redisReply*>(reply));
    freeReplyObject(reply);
    if (!*alive || state_ != State::up) return;
  }
  if (expected_.empty()) watchdog_.timeMinIs(Kiv::infinity);
  interestUpdate();
}

void RedisConnection::handleWatchdog() {
  if (state_ != State::up || expected_.empty()) return;
  const Kiv::Seconds due = lastProgress_ + replyTimeout_ + expected_.front().blockMs / 1000.0;
  if (now() >= due) {
    drop("no reply for " + std::to_string(static_cast<int>(now() - lastProgress_)) + " s");
    return;
  }
  watchdog_.timeMinIs(due);
}

std::string replyText(const redisReply* r) {
  if (!r) return "(no reply)";
  switch (r->type) {
    case REDIS_REPLY_STRING:
    case REDIS_REPLY_STATUS:
    case REDIS_REPLY_ERROR:
      return std::string(r->str, r->len);
    case REDIS_REPLY_INTEGER:
      return std::to_string(r->integer);
    case REDIS_REPLY_NIL:
      return "(nil)";
    case REDIS_REPLY_ARRAY: {
      std::string s = "[";
      for (size_t i = 0; i < r->elements; ++i) s += (i ? " " : "") + replyText(r->element[i]);
      return s + "]";
    }
    default:
      return "?";
  }
}

}  // namespace Platform
