// igmpsnoopd as an operator starts it: its flags, and (as root) a run on a bridge in a namespace of
// the test's own with Redis, hosts' reports seen through snoopctl, SIGHUP ignored and SIGTERM
// leaving what was published in Redis.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "net/FrameBuilder.h"
#include "tests/support/BridgeLab.h"
#include "tests/support/RawPort.h"
#include "tests/support/RedisServer.h"
#include "tests/support/ToolRun.h"

namespace {

using TestSupport::toolRun;

TEST(IgmpsnoopdFlagsTest, AWrongFlagOrBridgeIsOneLineAndStatus2) {
  for (const auto& args :
       std::vector<std::vector<std::string>>{{"--bridge"},
                                             {"--bogus"},
                                             {"--foreground"},
                                             {"--bridge", "igs-none-" + std::to_string(getpid())},
                                             {"--bridge", "lo"},
                                             {"--bridge", "lo", "--state-db", "redis.sock"},
                                             {"--bridge", "lo", "--ring-dir", "/nonexistent/dir"}}) {
    const auto r = toolRun("igmpsnoopd", args);
    EXPECT_EQ(r.status, 2) << args[0];
    EXPECT_EQ(r.err.rfind("igmpsnoopd: ", 0), 0u) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  }
  auto r = toolRun("igmpsnoopd", {"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("--command-socket PATH"), std::string::npos);
  r = toolRun("igmpsnoopd", {"--version"});
  EXPECT_EQ(r.out.rfind("igmpsnoopd ", 0), 0u);
}

TEST(IgmpsnoopdRunTest, ServesABridgeAndLeavesWhatItPublishedOnSigterm) {
  if (!TestNet::NetNs::unavailable().empty()) GTEST_SKIP() << TestNet::NetNs::unavailable();
  TestSupport::RedisServer redis;
  if (!redis.available()) GTEST_SKIP() << redis.why();
  TestNet::BridgeLab lab(2);
  ASSERT_TRUE(lab.ok());
  char tmpl[] = "/tmp/igmpsnoopdXXXXXX";
  const std::string dir = mkdtemp(tmpl);
  const std::string socket = dir + "/agent.sock";

  const pid_t agent = fork();
  if (agent == 0) {
    const std::string bin = TestSupport::toolPath("igmpsnoopd");
    execlp("ip", "ip", "netns", "exec", lab.sw().name().c_str(), bin.c_str(), "--bridge", "br0", "--state-db",
           redis.address().c_str(), "--ring-dir", dir.c_str(), "--command-socket", socket.c_str(),
           "--foreground", static_cast<char*>(nullptr));
    _exit(127);
  }
  TestNet::RawPort h1(lab.hosts(), "h1");
  const Lomax::FrameBuilder host(Lomax::EthAddr(0x0200, 0, 1), Lomax::IpAddr(10, 0, 0, 1));
  const auto report = host.igmpV2Report(Lomax::IpAddr(239, 1, 1, 1));
  const std::vector<std::string> show = {"--state-db", redis.address(), "--socket", socket, "show", "groups"};
  std::string out;
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (out.find("239.1.1.1") == std::string::npos && std::chrono::steady_clock::now() < limit) {
    h1.send({report->data(), report->len()});
    out = toolRun("snoopctl", show).out;
  }
  EXPECT_EQ(out,
            "VLAN  Group      Type     Confident  Ports\n"
            "1     239.1.1.1  Dynamic  no         p1\n");

  kill(agent, SIGHUP);
  EXPECT_EQ(toolRun("snoopctl", show).out, out) << "SIGHUP does nothing";
  kill(agent, SIGTERM);
  int status = -1;
  waitpid(agent, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_FALSE(std::filesystem::exists(socket));
  EXPECT_TRUE(std::filesystem::exists(dir + "/IgmpSnoopingDetailed.vl"));
  EXPECT_EQ(redis.command({"EXISTS", "igmpsnooping/protocolStatus|1|group=239.1.1.1"}), "1")
      << "what the agent published stays after it ends";
  std::filesystem::remove_all(dir);
}

}  // namespace
