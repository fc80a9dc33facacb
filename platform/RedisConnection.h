// One connection to Redis that never blocks the activity loop: commands are encoded into our own
// output buffer and written as the socket takes them, replies are parsed by hiredis's reader and
// handed, in order, to the handler each command left in a queue of expected replies. A lost or
// silent connection fails every pending handler and reconnects with backoff.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/Clock.h"

struct redisReply;
struct redisReader;

namespace Platform {

// A wake-up on the process clock that calls a function: the timers of the state database's objects,
// which are owned by the program rather than held by pointers.
class LoopTimer : public Kiv::Clock::NotifieeConst {
 public:
  explicit LoopTimer(std::function<void()> fn);
  void onTime() override { fn_(); }

 private:
  std::function<void()> fn_;
};

class RedisConnection {
 public:
  // Called with the reply, or with null when the connection went before it came.
  using Handler = std::function<void(const redisReply*)>;

  // address: "unix:/path" or "tcp:host:port" (a numeric host or localhost). Starts connecting at once.
  explicit RedisConnection(std::string address);
  ~RedisConnection();
  RedisConnection(const RedisConnection&) = delete;
  RedisConnection& operator=(const RedisConnection&) = delete;

  const std::string& address() const { return address_; }
  bool connected() const { return state_ == State::up; }
  // Told when the connection comes up (commands may be sent from it) and when it goes.
  void onUpIs(std::function<void()> f) { onUp_ = std::move(f); }
  void onDownIs(std::function<void(const std::string& why)> f) { onDown_ = std::move(f); }
  // A reply later than this after the last sign of life ends the connection; a blocking read's own
  // wait is added.
  void replyTimeoutIs(Kiv::Seconds t) { replyTimeout_ = t; }

  // Appends a command. Not connected: the handler hears null at once. blockMs: how long Redis may
  // legitimately hold the reply (XREAD BLOCK).
  void command(const std::vector<std::string_view>& args, Handler h = {}, unsigned blockMs = 0);
  // The same, built argument by argument: begin(n), n args, end(handler).
  void begin(size_t argc);
  void arg(std::string_view a);
  void arg(uint64_t n);
  void end(Handler h = {}, unsigned blockMs = 0);

  // Replies outstanding, and output bytes not yet taken by the socket.
  size_t pendingReplies() const { return expected_.size(); }
  size_t pendingBytes() const { return out_.size() - outAt_; }
  // Ends the connection as if it had failed; it reconnects after the backoff.
  void drop(const std::string& why);

 private:
  enum class State { down, connecting, up };
  struct Expected {
    Handler handler;
    unsigned blockMs;
  };

  void connectNow();
  void handleFd(unsigned events);
  void handleWritable();
  void handleReadable();
  void handleWatchdog();
  void up();
  void interestUpdate();

  std::string address_;
  State state_ = State::down;
  int fd_ = -1;
  redisReader* reader_ = nullptr;
  std::string out_;
  size_t outAt_ = 0;
  std::deque<Expected> expected_;
  size_t argsLeft_ = 0;
  unsigned interest_ = 0;
  Kiv::Seconds backoff_ = 0.05;
  Kiv::Seconds replyTimeout_ = 5.0;
  Kiv::Seconds lastProgress_ = 0;
  LoopTimer retry_{[this] { connectNow(); }};
  LoopTimer watchdog_{[this] { handleWatchdog(); }};
  std::function<void()> onUp_;
  std::function<void(const std::string&)> onDown_;
  // Cleared when the connection is destroyed, so that a handler that destroys it stops the loop over
  // replies that called it.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// Text of a reply for logs and tests: strings as they are, integers in decimal, arrays in brackets.
std::string replyText(const redisReply* r);

}  // namespace Platform
