// The bridge's options over rtnetlink, the ports' filters through one tc run per port.
#include "platform/BridgeSetup.h"

#include <fcntl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/BridgeNetlink.h"

extern char** environ;

namespace Platform {

Kiv::LogHandle DATAPLANE_UNAVAILABLE(
    "DATAPLANE_UNAVAILABLE", Kiv::logError, "Bridge %s cannot be set up as the data plane: %s",
    "The agent could not make the bridge forward multicast by its groups. It snoops and publishes as "
    "usual, but does not program the bridge, which forwards multicast as it did before.",
    "Run the agent as root with iproute2's tc installed, on a kernel with cls_bpf and clsact.", 60.0, 1.0,
    Kiv::logIgnoreArgs);

namespace {

// IPv4 protocol 2 (IGMP) or 103 (PIM): shot; anything else goes on.
const char* const ingressBytecode =
    "7,40 0 0 12,21 0 4 2048,48 0 0 23,21 1 0 2,21 0 1 103,6 0 0 2,6 0 0 4294967295";
// IPv4 IGMP whose skb->mark is not 0x5eed (24301): shot.
const char* const egressBytecode =
    "8,40 0 0 12,21 0 5 2048,48 0 0 23,21 0 3 2,32 0 0 4294963220,21 1 0 24301,6 0 0 2,6 0 0 4294967295";
static_assert(BridgeSetup::txMark == 24301);

// Runs `tc -batch -` with these commands on its standard input; false with tc's words in why.
bool tcRun(const std::string& tc, const std::string& commands, std::string& why) {
  int in[2], out[2];
  if (pipe2(in, O_CLOEXEC) < 0) {
    why = std::string("pipe: ") + std::strerror(errno);
    return false;
  }
  if (pipe2(out, O_CLOEXEC) < 0) {
    why = std::string("pipe: ") + std::strerror(errno);
    close(in[0]);
    close(in[1]);
    return false;
  }
  posix_spawn_file_actions_t fa;
  posix_spawn_file_actions_init(&fa);
  posix_spawn_file_actions_adddup2(&fa, in[0], 0);
  posix_spawn_file_actions_adddup2(&fa, out[1], 1);
  posix_spawn_file_actions_adddup2(&fa, out[1], 2);
  std::vector<std::string> args = {tc, "-batch", "-"};
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  const int rc = posix_spawnp(&pid, tc.c_str(), &fa, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&fa);
  close(in[0]);
  close(out[1]);
  if (rc != 0) {
    why = tc + ": " + std::strerror(rc);
    close(in[1]);
    close(out[0]);
    return false;
  }
  // The commands are a few hundred bytes: the pipe takes them whole.
  const ssize_t written = write(in[1], commands.data(), commands.size());
  close(in[1]);
  std::string output;
  char buf[512];
  for (ssize_t n; (n = read(out[0], buf, sizeof buf)) != 0;) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) break;
    output.append(buf, static_cast<size_t>(n));
  }
  close(out[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (written == static_cast<ssize_t>(commands.size()) && WIFEXITED(status) && WEXITSTATUS(status) == 0)
    return true;
  while (!output.empty() && (output.back() == '\n' || output.back() == ' ')) output.pop_back();
  why =
      "tc: " + (output.empty() ? std::string("exit status ") + std::to_string(WEXITSTATUS(status)) : output);
  return false;
}

}  // namespace

uint32_t BridgeSetup::hashMaxFor(uint32_t maxGroups) {
  const uint64_t want = uint64_t{maxGroups} + maxGroups / 8 + 64;
  uint64_t size = 4096;
  while (size < want) size *= 2;
  return static_cast<uint32_t>(size);
}

BridgeSetup::BridgeSetup(LinkWatcher& links, Settings settings, Handler handler)
    : links_(links), settings_(std::move(settings)), handler_(std::move(handler)) {
  hashMax_ = hashMaxFor(settings_.maxGroups);
  links_.observerAdd(this);
  if (links_.synced()) onLinksSynced();
}

BridgeSetup::~BridgeSetup() { links_.observerDel(this); }

void BridgeSetup::doFail(const std::string& why) {
  if (state_ == State::failed) return;
  state_ = State::failed;
  const LinkWatcher::Link* b = links_.link(bridge_);
  Kiv::log(DATAPLANE_UNAVAILABLE, b ? b->name : settings_.bridgeName, why);
  if (handler_) handler_(state_);
}

void BridgeSetup::onLinksSynced() {
  if (state_ != State::waiting) return;
  for (const auto& [ifindex, link] : links_.links()) {
    if (link.kind != "bridge" || (!settings_.bridgeName.empty() && link.name != settings_.bridgeName))
      continue;
    bridge_ = ifindex;
    break;
  }
  if (!bridge_) return;
  std::string why;
  // The ports' filters go first: the querier switched on before them would put the bridge's first
  // query on the wire.
  for (const auto& [ifindex, link] : links_.links())
    if (link.master == bridge_ && !doPort(link.name, why)) return doFail(why);
  if (!doBridge(why)) return doFail(why);
  state_ = State::ready;
  if (handler_) handler_(state_);
}

void BridgeSetup::onLink(const LinkWatcher::Link* before, const LinkWatcher::Link* after) {
  if (state_ == State::waiting) {
    if (links_.synced() && after && after->kind == "bridge") onLinksSynced();
    return;
  }
  if (state_ != State::ready || !after || after->master != bridge_) return;
  if (before && before->master == bridge_) return;
  std::string why;
  if (!doPort(after->name, why)) doFail(why);
}

bool BridgeSetup::doBridge(std::string& why) {
  NetlinkSocket nl({});
  // The response interval goes first and alone: the kernel would apply the querier before it.
  const BridgeOption options[] = {
      {IFLA_BR_MCAST_SNOOPING, 1, 1},
      {IFLA_BR_MCAST_ROUTER, 0, 1},
      {IFLA_BR_MCAST_QUERY_RESPONSE_INTVL, 100, 8},
      {IFLA_BR_MCAST_HASH_MAX, hashMax_, 4},
      // A query of the bridge's that reaches a host before the port's filter does (a port that has
      // just joined) is a version 3 one: a version 2 query would turn the host's reports to
      // version 2 for minutes.
      {IFLA_BR_MCAST_IGMP_VERSION, 3, 1},
  };
  const BridgeOption querier{IFLA_BR_MCAST_QUERIER, 1, 1};
  int err = netlinkRequestAcked(nl, RTM_NEWLINK, bridgeOptionsBody(bridge_, options));
  if (!err) err = netlinkRequestAcked(nl, RTM_NEWLINK, bridgeOptionsBody(bridge_, std::span(&querier, 1)));
  if (err) why = std::string("multicast options: ") + std::strerror(err);
  return err == 0;
}

bool BridgeSetup::doPort(const std::string& port, std::string& why) {
  const std::string commands = "qdisc replace dev " + port + " clsact\n" + "filter replace dev " + port +
                               " ingress pref 10 handle 1 bpf da bytecode \"" + ingressBytecode + "\"\n" +
                               "filter replace dev " + port + " egress pref 10 handle 1 bpf da bytecode \"" +
                               egressBytecode + "\"\n";
  return tcRun(settings_.tc, commands, why);
}

}  // namespace Platform
