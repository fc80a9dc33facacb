// The agent's command service on Linux: a Unix stream socket (mode 0600) on which an operator's tool
// sends one command line and reads the answer until the agent closes the connection. Only root and
// the socket's owner are served (SO_PEERCRED).
//
// The agent never waits on a client. Each connection is read and written only when epoll reports it
// ready; the answer is made whole in memory (the callback writes into a memfd) in one go on the loop,
// so a command costs what the command itself costs. Bounds: at most maxClients connections at once
// (more are closed at once), a request line of at most maxRequestBytes that must arrive within
// requestTimeout, and the whole answer taken within replyTimeout, or the connection is closed.
#pragma once

#include <memory>
#include <string>

#include "agent/AgentCommandRequestDirSm.h"
#include "kernel/Value.h"

namespace Platform {

class CommandSocket : public Agent::AgentCommandRequestDirSm {
 public:
  static constexpr size_t maxClients = 16;
  static constexpr size_t maxRequestBytes = 4096;
  static constexpr Kiv::Seconds requestTimeout = 2.0;
  static constexpr Kiv::Seconds replyTimeout = 10.0;
  static constexpr const char* defaultPath = "/run/igmpsnoop/agent.sock";

  // Makes the socket's directory if it is missing and replaces a stale socket at path; throws
  // Kiv::Exception with the reason when Linux refuses.
  explicit CommandSocket(std::string path);
  ~CommandSocket() override;
  CommandSocket(const CommandSocket&) = delete;
  CommandSocket& operator=(const CommandSocket&) = delete;

  const std::string& path() const { return path_; }
  size_t clients() const;
  // Connections closed without service: wrong peer, too many clients, too slow, request too long.
  uint64_t refused() const { return refused_; }

  // Makes every agent built from now on serve its commands on a socket at path.
  static void install(const std::string& path);

 private:
  class Client;
  void handleAccept();
  void clientDel(int fd);

  std::string path_;
  int fd_ = -1;
  uint64_t refused_ = 0;
  struct Clients;
  std::unique_ptr<Clients> clients_;
};

// Sends command to the agent's socket at path and returns the whole answer; throws Kiv::Exception
// with the reason when the agent cannot be reached. Blocking: for operator tools.
std::string commandSocketRequest(const std::string& path, const std::string& command,
                                 Kiv::Seconds timeout = 10);

}  // namespace Platform
