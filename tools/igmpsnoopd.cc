// igmpsnoopd: the snooping agent of one Linux bridge. Mounts the agent's entities from the state
// database (or keeps them in the process), keeps the bridge's configuration and its interfaces'
// status from rtnetlink, builds the agent on them with packet access to the bridge's ports, sets the
// bridge up as the data plane and programs it with what the agent publishes, serves debug commands
// on a Unix socket and runs the activity loop until SIGTERM, which leaves everything published (in
// the database and in the bridge) standing.
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/AgentCreator.h"
#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"
#include "platform/AgentMountTable.h"
#include "platform/BridgeDataplane.h"
#include "platform/BridgeSetup.h"
#include "platform/BridgeTopology.h"
#include "platform/CommandSocket.h"
#include "platform/EpollPoller.h"
#include "platform/LinkWatcher.h"
#include "platform/LinuxBridgingConfig.h"
#include "platform/LinuxEthDevPamManager.h"
#include "platform/LinuxIntfStatus.h"
#include "platform/MappedRingStorage.h"
#include "platform/RedisStateDb.h"
#include "platform/SyslogLogSink.h"

namespace {

constexpr const char* version = "igmpsnoopd 0.1.0";

constexpr const char* usage =
    "usage: igmpsnoopd --bridge NAME [--state-db ADDR] [--ring-dir DIR] [--command-socket PATH]\n"
    "                  [--foreground]\n"
    "       igmpsnoopd --help | --version\n"
    "\n"
    "The IGMP snooping agent of the Linux bridge NAME.\n"
    "\n"
    "  --bridge NAME          the bridge whose ports are the switch's ports\n"
    "  --state-db ADDR        the state database: unix:PATH or tcp:HOST:PORT of a Redis server, or\n"
    "                         'local' (the default) to keep everything in the process\n"
    "  --ring-dir DIR         where the ring trace file IgmpSnoopingDetailed.vl goes (default: the\n"
    "                         working directory, as IgmpSnoopingDetailed-PID.vl)\n"
    "  --command-socket PATH  the socket of the debug commands (default /run/igmpsnoop/agent.sock)\n"
    "  --foreground           stay in the foreground (default: run as a daemon)\n"
    "\n"
    "SIGTERM or SIGINT ends the agent and leaves what it published standing; SIGHUP does nothing.\n";

struct Options {
  std::string bridge;
  std::string stateDb;
  std::string ringDir;
  std::string commandSocket = Platform::CommandSocket::defaultPath;
  bool foreground = false;
};

[[noreturn]] void die(const std::string& line) {
  std::cerr << "igmpsnoopd: " << line << '\n';
  std::exit(2);
}

Options parse(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i], value;
    const size_t eq = arg.find('=');
    const bool inlineValue = arg.starts_with("--") && eq != std::string::npos;
    if (inlineValue) value = arg.substr(eq + 1), arg.resize(eq);
    auto next = [&]() -> std::string {
      if (inlineValue) return value;
      if (i + 1 >= argc) die(arg + " needs a value (see --help)");
      return argv[++i];
    };
    if (arg == "--help" || arg == "-h") {
      std::cout << usage;
      std::exit(0);
    } else if (arg == "--version") {
      std::cout << version << '\n';
      std::exit(0);
    } else if (arg == "--bridge") {
      o.bridge = next();
    } else if (arg == "--state-db") {
      o.stateDb = next();
    } else if (arg == "--ring-dir") {
      o.ringDir = next();
    } else if (arg == "--command-socket") {
      o.commandSocket = next();
    } else if (arg == "--foreground" && !inlineValue) {
      o.foreground = true;
    } else {
      die("unknown option " + std::string(argv[i]) + " (see --help)");
    }
  }
  if (o.bridge.empty()) die("--bridge NAME is required (see --help)");
  if (o.stateDb == "local") o.stateDb.clear();
  if (!o.stateDb.empty() && !o.stateDb.starts_with("unix:") && !o.stateDb.starts_with("tcp:"))
    die("--state-db " + o.stateDb + ": expected unix:PATH, tcp:HOST:PORT or local");
  struct stat st {};
  if (!o.ringDir.empty() && (::stat(o.ringDir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)))
    die("--ring-dir " + o.ringDir + ": no such directory");
  if (::access(("/sys/class/net/" + o.bridge).c_str(), F_OK) != 0)
    die("bridge " + o.bridge + " not found in this network namespace");
  if (::access(("/sys/class/net/" + o.bridge + "/bridge").c_str(), F_OK) != 0)
    die(o.bridge + " is not a bridge");
  return o;
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = parse(argc, argv);
  if (!o.ringDir.empty()) ::setenv("VELLUMDIR", o.ringDir.c_str(), 1);

  // Termination arrives as a readable descriptor on the loop, between events, never inside one.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  sigprocmask(SIG_BLOCK, &stopSignals, nullptr);
  ::signal(SIGHUP, SIG_IGN);
  ::signal(SIGPIPE, SIG_IGN);

  Kiv::Ptr<Platform::CommandSocket> commandSocket;
  try {
    commandSocket = Kiv::make<Platform::CommandSocket>(o.commandSocket);
  } catch (const Kiv::Exception& e) {
    die(e.what());
  }
  if (!o.foreground && ::daemon(1, 0) != 0)
    die(std::string("cannot become a daemon: ") + std::strerror(errno));

  Platform::installSyslogLogSink("igmpsnoopd");
  Platform::installMappedRingStorage();
  Platform::epollPollerInstall();
  Kiv::ActivityManager* loop = Kiv::activityManager();
  const int signals = ::signalfd(-1, &stopSignals, SFD_NONBLOCK | SFD_CLOEXEC);
  loop->fdIs(signals, Kiv::Poller::readable, [loop](unsigned) { loop->stop(); });

  std::unique_ptr<Platform::StateDb> db = Platform::stateDbOpen(o.stateDb);
  const IgmpSnoopingAgent::AgentMounts mounts = Platform::AgentMountTable::mount(*db);
  // Every tree comes back from the database before anything is built on it; a tree nobody has
  // written yet loads empty at once. The limit only bounds a database that does not answer.
  db->waitLoaded(3);

  // The bridge from rtnetlink: its ports and VLANs become the bridge's configuration, its
  // interfaces' state the interface status; the data plane follows the same watcher.
  Platform::LinkWatcher links;
  Platform::LinuxBridgingConfig bridging(mounts.bridgingConfig);
  std::unique_ptr<Platform::BridgeSetup> setup;
  std::map<uint16_t, std::unique_ptr<Platform::BridgeDataplane>> writers;
  // One writer per VLAN of the bridge, once the bridge is set up; a VLAN's writer goes with it and
  // leaves its entries to the bridge, as at exit.
  auto writersFollow = [&](const Platform::BridgeTopology::View& view) {
    if (!setup || setup->state() != Platform::BridgeSetup::State::ready) return;
    std::map<uint16_t, std::unique_ptr<Platform::BridgeDataplane>> kept;
    for (const auto& vlan : view.vlans) {
      auto it = writers.find(vlan.vid);
      if (it != writers.end()) {
        kept.emplace(vlan.vid, std::move(it->second));
      } else {
        kept.emplace(vlan.vid,
                     std::make_unique<Platform::BridgeDataplane>(
                         links, Platform::BridgeDataplane::Settings{o.bridge, vlan.vid, setup->hashMax()},
                         mounts.status, mounts.protocolStatus));
      }
    }
    writers = std::move(kept);
  };
  Platform::BridgeTopology topology(links, o.bridge, [&](const Platform::BridgeTopology::View& view) {
    bridging.viewIs(view);
    writersFollow(view);
  });
  setup = std::make_unique<Platform::BridgeSetup>(
      links, Platform::BridgeSetup::Settings{o.bridge},
      [&](Platform::BridgeSetup::State) { writersFollow(topology.view()); });

  Kiv::Ptr<Platform::LinuxEthDevPamManager> pamManager;
  IgmpSnoopingAgent::AgentPlatform platform;
  platform.intfStatusManagerFactory = [&](const Kiv::Ptr<Interface::DeviceIntfStatusDir>& dir,
                                          std::function<void()> synced) {
    return std::make_shared<Platform::LinuxIntfStatus>(links, mounts.ethIntfStatusDir, dir,
                                                       std::move(synced));
  };
  platform.ethDevPamManagerFactory = [&](const Kiv::Ptr<Interface::PamDesiredIntfDir const>& wanted,
                                         const Kiv::Ptr<Interface::EthDevPamCollection>& pams) {
    pamManager = Kiv::make<Platform::LinuxEthDevPamManager>(links, wanted, pams);
    // The bridge's egress filter passes the agent's own IGMP by this mark and drops the bridge's.
    pamManager->txMarkIs(Platform::BridgeSetup::txMark);
    return Kiv::Ptr<Interface::EthDevPamManager>(pamManager);
  };
  IgmpSnoopingAgent::AgentCreator::platformIs(std::move(platform));

  Agent::AgentCommandRequestDirSm::factoryIs(
      [commandSocket](const Kiv::Ptr<Kiv::Dir>&) { return commandSocket; });
  Kiv::Ptr<IgmpSnoopingAgent::Root> root = IgmpSnoopingAgent::rootFactory("IgmpSnooping");
  try {
    root->agentIs(mounts, "igmpsnoopd");
    links.start();
  } catch (const Kiv::Exception& e) {
    die(e.what());
  }
  // The ports' rows, and one for the socket they share, named after the bridge: what its ring dropped
  // belongs to no one port.
  const Kiv::Ptr<IgmpSnoopingAgent::DebugCliCallback> debug = root->agent()->debugCliCallback();
  debug->pamErrorCountersIs([ports = debug->source().pamErrorCounters, &pamManager, bridge = o.bridge] {
    std::vector<IgmpSnoopingAgent::PamErrorCounters> rows = ports ? ports() : decltype(rows){};
    if (Platform::PacketAccess* access = pamManager ? pamManager->packetAccess() : nullptr) {
      const Platform::PacketAccess::Counters& c = access->counters();
      rows.push_back({bridge, static_cast<uint32_t>(c.rxOversize + c.ringDrops),
                      static_cast<uint32_t>(c.txErrors), static_cast<uint32_t>(c.txNoRoom)});
    }
    return rows;
  });
  std::fprintf(stderr, "igmpsnoopd: serving bridge %s, commands on %s\n", o.bridge.c_str(),
               o.commandSocket.c_str());

  loop->run();

  // What is published stays: the last changes go out, and nothing is taken down on the way out.
  if (auto* redis = dynamic_cast<Platform::RedisStateDb*>(db.get())) {
    redis->flushNow();
    Kiv::Clock::NotifieeConst tick;
    tick.notifierIs(loop->clock());
    const Kiv::Seconds limit = Kiv::System::currentTime() + 2;
    while (!redis->idle() && Kiv::System::currentTime() < limit) {
      tick.timeMinIs(Kiv::System::currentTime() + 0.01);
      loop->runOnce();
    }
  }
  ::unlink(o.commandSocket.c_str());
  std::fflush(nullptr);
  std::_Exit(0);
}
