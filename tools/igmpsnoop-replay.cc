// igmpsnoop-replay: feeds a capture through the agent in the capture's own time and prints how the
// snooping state evolves: joins, leaves, expiries, querier and router changes, confidence, and what
// would be published. --final prints only the end state, as 'snoopctl show groups' would.
#include <pcap/pcap.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "agent/AgentCreator.h"
#include "kernel/ActivityManager.h"
#include "kernel/RingDecoder.h"
#include "net/EthAddr.h"
#include "platform/AgentMountTable.h"
#include "tools/CoreFeed.h"
#include "tools/GroupLines.h"

namespace {

using namespace Bridging::IgmpSnooping;

constexpr const char* usage =
    "usage: igmpsnoop-replay FILE [--vlan V] [--port-by-mac | --port MAPFILE] [--final]\n"
    "\n"
    "Feeds the Ethernet frames of a pcap or pcapng capture through the agent in virtual time (the\n"
    "capture's own times) and prints each change of the snooping state as it happens.\n"
    "\n"
    "  --vlan V         the VLAN of untagged frames (default 1); tagged frames of other VLANs are skipped\n"
    "  --port-by-mac    each source MAC address is a port of its own (default: one port, 'capture')\n"
    "  --port MAPFILE   ports by source MAC: lines 'MAC PORT' ('#' starts a comment); other MACs\n"
    "                   arrive on a port named after the MAC\n"
    "  --final          print only the end state, as 'snoopctl show groups' would\n";

[[noreturn]] void die(int status, const std::string& line) {
  std::cerr << "igmpsnoop-replay: " << line << '\n';
  std::exit(status);
}

struct Options {
  std::string file;
  std::optional<Bridging::VlanId> vlan;
  bool portByMac = false;
  std::map<std::string, std::string> portOfMac;
  bool final = false;
};

std::string macText(const uint8_t* m) {
  char buf[18];
  std::snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
  return buf;
}

Options parse(int argc, char** argv) {
  Options o;
  std::string portFile;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--help" || a == "-h") {
      std::cout << usage;
      std::exit(0);
    } else if (a == "--vlan" && i + 1 < argc) {
      const long v = std::strtol(argv[++i], nullptr, 10);
      if (!Bridging::VlanId::isValid(v > 0 && v < 65536 ? static_cast<unsigned>(v) : 0))
        die(2, std::string("--vlan ") + argv[i] + ": give a VLAN from 1 to 4094");
      o.vlan = Bridging::VlanId(static_cast<uint16_t>(v));
    } else if (a == "--port-by-mac") {
      o.portByMac = true;
    } else if (a == "--port" && i + 1 < argc) {
      portFile = argv[++i];
    } else if (a == "--final") {
      o.final = true;
    } else if (!a.starts_with("-") && o.file.empty()) {
      o.file = a;
    } else {
      die(2, "unknown option " + a + " (see --help)");
    }
  }
  if (o.file.empty()) die(2, "no capture file given (see --help)");
  if (o.portByMac && !portFile.empty()) die(2, "--port-by-mac and --port exclude each other");
  if (!portFile.empty()) {
    std::ifstream in(portFile);
    if (!in) die(2, "cannot open " + portFile);
    std::string line;
    for (int n = 1; std::getline(in, line); ++n) {
      line = line.substr(0, line.find('#'));
      std::istringstream f(line);
      std::string mac, port;
      if (!(f >> mac)) continue;
      Lomax::EthAddr addr;
      if (!(f >> port) || !Kiv::ValueTraits<Lomax::EthAddr>::fromText(mac, addr))
        die(2, portFile + ":" + std::to_string(n) + ": expected 'MAC PORT'");
      o.portOfMac[Kiv::ValueTraits<Lomax::EthAddr>::text(addr)] = port;
    }
    o.portByMac = true;
  }
  return o;
}

// The snooping state as facts, one text per key: what the timeline compares from step to step.
using Facts = std::map<std::string, std::string>;

Facts factsOf(const IgmpProtocolStatus& ps) {
  Facts f;
  for (auto& c : ps.contextStatusIter()) {
    const std::string vlan = "vlan " + std::to_string(c.key().value()) + " ";
    const IgmpContextStatus& ctx = *c.ptr();
    f[vlan + "confident"] = ctx.confident() ? "yes" : "no";
    if (auto q = ctx.querier())
      f[vlan + "querier"] =
          q->addr().stringValue().stdString() + " on " + q->intf().stringValue().stdString();
    for (auto& r : ctx.routerIter()) {
      static const char* types[] = {"PIM", "DVMRP", "MRD", "query"};
      f[vlan + "router " + r.key().stringValue().stdString()] =
          "on " + r->intf().stringValue().stdString() + " (" + types[r->routerType() & 3] + ")";
    }
    for (auto& g : ctx.groupIter()) {
      const std::string group = g.key().stringValue().stdString();
      std::set<std::string> ports;
      for (auto& s : g->intfIter()) {
        const std::string port = s.key().stringValue().stdString();
        if (s->staticEntry()) f[vlan + "static " + group + " " + port] = "";
        if (s->staticEntry() || s->membershipSize()) ports.insert(port);
        for (auto& m : s->membershipIter())
          f[vlan + "member " + group + " " + port + " " + m.key().stringValue().stdString()] =
              std::string("v") + std::to_string(static_cast<int>(m->igmpVersion())) +
              (m->filterMode() == Gmp::Igmp::filterModeExclude ? " exclude" : " include");
      }
      // Published only while confident; until then the VLAN floods.
      if (ctx.confident() && !ports.empty()) {
        std::string list;
        for (const auto& p : ports) list += (list.empty() ? "" : ",") + p;
        f[vlan + "publish " + group] = list;
      }
    }
  }
  return f;
}

// Prints what changed between two states; removals of memberships say how they went.
void printChanges(Kiv::Seconds t, const Facts& before, const Facts& after, bool byTimer) {
  const std::string stamp = Vellum::timeText(t).substr(0, 23);
  for (const auto& [k, v] : before) {
    auto it = after.find(k);
    if (it == after.end()) {
      const char* why = k.find(" member ") != std::string::npos ? (byTimer ? "  (expired)" : "  (left)") : "";
      std::cout << stamp << "  - " << k << (v.empty() ? "" : "  " + v) << why << '\n';
    } else if (it->second != v) {
      std::cout << stamp << "    " << k << "  " << v << " -> " << it->second << '\n';
    }
  }
  for (const auto& [k, v] : after)
    if (!before.contains(k)) std::cout << stamp << "  + " << k << (v.empty() ? "" : "  " + v) << '\n';
}

std::string commandOutput(Agent::AgentCommandCallback& cb, const std::string& command) {
  const int fd = ::memfd_create("replay", MFD_CLOEXEC);
  const int reader = ::dup(fd);
  cb.handleCommand(fd, Kiv::String(command));
  std::string out(static_cast<size_t>(std::max<off_t>(::lseek(reader, 0, SEEK_END), 0)), '\0');
  if (!out.empty() && ::pread(reader, out.data(), out.size(), 0) < 0) out.clear();
  ::close(reader);
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  const Options o = parse(argc, argv);
  char err[PCAP_ERRBUF_SIZE] = {};
  pcap_t* pcap = pcap_open_offline(o.file.c_str(), err);
  if (!pcap) die(1, o.file + ": " + err);
  if (pcap_datalink(pcap) != DLT_EN10MB) die(1, o.file + ": not an Ethernet capture");

  pcap_pkthdr* hdr = nullptr;
  const u_char* bytes = nullptr;
  int rc = pcap_next_ex(pcap, &hdr, &bytes);
  const Kiv::Seconds start = rc == 1 ? static_cast<double>(hdr->ts.tv_sec) + hdr->ts.tv_usec / 1e6 : 0.0;
  Kiv::VirtualTime virtualTime(start);
  Kiv::ActivityManager* loop = Kiv::activityManager();

  auto db = Platform::stateDbOpen("");
  const IgmpSnoopingAgent::AgentMounts mounts = Platform::AgentMountTable::mount(*db);
  auto agent = IgmpSnoopingAgent::rootFactory("IgmpSnooping")->agentIs(mounts, "igmpsnoop-replay");
  Tools::CoreFeed feed(mounts, agent->timerWheel());

  Facts facts;
  auto step = [&](bool byTimer) {
    Facts now = factsOf(*mounts.protocolStatus);
    if (!o.final) printChanges(loop->clock()->now(), facts, now, byTimer);
    facts = std::move(now);
  };
  // Time passes timer by timer, so that each expiry shows at its own moment.
  auto advanceTo = [&](Kiv::Seconds t) {
    while (loop->clock()->nextTime() <= t) {
      loop->advanceTo(loop->clock()->nextTime());
      step(true);
    }
    loop->advanceTo(t);
    step(true);
  };

  uint64_t frames = 0, skipped = 0;
  for (; rc == 1; rc = pcap_next_ex(pcap, &hdr, &bytes)) {
    advanceTo(std::max(loop->clock()->now(), static_cast<double>(hdr->ts.tv_sec) + hdr->ts.tv_usec / 1e6));
    if (hdr->caplen < 14 || hdr->caplen > 0xffff) {
      ++skipped;
      continue;
    }
    auto pkt = Lomax::globalPktManager().newPkt(std::span<const uint8_t>(bytes, hdr->caplen));
    Bridging::VlanId vlan;
    const bool tagged = bytes[12] == 0x81 && bytes[13] == 0x00;
    if (!Tools::CoreFeed::untag(pkt, o.vlan.value_or(Bridging::VlanId(1)), vlan) ||
        (tagged && o.vlan && vlan != *o.vlan)) {
      ++skipped;
      continue;
    }
    std::string port = "capture";
    if (o.portByMac) {
      const std::string mac = macText(bytes + 6);
      auto it = o.portOfMac.find(mac);
      port = it != o.portOfMac.end() ? it->second : mac;
    }
    feed.rxFrame(vlan, Lomax::IntfId(Kiv::String(port)), pkt);
    ++frames;
    loop->advanceBy(0);
    step(false);
  }
  if (rc == PCAP_ERROR) std::cerr << "igmpsnoop-replay: " << o.file << ": " << pcap_geterr(pcap) << '\n';
  pcap_close(pcap);

  if (o.final) {
    Tools::OutputTable t = Tools::groupTable();
    for (const auto& [vlan, core] : feed.cores()) {
      std::string command = "showGroups -v" + std::to_string(vlan.value());
      for (auto& g : core->status()->groupIter()) command += " -g" + g.key().stringValue().stdString();
      Tools::groupLinesParse(commandOutput(*agent->debugCliCallback(), command), t);
    }
    t.printText(std::cout);
  } else {
    std::cout << frames << " frames replayed, " << skipped << " skipped\n";
  }
  return rc == PCAP_ERROR ? 1 : 0;
}
