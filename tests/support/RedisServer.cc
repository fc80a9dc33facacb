// Starting and stopping the test's redis-server, and its blocking client.
#include "tests/support/RedisServer.h"

#include <hiredis/hiredis.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "platform/RedisConnection.h"

namespace TestSupport {

namespace {
constexpr const char* serverPath = "/usr/bin/redis-server";
}

RedisServer::RedisServer() {
  if (access(serverPath, X_OK) != 0) {
    why_ = "redis-server is not installed (scripts/setup installs it)";
    return;
  }
  char tmpl[] = "/tmp/igmpsnoop-redis-XXXXXX";
  if (!mkdtemp(tmpl)) {
    why_ = "no temporary directory";
    return;
  }
  dir_ = tmpl;
  socket_ = dir_ + "/redis.sock";
  start();
}

RedisServer::~RedisServer() {
  kill();
  if (!dir_.empty()) std::filesystem::remove_all(dir_);
}

void RedisServer::start() {
  const pid_t pid = fork();
  if (pid == 0) {
    execl(serverPath, serverPath, "--port", "0", "--unixsocket", socket_.c_str(), "--unixsocketperm", "700",
          "--save", "", "--appendonly", "no", "--dir", dir_.c_str(), "--maxmemory-policy", "noeviction",
          "--loglevel", "warning", "--logfile", (dir_ + "/redis.log").c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  pid_ = pid;
  // A bounded poll for the socket to accept: the server takes a few milliseconds to start.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (std::chrono::steady_clock::now() < end) {
    if (command({"PING"}) == "PONG") return;
    int status;
    if (waitpid(pid_, &status, WNOHANG) == pid_) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  why_ = "redis-server did not start";
  kill();
}

void RedisServer::kill() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
  unlink(socket_.c_str());
}

std::string RedisServer::command(const std::vector<std::string>& args) const {
  redisContext* c = redisConnectUnix(socket_.c_str());
  if (!c || c->err) {
    if (c) redisFree(c);
    return "(unreachable)";
  }
  std::vector<const char*> argv;
  std::vector<size_t> lens;
  for (const std::string& a : args) argv.push_back(a.data()), lens.push_back(a.size());
  auto* reply =
      static_cast<redisReply*>(redisCommandArgv(c, static_cast<int>(args.size()), argv.data(), lens.data()));
  std::string text = Platform::replyText(reply);
  if (reply) freeReplyObject(reply);
  redisFree(c);
  return text;
}

}  // namespace TestSupport
