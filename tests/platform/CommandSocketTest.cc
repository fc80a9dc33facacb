// The command socket: requests and answers, its mode, and clients that are slow, silent or greedy
// never holding the loop. The loop runs on epoll under virtual time, so deadlines pass by hand.
#include "platform/CommandSocket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "agent/DebugCliCallback.h"
#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"
#include "platform/EpollPoller.h"

namespace {

using Platform::CommandSocket;

// Answers "big" with 4 MiB, "boom" with an exception, anything else with its own text reversed.
struct TestCallback : Agent::AgentCommandCallback {
  TestCallback() : Agent::AgentCommandCallback("test") {}
  void handleCommand(int socket, const Kiv::String& command) override {
    ++calls;
    struct Closer {
      int fd;
      ~Closer() { close(fd); }
    } closer{socket};
    if (command.view() == "boom") Kiv::throwRangeException("VlanId::value < 1 or > 4094 not allowed");
    std::string out = command.view() == "big" ? std::string(4 << 20, 'x') : std::string(command.view());
    if (command.view() != "big") out.assign(out.rbegin(), out.rend());
    EXPECT_EQ(write(socket, out.data(), out.size()), static_cast<ssize_t>(out.size()));
  }
  int calls = 0;
};

class CommandSocketTest : public ::testing::Test {
 protected:
  CommandSocketTest() {
    char tmpl[] = "/tmp/cmdsockXXXXXX";
    dir = mkdtemp(tmpl);
    if (!Kiv::activityManager()->poller()) Platform::epollPollerInstall();
    server = Kiv::make<CommandSocket>(dir + "/sub/agent.sock");
    server->agentCommandCallbackIs(callback);
  }
  ~CommandSocketTest() override {
    server = nullptr;
    std::filesystem::remove_all(dir);
  }

  int connectClient() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::snprintf(a.sun_path, sizeof a.sun_path, "%s", server->path().c_str());
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    return fd;
  }
  void turns(int n = 5) {
    for (int i = 0; i < n; ++i) Kiv::activityManager()->runOnce();
  }
  // Reads what is there; closed is set when the agent has closed the connection.
  std::string drain(int fd, bool& closed) {
    std::string out;
    char buf[65536];
    closed = false;
    for (ssize_t n; (n = read(fd, buf, sizeof buf)) != 0;) {
      // Closed with our bytes unread, Linux resets the connection.
      if (n < 0) {
        closed = errno == ECONNRESET;
        return out;
      }
      out.append(buf, n);
    }
    closed = true;
    return out;
  }
  std::string request(const std::string& line) {
    const int fd = connectClient();
    EXPECT_EQ(write(fd, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    std::string out;
    bool closed = false;
    for (int i = 0; i < 100 && !closed; ++i) {
      turns(1);
      out += drain(fd, closed);
    }
    EXPECT_TRUE(closed);
    close(fd);
    return out;
  }

  Kiv::VirtualTime virtualTime{5000};
  std::string dir;
  Kiv::Ptr<TestCallback> callback = Kiv::make<TestCallback>();
  Kiv::Ptr<CommandSocket> server;
};

TEST_F(CommandSocketTest, AnswersEachRequestLineAndClosesItsMode0600Socket) {
  struct stat st {};
  ASSERT_EQ(stat(server->path().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  EXPECT_EQ(request("showGroups -v10\n"), "01v- spuorGwohs");
  EXPECT_EQ(request("ab\r\n"), "ba");
  // A command that raises is answered with nothing; the agent goes on.
  EXPECT_EQ(request("boom\n"), "");
  EXPECT_EQ(request("cd\n"), "dc");
  EXPECT_EQ(callback->calls, 4);
  EXPECT_EQ(server->clients(), 0u);
}

TEST_F(CommandSocketTest, SilentSlowAndGreedyClientsAreCutAtTheirBounds) {
  const int silent = connectClient();
  const int partial = connectClient();
  ASSERT_EQ(write(partial, "ab", 2), 2);  // no end of line yet
  const int greedy = connectClient();
  ASSERT_EQ(write(greedy, "big\n", 4), 4);  // then never reads
  turns();
  EXPECT_EQ(server->clients(), 3u);
  // Others are served meanwhile.
  EXPECT_EQ(request("xy\n"), "yx");

  Kiv::activityManager()->advanceBy(CommandSocket::requestTimeout + 0.1);
  turns();
  bool closed = false;
  drain(silent, closed);
  EXPECT_TRUE(closed);
  drain(partial, closed);
  EXPECT_TRUE(closed);
  EXPECT_EQ(server->clients(), 1u);

  Kiv::activityManager()->advanceBy(CommandSocket::replyTimeout);
  turns();
  EXPECT_EQ(server->clients(), 0u);
  EXPECT_EQ(server->refused(), 3u);
  std::string got;
  for (int i = 0; i < 1000 && !closed; ++i) got += drain(greedy, closed);
  EXPECT_TRUE(closed);
  EXPECT_LT(got.size(), 4u << 20);
  for (int fd : {silent, partial, greedy}) close(fd);
}

TEST_F(CommandSocketTest, OverlongRequestsAndTooManyClientsAreClosed) {
  const int fd = connectClient();
  const std::string junk(CommandSocket::maxRequestBytes + 2048, 'a');
  ASSERT_GT(write(fd, junk.data(), junk.size()), 0);
  turns();
  bool closed = false;
  drain(fd, closed);
  EXPECT_TRUE(closed);
  close(fd);

  std::vector<int> fds;
  for (size_t i = 0; i < CommandSocket::maxClients + 2; ++i) {
    fds.push_back(connectClient());
    turns(1);
  }
  EXPECT_EQ(server->clients(), CommandSocket::maxClients);
  for (int c : fds) close(c);
  turns();
  EXPECT_EQ(server->clients(), 0u);
}

TEST_F(CommandSocketTest, ReplacesAStaleSocketButNotAFile) {
  server = nullptr;
  server = Kiv::make<CommandSocket>(dir + "/sub/agent.sock");
  const std::string file = dir + "/plain";
  close(open(file.c_str(), O_CREAT | O_WRONLY, 0600));
  EXPECT_THROW(Kiv::make<CommandSocket>(file), Kiv::Exception);
}

TEST_F(CommandSocketTest, OtherUsersAreRefusedWhenRunAsRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to connect as another user";
  // The socket's mode alone would stop another user; open it up to see the credential check work.
  chmod(dir.c_str(), 0711);
  chmod((dir + "/sub").c_str(), 0711);
  chmod(server->path().c_str(), 0666);
  const pid_t child = fork();
  if (child == 0) {
    if (setuid(65534) != 0) _exit(3);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::snprintf(a.sun_path, sizeof a.sun_path, "%s", server->path().c_str());
    if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) _exit(4);
    if (write(fd, "hi\n", 3) != 3) _exit(5);
    char c;
    _exit(read(fd, &c, 1) == 0 || errno == ECONNRESET ? 0 : 6);
  }
  int status = -1;
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (waitpid(child, &status, WNOHANG) == 0 && std::chrono::steady_clock::now() < limit) turns(1);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(callback->calls, 0);
  EXPECT_EQ(server->refused(), 1u);
}

}  // namespace
