// snoopctl: the operator's tool. Shows what the agent holds (groups and counters through its debug
// commands, routers, queriers and VLANs from the state database), writes configuration into the state
// database, and decodes the ring trace. See usage below.
#include <hiredis/hiredis.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"
#include "kernel/RingDecoder.h"
#include "model/Config.h"
#include "model/IgmpContextStatus.h"
#include "model/IgmpProfile.h"
#include "model/Status.h"
#include "platform/AgentMountTable.h"
#include "platform/CommandSocket.h"
#include "platform/EpollPoller.h"
#include "platform/RedisStateDb.h"
#include "tools/GroupLines.h"
#include "tools/OutputTable.h"
#include "tools/RingDecodeTool.h"

namespace {

using namespace Bridging::IgmpSnooping;
using Platform::AgentMountTable;
using Tools::OutputTable;

constexpr const char* usage =
    "usage: snoopctl [--socket PATH] [--state-db ADDR] [--json] COMMAND...\n"
    "\n"
    "Show (add --json for JSON):\n"
    "  show groups [--vlan V] [-u|-y]   groups and their ports (-u configured only, -y learned only)\n"
    "  show counters                    packet-access error counters of the agent\n"
    "  show routers [--vlan V]          multicast routers learnt per VLAN\n"
    "  show querier [--vlan V]          the querier of each VLAN\n"
    "  show vlan [V]                    snooping settings and state per VLAN\n"
    "Configure (written into the state database; a refused value writes nothing and exits 1):\n"
    "  set vlan V snooping on|off|default\n"
    "  set vlan V immediate-leave on|off|default\n"
    "  set vlan V max-groups N|none\n"
    "  set vlan V static-group GROUP port PORT [on|off]\n"
    "  set vlan V router-port PORT [on|off]\n"
    "  set robustness N\n"
    "  set query-interval SECONDS\n"
    "  set profile NAME permit|deny RANGE...   (RANGE: GROUP or GROUP-GROUP)\n"
    "  set profile NAME delete\n"
    "  set interface PORT profile NAME|none\n"
    "Trace:\n"
    "  trace decode FILE                the ring trace file as text\n"
    "\n"
    "  --socket PATH    the agent's command socket (default /run/igmpsnoop/agent.sock)\n"
    "  --state-db ADDR  the Redis server: unix:PATH or tcp:HOST:PORT (default $IGMPSNOOP_STATE_DB)\n"
    "\n"
    "'snoopctl COMMAND --help' describes one command.\n";

// One line of help per command, shown by 'snoopctl show groups --help' and the like.
const std::map<std::string, std::string> commandHelp = {
    {"show groups",
     "usage: snoopctl show groups [--vlan V] [-u|-y] [--json]\n"
     "Groups of each VLAN (or of V) with their ports, as the agent holds them. Type is User for\n"
     "configured ports, Dynamic for learned ones, D/U for both. -u shows configured groups and ports\n"
     "only, -y learned ones only. '*' after the type: the VLAN is not yet confident of its state.\n"
     "Needs the agent's socket and the state database (for the list of groups).\n"},
    {"show counters",
     "usage: snoopctl show counters [--json]\n"
     "Packet-access error counters per interface, from the agent.\n"},
    {"show routers",
     "usage: snoopctl show routers [--vlan V] [--json]\n"
     "Multicast routers learnt per VLAN: address, port, how they were heard, when, and when they expire.\n"},
    {"show querier",
     "usage: snoopctl show querier [--vlan V] [--json]\n"
     "The querier elected in each VLAN.\n"},
    {"show vlan",
     "usage: snoopctl show vlan [V] [--json]\n"
     "Per VLAN: snooping and immediate-leave settings, group limit, static groups and router ports as\n"
     "configured, and whether the core is confident, with its group and router counts.\n"},
    {"set", usage},
    {"trace decode",
     "usage: snoopctl trace decode FILE\n"
     "Prints every message of a ring trace file (IgmpSnoopingDetailed*.vl), all levels in write order.\n"},
};

struct Options {
  std::string socket = Platform::CommandSocket::defaultPath;
  std::string stateDb;
  bool json = false;
  bool help = false;
  std::vector<std::string> words;
};

[[noreturn]] void fail(int status, const std::string& line) {
  std::cerr << "snoopctl: " << line << '\n';
  std::exit(status);
}
// A value the operator gave that cannot be taken: what was wrong and what would be right.
[[noreturn]] void refuse(const std::string& wrong, const std::string& right) {
  fail(1, wrong + "; " + right);
}

Options parse(int argc, char** argv) {
  Options o;
  if (const char* env = std::getenv("IGMPSNOOP_STATE_DB")) o.stateDb = env;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    auto value = [&]() -> std::string {
      if (i + 1 >= argc) fail(2, a + " needs a value (see --help)");
      return argv[++i];
    };
    if (a == "--socket") {
      o.socket = value();
    } else if (a == "--state-db") {
      o.stateDb = value();
    } else if (a == "--json") {
      o.json = true;
    } else if (a == "--help" || a == "-h") {
      o.help = true;
    } else {
      o.words.push_back(a);
    }
  }
  return o;
}

// --- values ------------------------------------------------------------------------------------------

bool parseNumber(const std::string& s, unsigned long long max, unsigned long long& out) {
  if (s.empty() || s.size() > 12 || s.find_first_not_of("0123456789") != std::string::npos) return false;
  out = std::stoull(s);
  return out <= max;
}

Bridging::VlanId vlanArg(const std::string& s) {
  unsigned long long v = 0;
  if (!parseNumber(s, 4094, v) || v < 1)
    refuse("VLAN '" + s + "' is not a VLAN", "give a number from 1 to 4094");
  return Bridging::VlanId(static_cast<uint16_t>(v));
}

Lomax::IpAddr groupArg(const std::string& s) {
  Lomax::IpAddr a;
  if (!Lomax::IpAddr::parse(s, a))
    refuse("group '" + s + "' is not an IPv4 address", "give one like 239.1.1.1");
  const uint32_t v = a.value();
  if ((v >> 28) != 0xe)
    refuse("group " + s + " is not multicast", "give an address from 224.0.1.0 to 239.255.255.255");
  if ((v >> 8) == 0xe00000)
    refuse("group " + s + " is link-local (224.0.0.0/24), which is always flooded",
           "give an address from 224.0.1.0 to 239.255.255.255");
  return a;
}

Lomax::IntfId portArg(const std::string& s) {
  if (s.empty() || s.size() > 64 || s.find_first_of(" \t|=,%/") != std::string::npos)
    refuse("port '" + s + "' is not an interface name", "give a port name such as Ethernet1 or eth1");
  return Lomax::IntfId(Kiv::String(s));
}

bool onOffArg(const std::string& s, const std::string& what) {
  if (s == "on") return true;
  if (s == "off") return false;
  refuse(what + " '" + s + "' is neither on nor off", "give on or off");
}

// --- the state database ------------------------------------------------------------------------------

// A blocking connection for the few questions that come before mounting.
class RedisProbe {
 public:
  explicit RedisProbe(const std::string& address) : address_(address) {
    timeval tv{2, 0};
    if (address.starts_with("unix:")) {
      ctx_ = redisConnectUnixWithTimeout(address.substr(5).c_str(), tv);
    } else if (address.starts_with("tcp:")) {
      const std::string hp = address.substr(4);
      const size_t colon = hp.rfind(':');
      if (colon == std::string::npos) fail(2, "--state-db " + address + ": expected tcp:HOST:PORT");
      ctx_ = redisConnectWithTimeout(hp.substr(0, colon).c_str(), std::atoi(hp.c_str() + colon + 1), tv);
    } else {
      fail(2, "--state-db " + address + ": expected unix:PATH or tcp:HOST:PORT");
    }
    if (!ctx_ || ctx_->err)
      fail(2, "cannot reach the state database at " + address + ": " + (ctx_ ? ctx_->errstr : "no memory"));
  }
  ~RedisProbe() { redisFree(ctx_); }
  // Whether a writer has put the tree at path there.
  bool treeExists(const std::string& path) {
    auto* r = static_cast<redisReply*>(redisCommand(ctx_, "EXISTS meta|%s", path.c_str()));
    if (!r) fail(2, "the state database at " + address_ + " went away");
    const bool exists = r->type == REDIS_REPLY_INTEGER && r->integer == 1;
    freeReplyObject(r);
    return exists;
  }

 private:
  std::string address_;
  redisContext* ctx_ = nullptr;
};

std::string stateDbAddress(const Options& o) {
  if (o.stateDb.empty())
    fail(2, "this command needs the state database: give --state-db unix:PATH (or set IGMPSNOOP_STATE_DB)");
  return o.stateDb;
}

// A tree as the agent last wrote it (or configuration as last written), read once.
class TreeReader {
 public:
  TreeReader(const std::string& address, const char* path, Kiv::Ptr<Kiv::Entity> root) {
    if (!RedisProbe(address).treeExists(path)) return;
    Platform::epollPollerInstall();
    db_ = Platform::stateDbOpen(address);
    db_->mount(path, root, AgentMountTable::options(path, false));
    if (!db_->waitLoaded(5))
      fail(2, std::string("could not read ") + path + " from the state database in time");
  }

 private:
  std::unique_ptr<Platform::StateDb> db_;
};

// Opens a tree for writing, changes it with fn and waits until Redis has it.
template <class T>
void writeTree(const Options& o, const char* path, const char* name, const std::function<void(T&)>& fn) {
  const std::string address = stateDbAddress(o);
  RedisProbe probe(address);
  Platform::epollPollerInstall();
  auto db = Platform::stateDbOpen(address);
  auto root = Kiv::make<T>(name);
  db->mount(path, root, AgentMountTable::options(path, true));
  if (!db->waitLoaded(5)) fail(2, std::string("could not read ") + path + " from the state database in time");
  fn(*root);
  auto* redis = dynamic_cast<Platform::RedisStateDb*>(db.get());
  redis->flushNow();
  Kiv::Clock::NotifieeConst tick;
  tick.notifierIs(Kiv::ActivityManagerConfig::clock());
  const Kiv::Seconds limit = Kiv::System::currentTime() + 5;
  while (!redis->idle()) {
    if (Kiv::System::currentTime() > limit) fail(2, "the state database did not take the change in time");
    tick.timeMinIs(Kiv::System::currentTime() + 0.01);
    Kiv::activityManager()->runOnce();
  }
}

// --- configuration -----------------------------------------------------------------------------------

void setVlan(const Options& o, const std::vector<std::string>& w) {
  // set vlan V WHAT ARGS...
  if (w.size() < 4) refuse("set vlan needs a VLAN and a setting", "see snoopctl set --help");
  const Bridging::VlanId vlan = vlanArg(w[2]);
  const std::string& what = w[3];
  auto arg = [&](size_t i, const char* name) -> const std::string& {
    if (i >= w.size()) refuse(what + " needs " + name, "see snoopctl set --help");
    return w[i];
  };
  auto tri = [&](const std::string& s) -> int {
    if (s == "on") return 2;
    if (s == "off") return 1;
    if (s == "default") return 0;
    refuse(what + " '" + s + "' is not a setting", "give on, off or default");
  };
  std::function<void(VlanConfig&)> change;
  if (what == "snooping") {
    const auto v = static_cast<VlanState>(tri(arg(4, "on, off or default")));
    change = [v](VlanConfig& c) { c.enabledIs(v); };
  } else if (what == "immediate-leave") {
    const auto v = static_cast<immediateLeaveVlanState>(tri(arg(4, "on, off or default")));
    change = [v](VlanConfig& c) { c.immediateLeaveIs(v); };
  } else if (what == "max-groups") {
    const std::string& s = arg(4, "a number or none");
    unsigned long long n = 0xffff;
    if (s != "none" && !parseNumber(s, 0xfffe, n))
      refuse("max-groups '" + s + "' is not a group count",
             "give a number from 0 to 65534, or none for no limit");
    change = [n](VlanConfig& c) { c.maxGroupsIs(static_cast<uint16_t>(n)); };
  } else if (what == "static-group") {
    const Lomax::IpAddr group = groupArg(arg(4, "a group"));
    if (arg(5, "'port PORT'") != "port")
      refuse("static-group " + w[4] + " '" + w[5] + "'", "write static-group GROUP port PORT");
    const Lomax::IntfId port = portArg(arg(6, "a port"));
    const bool on = w.size() > 7 ? onOffArg(w[7], "static-group") : true;
    change = [group, port, on](VlanConfig& c) {
      if (on) {
        c.ipGroupIs(group)->intfIs(port, true);
        return;
      }
      if (auto g = c.ipGroup(group)) {
        g->intfDel(port);
        if (!g->intfSize()) c.ipGroupDel(group);
      }
    };
  } else if (what == "router-port") {
    const Lomax::IntfId port = portArg(arg(4, "a port"));
    const bool on = w.size() > 5 ? onOffArg(w[5], "router-port") : true;
    change = [port, on](VlanConfig& c) { on ? c.routerIntfIs(port, true) : c.routerIntfDel(port); };
  } else {
    refuse("'" + what + "' is not a VLAN setting",
           "give snooping, immediate-leave, max-groups, static-group or router-port");
  }
  writeTree<Config>(o, AgentMountTable::config, "config", [&](Config& c) { change(*c.vlanConfigIs(vlan)); });
}

std::vector<IgmpProfile::Range> rangesArg(const std::vector<std::string>& w, size_t from) {
  std::vector<IgmpProfile::Range> out;
  for (size_t i = from; i < w.size(); ++i) {
    const size_t dash = w[i].find('-');
    IgmpProfile::Range r;
    r.low = groupArg(w[i].substr(0, dash));
    r.high = dash == std::string::npos ? r.low : groupArg(w[i].substr(dash + 1));
    if (r.high < r.low)
      refuse("range " + w[i] + " ends before it starts", "write LOW-HIGH with LOW not above HIGH");
    out.push_back(r);
  }
  if (out.empty())
    refuse("a profile needs at least one range", "give GROUP or GROUP-GROUP, e.g. 239.1.0.0-239.1.255.255");
  return out;
}

void set(const Options& o, const std::vector<std::string>& w) {
  if (w.size() < 2) refuse("set needs a setting", "see snoopctl set --help");
  const std::string& what = w[1];
  unsigned long long n = 0;
  if (what == "vlan") return setVlan(o, w);
  if (what == "robustness") {
    if (w.size() != 3 || !parseNumber(w[2], 7, n) || n < 1)
      refuse("robustness '" + (w.size() > 2 ? w[2] : "") + "' is not a robustness",
             "give a number from 1 to 7 (2 is the protocol's default)");
    return writeTree<Config>(o, AgentMountTable::config, "config",
                             [n](Config& c) { c.robustnessIs(static_cast<uint32_t>(n)); });
  }
  if (what == "query-interval") {
    if (w.size() != 3 || !parseNumber(w[2], 31744, n) || n < 1)
      refuse("query-interval '" + (w.size() > 2 ? w[2] : "") + "' is not an interval",
             "give whole seconds from 1 to 31744 (125 is the protocol's default)");
    return writeTree<Config>(o, AgentMountTable::config, "config", [n](Config& c) {
      c.globalQuerierConfigIs("globalQuerierConfig")->queryIntervalIs(static_cast<double>(n));
    });
  }
  if (what == "profile") {
    if (w.size() < 4 || w[2].empty() || w[2].size() > 64 || w[2].find_first_of(" |=,%") != std::string::npos)
      refuse("set profile needs a name and permit, deny or delete",
             "write set profile NAME permit|deny RANGE...");
    const Kiv::String name(w[2]);
    if (w[3] == "delete")
      return writeTree<IgmpProfile::ProfileConfig>(
          o, AgentMountTable::profileConfig, "profileConfig",
          [&](IgmpProfile::ProfileConfig& p) { p.profileDel(name); });
    if (w[3] != "permit" && w[3] != "deny")
      refuse("'" + w[3] + "' is not a profile action", "give permit, deny or delete");
    const bool deny = w[3] == "deny";
    const auto ranges = rangesArg(w, 4);
    return writeTree<IgmpProfile::ProfileConfig>(o, AgentMountTable::profileConfig, "profileConfig",
                                                 [&](IgmpProfile::ProfileConfig& p) {
                                                   auto profile = p.profileIs(name);
                                                   profile->rangesDelAll();
                                                   for (const auto& r : ranges) profile->rangesIs(r, true);
                                                   profile->denyRangesIs(deny);
                                                 });
  }
  if (what == "interface") {
    if (w.size() != 5 || w[3] != "profile")
      refuse("set interface needs a port and a profile", "write set interface PORT profile NAME|none");
    const Lomax::IntfId port = portArg(w[2]);
    const std::string profile = w[4] == "none" ? "" : w[4];
    return writeTree<Config>(o, AgentMountTable::config, "config", [&](Config& c) {
      if (profile.empty())
        c.intfConfigDel(port);
      else
        c.intfConfigIs(port)->profileNameIs(Kiv::String(profile));
    });
  }
  refuse("'" + what + "' is not a setting", "give vlan, robustness, query-interval, profile or interface");
}

// --- shows -------------------------------------------------------------------------------------------

void print(const Options& o, const OutputTable& t) {
  if (o.json)
    t.printJson(std::cout);
  else
    t.printText(std::cout);
}

std::string agentCommand(const Options& o, const std::string& command) {
  try {
    return Platform::commandSocketRequest(o.socket, command);
  } catch (const Kiv::Exception& e) {
    fail(2, std::string(e.what()) + " (is igmpsnoopd running? --socket names its socket)");
  }
}

std::vector<Bridging::VlanId> vlansOf(const IgmpProtocolStatus& ps,
                                      const std::optional<Bridging::VlanId>& only) {
  std::vector<Bridging::VlanId> out;
  for (auto& c : ps.contextStatusIter())
    if (!only || c.key() == *only) out.push_back(c.key());
  std::sort(out.begin(), out.end());
  return out;
}

// --vlan V among the words from index i on.
std::optional<Bridging::VlanId> vlanOption(const std::vector<std::string>& w, size_t from,
                                           std::vector<std::string>* rest) {
  std::optional<Bridging::VlanId> v;
  for (size_t i = from; i < w.size(); ++i) {
    if (w[i] == "--vlan") {
      if (i + 1 >= w.size()) refuse("--vlan needs a VLAN", "give a number from 1 to 4094");
      v = vlanArg(w[++i]);
    } else if (rest) {
      rest->push_back(w[i]);
    } else {
      refuse("'" + w[i] + "' is not an option here", "see snoopctl " + w[0] + " " + w[1] + " --help");
    }
  }
  return v;
}

void showGroups(const Options& o, const std::vector<std::string>& w) {
  std::vector<std::string> rest;
  const auto only = vlanOption(w, 2, &rest);
  std::string filter;
  for (const auto& r : rest) {
    if (r != "-u" && r != "-y")
      refuse("'" + r + "' is not an option of show groups", "give --vlan V, -u or -y");
    filter = " " + r;
  }
  auto ps = Kiv::make<IgmpProtocolStatus>("protocolStatus");
  TreeReader reader(stateDbAddress(o), AgentMountTable::protocolStatus, ps);
  OutputTable t({{"vlan", "VLAN"},
                 {"group", "Group"},
                 {"type", "Type"},
                 {"confident", "Confident"},
                 {"ports", "Ports"}});
  for (Bridging::VlanId vlan : vlansOf(*ps, only)) {
    std::vector<Lomax::IpAddr> groups;
    for (auto& g : ps->contextStatus(vlan)->groupIter()) groups.push_back(g.key());
    std::sort(groups.begin(), groups.end());
    // A request line stays well under the agent's limit: groups go in batches.
    for (size_t i = 0; i < groups.size(); i += 150) {
      std::string command = "showGroups -v" + std::to_string(vlan.value()) + filter;
      for (size_t k = i; k < groups.size() && k < i + 150; ++k)
        command += " -g" + groups[k].stringValue().stdString();
      Tools::groupLinesParse(agentCommand(o, command), t);
    }
  }
  print(o, t);
}

void showCounters(const Options& o) {
  std::istringstream in(agentCommand(o, "ethDevPamsCounters"));
  OutputTable t({{"interface", "Interface"},
                 {"rxErrors", "Rx errors"},
                 {"txErrors", "Tx errors"},
                 {"txDrops", "Tx drops"}});
  std::string line;
  std::getline(in, line);  // the agent's own header
  while (std::getline(in, line)) {
    std::istringstream f(line);
    std::string name;
    long long rx = 0, tx = 0, drops = 0;
    if (f >> name >> rx >> tx >> drops)
      t.rowIs({OutputTable::text(name), OutputTable::number(rx), OutputTable::number(tx),
               OutputTable::number(drops)});
  }
  print(o, t);
}

std::string timeText(Kiv::Seconds t) {
  if (!(t < 1e15)) return "never";
  return Vellum::timeText(t).substr(0, 19);
}

const char* routerTypeText(MulticastRouterType t) {
  switch (t) {
    case routerTypePim:
      return "PIM";
    case routerTypeDvmrp:
      return "DVMRP";
    case routerTypeMrd:
      return "MRD";
    default:
      return "query";
  }
}

void showRouters(const Options& o, const std::vector<std::string>& w, bool querier) {
  const auto only = vlanOption(w, 2, nullptr);
  auto ps = Kiv::make<IgmpProtocolStatus>("protocolStatus");
  TreeReader reader(stateDbAddress(o), AgentMountTable::protocolStatus, ps);
  std::vector<OutputTable::Column> cols = {{"vlan", "VLAN"}, {"address", "Address"}, {"port", "Port"}};
  if (querier)
    cols.insert(cols.end(),
                {{"version", "Version"}, {"lastHeard", "Last heard (UTC)"}, {"expires", "Expires (UTC)"}});
  else
    cols.insert(cols.end(), {{"type", "Heard by"},
                             {"firstHeard", "First heard (UTC)"},
                             {"lastHeard", "Last heard (UTC)"},
                             {"expires", "Expires (UTC)"}});
  OutputTable t(cols);
  for (Bridging::VlanId vlan : vlansOf(*ps, only)) {
    auto ctx = ps->contextStatus(vlan);
    const auto vlanCell = OutputTable::number(vlan.value());
    if (querier) {
      auto q = ctx->querier();
      if (!q) continue;
      t.rowIs({vlanCell, OutputTable::text(q->addr().stringValue().stdString()),
               OutputTable::text(q->intf().stringValue().stdString()),
               OutputTable::text("v" + std::to_string(static_cast<int>(ctx->querierVersion()))),
               OutputTable::text(timeText(q->lastHeard())), OutputTable::text(timeText(q->expire()))});
      continue;
    }
    std::vector<Kiv::Ptr<MulticastRouter const>> routers;
    for (auto& r : ctx->routerIter()) routers.emplace_back(r.ptr());
    std::sort(routers.begin(), routers.end(), [](auto& a, auto& b) { return a->addr() < b->addr(); });
    for (auto& r : routers)
      t.rowIs({vlanCell, OutputTable::text(r->addr().stringValue().stdString()),
               OutputTable::text(r->intf().stringValue().stdString()),
               OutputTable::text(routerTypeText(r->routerType())),
               OutputTable::text(timeText(r->firstHeard())), OutputTable::text(timeText(r->lastHeard())),
               OutputTable::text(timeText(r->expire()))});
  }
  print(o, t);
}

void showVlan(const Options& o, const std::vector<std::string>& w) {
  if (w.size() > 3) refuse("show vlan takes one VLAN at most", "write show vlan [V]");
  std::optional<Bridging::VlanId> only;
  if (w.size() == 3) only = vlanArg(w[2]);
  const std::string address = stateDbAddress(o);
  auto config = Kiv::make<Config>("config");
  auto ps = Kiv::make<IgmpProtocolStatus>("protocolStatus");
  auto status = Kiv::make<Status>("status");
  TreeReader configReader(address, AgentMountTable::config, config);
  TreeReader statusReader(address, AgentMountTable::protocolStatus, ps);
  TreeReader publishedReader(address, AgentMountTable::status, status);
  std::vector<Bridging::VlanId> vlans = vlansOf(*ps, only);
  for (auto& c : config->vlanConfigIter())
    if ((!only || c.key() == *only) && !ps->contextStatus(c.key())) vlans.push_back(c.key());
  if (only && vlans.empty()) vlans.push_back(*only);
  std::sort(vlans.begin(), vlans.end());
  OutputTable t({{"vlan", "VLAN"},
                 {"snooping", "Snooping"},
                 {"immediateLeave", "Immediate leave"},
                 {"maxGroups", "Max groups"},
                 {"routerPorts", "Router ports"},
                 {"staticGroups", "Static groups"},
                 {"confident", "Confident"},
                 {"groups", "Groups"},
                 {"routers", "Routers"},
                 {"flooding", "Flooding"}});
  auto tri = [](int v, bool globalDefault) {
    return v == 2 ? "on" : v == 1 ? "off" : globalDefault ? "on (default)" : "off (default)";
  };
  for (Bridging::VlanId vlan : vlans) {
    auto vc = config->vlanConfig(vlan);
    auto ctx = ps->contextStatus(vlan);
    auto vs = status->vlanStatus(vlan);
    std::vector<std::string> routerPorts, staticGroups;
    if (vc) {
      for (auto& r : vc->routerIntfIter())
        if (*r.value()) routerPorts.push_back(r.key().stringValue().stdString());
      for (auto& g : vc->ipGroupIter())
        for (auto& p : g->intfIter())
          if (*p.value())
            staticGroups.push_back(g.key().stringValue().stdString() + " " +
                                   p.key().stringValue().stdString());
      std::sort(routerPorts.begin(), routerPorts.end());
      std::sort(staticGroups.begin(), staticGroups.end());
    }
    const uint16_t maxGroups = vc ? vc->maxGroups() : 0xffff;
    t.rowIs({OutputTable::number(vlan.value()),
             OutputTable::text(tri(vc ? vc->enabled() : 0, config->vlanDefaultEnabled())),
             OutputTable::text(tri(vc ? vc->immediateLeave() : 0, config->immediateLeave())),
             maxGroups == 0xffff ? OutputTable::text("none") : OutputTable::number(maxGroups),
             OutputTable::list(routerPorts), OutputTable::list(staticGroups),
             OutputTable::text(!ctx               ? "-"
                               : ctx->confident() ? "yes"
                                                  : "no"),
             OutputTable::number(ctx ? static_cast<long long>(ctx->groupSize()) : 0),
             OutputTable::number(ctx ? static_cast<long long>(ctx->routerSize()) : 0),
             OutputTable::text(!vs                     ? "-"
                               : vs->useVlanFloodset() ? "yes"
                                                       : "no")});
  }
  print(o, t);
}

void show(const Options& o, const std::vector<std::string>& w) {
  const std::string what = w.size() > 1 ? w[1] : "";
  if (what == "groups") return showGroups(o, w);
  if (what == "counters") {
    if (w.size() > 2) refuse("show counters takes no arguments", "write show counters");
    return showCounters(o);
  }
  if (what == "routers") return showRouters(o, w, false);
  if (what == "querier") return showRouters(o, w, true);
  if (what == "vlan") return showVlan(o, w);
  refuse("'" + what + "' is not something to show", "give groups, counters, routers, querier or vlan");
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = parse(argc, argv);
  const std::vector<std::string>& w = o.words;
  if (o.help || w.empty()) {
    std::string key = w.size() >= 2 ? w[0] + " " + w[1] : w.empty() ? "" : w[0];
    auto it = commandHelp.find(key);
    if (it == commandHelp.end() && !w.empty()) it = commandHelp.find(w[0]);
    std::cout << (it != commandHelp.end() ? it->second : usage);
    return w.empty() && !o.help ? 2 : 0;
  }
  try {
    if (w[0] == "show") {
      show(o, w);
    } else if (w[0] == "set") {
      set(o, w);
    } else if (w[0] == "trace" && w.size() == 3 && w[1] == "decode") {
      return Tools::ringDecodeFile("snoopctl", w[2], std::cout, std::cerr);
    } else {
      refuse("'" + w[0] + "' is not a command", "give show, set or trace decode (see --help)");
    }
  } catch (const Kiv::Exception& e) {
    fail(2, e.what());
  }
  return 0;
}
