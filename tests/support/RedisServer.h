// A redis-server of the test's own on a Unix socket in a temporary directory: started, killed and
// restarted on the same socket, and queried with plain blocking commands from the test's side.
#pragma once

#include <string>
#include <vector>

namespace TestSupport {

class RedisServer {
 public:
  // Starts the server; available() is false (with the reason in why()) when it cannot run here.
  RedisServer();
  ~RedisServer();
  RedisServer(const RedisServer&) = delete;
  RedisServer& operator=(const RedisServer&) = delete;

  bool available() const { return pid_ > 0; }
  const std::string& why() const { return why_; }
  // "unix:<socket>", for stateDbOpen.
  std::string address() const { return "unix:" + socket_; }
  const std::string& socket() const { return socket_; }

  // Ends the server at once (SIGKILL), as a crash would.
  void kill();
  // Starts it again on the same socket, empty.
  void start();
  // Runs one command and gives the reply as text (see Platform::replyText); blocking, for tests only.
  std::string command(const std::vector<std::string>& args) const;

 private:
  std::string dir_, socket_, why_;
  int pid_ = -1;
};

}  // namespace TestSupport
