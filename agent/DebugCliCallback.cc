// The debug commands. Every line is formatted with the fixed widths that the front end's parser
// expects; a change of one width is a change of that interface.
#include "agent/DebugCliCallback.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "agent/AgentTrace.h"
#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"
#include "net/IpToEthGroupMap.h"

namespace IgmpSnoopingAgent {

Kiv::TraceHandle agentTrace("IgmpSnoopingAgent", false);

using namespace Bridging::IgmpSnooping;
using Lomax::IntfId;
using Lomax::IpAddr;

namespace {

const char* groupTypeText(GroupType t) {
  switch (t) {
    case staticAndDynamic:
      return "D/U ";
    case staticGrp:
      return "User ";
    case dynamicGrp:
      return "Dynamic ";
    default:
      return "- ";
  }
}

const char* versionText(Gmp::Igmp::IgmpVersion v) {
  switch (v) {
    case Gmp::Igmp::igmpVersion1:
      return "v1";
    case Gmp::Igmp::igmpVersion2:
      return "v2";
    case Gmp::Igmp::igmpVersion3:
      return "v3";
    default:
      return "- ";
  }
}

GroupType groupTypeOf(const std::vector<std::pair<IntfId, GroupType>>& ports) {
  bool st = false, dyn = false;
  for (auto& [intf, t] : ports) {
    st = st || t != dynamicGrp;
    dyn = dyn || t != staticGrp;
  }
  return st && dyn ? staticAndDynamic : st ? staticGrp : dyn ? dynamicGrp : noGroupType;
}

// Closes the command's descriptor however the command ends.
struct SocketCloser {
  int fd;
  ~SocketCloser() { ::close(fd); }
};

}  // namespace

// The parsed command and what one listing carries from group to group.
struct DebugCliCallback::Listing {
  int socket = -1;
  Bridging::VlanId vlan{};
  ShowFilterType filter = none;
  bool detail = false;
  bool count = false;
  Kiv::Ptr<IntfCollection> intfs = Kiv::make<IntfCollection>("intfs");
  Kiv::Ptr<IntfCollection> peerIntfs = Kiv::make<IntfCollection>("peerIntfs");
  Kiv::Ptr<IntfCollection> printedIntfs = Kiv::make<IntfCollection>("printedIntfs");
  Kiv::Ptr<OrderedGroupCollection> groups = Kiv::make<OrderedGroupCollection>("groups");
  Kiv::Ptr<IgmpContextStatus const> context{};
  Kiv::Ptr<VlanStatus const> vlanStatus{};
  Kiv::Ptr<SyncVlanStatus const> peerVlanStatus{};
  Kiv::Ptr<VlanConfig const> vlanConfig{};
  Kiv::Seconds now = 0;
  bool peerLine = false;

  const char* flag() const { return context->confident() ? " " : "*"; }
  bool intfWanted(IntfId intf) const { return intfs->intfSize() == 0 || intfs->intf(intf); }
};

DebugCliCallback::DebugCliCallback(Kiv::Name name, Kiv::String text, DebugCliSource source)
    : Agent::AgentCommandCallback(std::move(name)), text_(std::move(text)), source_(std::move(source)) {}

void DebugCliCallback::handleCommand(int socket, const Kiv::String& command) {
  KIV_TRACE(agentTrace, 5, "Socket: " << socket << ", Command: " << command);
  SocketCloser closer{socket};
  if (command.view() == "ethDevPamsCounters") {
    printEthDevPamsCounters(socket);
  } else if (command.view().starts_with("showGroups ")) {
    printShowGroups(socket, command);
  } else {
    const std::string echo = echoText(command.view());
    dprintf(socket, "%s", echo.c_str());
  }
}

std::string DebugCliCallback::echoText(std::string_view command) {
  std::string out;
  out.reserve(command.size());
  for (size_t i = 0; i < command.size(); ++i) {
    out += command[i];
    if (command[i] == '%' && i + 1 < command.size() && command[i + 1] == '%') ++i;
  }
  return out;
}

void DebugCliCallback::split(std::string_view text, char delimiter, std::vector<std::string>& tokens) {
  size_t start = 0;
  for (size_t at; (at = text.find(delimiter, start)) != std::string_view::npos; start = at + 1)
    tokens.emplace_back(text.substr(start, at - start));
  if (start < text.size()) tokens.emplace_back(text.substr(start));
}

std::string DebugCliCallback::doTimeDiff(Kiv::Seconds newtime, Kiv::Seconds oldtime, bool displayDate) {
  // Beyond any clock's reach: a timer that is off.
  constexpr double far = 1e15;
  if (!(std::fabs(newtime) < far) || !(std::fabs(oldtime) < far)) return "- ";
  int64_t diff = static_cast<int64_t>(std::trunc(newtime)) - static_cast<int64_t>(std::trunc(oldtime));
  std::string out;
  if (diff < 0) out = "-", diff = -diff;
  const int64_t days = diff / 86400, hours = diff / 3600 % 24, minutes = diff / 60 % 60, seconds = diff % 60;
  char buf[64];
  if (displayDate)
    std::snprintf(buf, sizeof buf, "%dd%02dh%02dm%02d", static_cast<int>(days), static_cast<int>(hours),
                  static_cast<int>(minutes), static_cast<int>(seconds));
  else
    std::snprintf(buf, sizeof buf, "%02dh%02dm%02d", static_cast<int>(hours), static_cast<int>(minutes),
                  static_cast<int>(seconds));
  return out + buf;
}

void DebugCliCallback::printEthDevPamsCounters(int socket) const {
  dprintf(socket, "%10s %10s %10s %10s\n", "IntfName", "rxErrors", "txErrors", "txDrops");
  if (!source_.pamErrorCounters) return;
  for (const PamErrorCounters& c : source_.pamErrorCounters())
    dprintf(socket, "%10s %10u %10u %10u\n", c.intfName.c_str(), c.rxErrors, c.txErrors, c.txDrops);
}

void DebugCliCallback::printShowGroups(int socket, const Kiv::String& command) {
  KIV_TRACE_FUNC(agentTrace);
  if (!source_.coreStatusDir && !source_.status && !source_.config) {
    KIV_TRACE(agentTrace, 5, "No glueSm");
    return;
  }
  Listing l;
  l.socket = socket;
  std::vector<std::string> tokens;
  split(command.view(), ' ', tokens);
  bool vlanGiven = false;
  for (size_t i = 1; i < tokens.size(); ++i) {
    const std::string& t = tokens[i];
    const std::string arg = t.size() > 2 ? t.substr(2) : std::string();
    if (t.find("-u") != std::string::npos) {
      l.filter = user;
    } else if (t.find("-y") != std::string::npos) {
      l.filter = dynamic;
    } else if (t.find("-v") != std::string::npos) {
      const long v = std::strtol(arg.c_str(), nullptr, 10);
      if (!Bridging::VlanId::isValid(v > 0 && v <= 0xffff ? static_cast<unsigned>(v) : 0))
        Kiv::throwRangeException("VlanId::value < 1 or > 4094 not allowed");
      l.vlan = Bridging::VlanId(static_cast<uint16_t>(v));
      vlanGiven = true;
    } else if (t.find("-i") != std::string::npos) {
      l.intfs->intfIs(IntfId(Kiv::String(arg)), true);
    } else if (t.find("-g") != std::string::npos) {
      IpAddr addr;
      if (IpAddr::parse(arg, addr)) l.groups->groupIs(addr, true);
    } else if (t.find("-d") != std::string::npos) {
      l.detail = true;
    } else if (t.find("-c") != std::string::npos) {
      l.count = true;
    }
  }
  if (!vlanGiven) {
    KIV_TRACE(agentTrace, 5, "No vlanId");
    return;
  }
  if (!source_.coreStatusDir) {
    KIV_TRACE(agentTrace, 5, "No core status dir");
    return;
  }
  l.context = source_.coreStatusDir->contextStatus(l.vlan);
  if (!l.context) {
    KIV_TRACE(agentTrace, 5, "No Context Status for vlan " << l.vlan);
    return;
  }
  if (source_.status) l.vlanStatus = source_.status->vlanStatus(l.vlan);
  if (source_.peerStatus) l.peerVlanStatus = source_.peerStatus->vlanStatus(l.vlan);
  if (source_.config) l.vlanConfig = source_.config->vlanConfig(l.vlan);
  l.now = Kiv::System::currentTime();
  for (auto& g : l.groups->groupIter()) printGroup(l, g.key());
  if (l.peerLine)
    dprintf(socket, "\n%-s\n", "unknown: Please run command on the mlag peer switch to get details.");
}

void DebugCliCallback::printGroup(Listing& l, IpAddr addr) const {
  Kiv::Ptr<IgmpGroup const> igmpGroup = l.context->group(addr);
  const Lomax::EthAddr mac = IpToEthGroupMap(addr);
  Kiv::Ptr<EthernetGroup const> localEth = l.vlanStatus ? l.vlanStatus->ethGroup(mac) : nullptr;
  Kiv::Ptr<EthernetGroup const> peerEth = l.peerVlanStatus ? l.peerVlanStatus->ethGroup(mac) : nullptr;

  std::map<IntfId, GroupType> all;
  std::map<IntfId, bool> peer;
  if (igmpGroup) {
    for (auto& s : igmpGroup->intfIter()) {
      const bool st = s->staticEntry(), dyn = s->membershipSize() > 0;
      if (st || dyn) all[s.key()] = st && dyn ? staticAndDynamic : st ? staticGrp : dynamicGrp;
    }
  }
  if (localEth) {
    for (auto& p : localEth->groupIntfIter()) {
      if (all.contains(p.key())) continue;
      KIV_TRACE(agentTrace, 7,
                "Group: " << addr << ", skip printing intf " << p.key() << " because it is not in status");
    }
  }
  if (peerEth) {
    for (auto& p : peerEth->groupIntfIter()) {
      if (all.contains(p.key())) continue;
      KIV_TRACE(agentTrace, 7, "Adding intf " << p.key() << " because it is in mlag peer's status");
      KIV_TRACE(agentTrace, 7, "Group: " << addr << ", added peer intf " << p.key());
      all[p.key()] = dynamicGrp;
      peer[p.key()] = true;
    }
  }
  if (!igmpGroup && peer.empty()) {
    KIV_TRACE(agentTrace, 7, "Group not found in local or peer status: " << addr);
    return;
  }

  std::vector<std::pair<IntfId, GroupType>> allPorts(all.begin(), all.end());
  const GroupType allType = groupTypeOf(allPorts);
  const bool passes = l.filter == none ||
                      (l.filter == user && (allType == staticGrp || allType == staticAndDynamic)) ||
                      (l.filter == dynamic && (allType == dynamicGrp || allType == staticAndDynamic));
  // A filter narrows the ports, and the type follows what is left; "-i" only narrows what is printed.
  std::vector<std::pair<IntfId, GroupType>> kept, shown;
  for (auto& [intf, t] : allPorts) {
    if (l.filter == user && t == dynamicGrp) continue;
    if (l.filter == dynamic && t == staticGrp) continue;
    kept.emplace_back(intf, t);
    if (l.intfWanted(intf)) shown.emplace_back(intf, t);
  }

  if (l.count) {
    dprintf(l.socket, "%s", passes && !shown.empty() ? "y" : "n");
    return;
  }
  if (!passes) return;
  if (!l.detail) {
    for (auto& [intf, t] : shown) l.peerLine = l.peerLine || peer.contains(intf);
    printGroupRegular(l, shown, groupTypeOf(kept), addr);
    return;
  }
  l.printedIntfs->intfDelAll();
  for (auto& [intf, t] : allPorts) {
    if (!l.intfWanted(intf)) continue;
    KIV_TRACE(agentTrace, 8, "Print detail for intf " << intf);
    Kiv::Ptr<IgmpIntfStatus const> intfStatus = igmpGroup ? igmpGroup->intf(intf) : nullptr;
    if (printGroupIntfDetail(l, intfStatus, intf, peer.contains(intf), addr))
      l.printedIntfs->intfIs(intf, true);
  }
  if (igmpGroup && l.filter != user && printDynamicRouters(l, addr)) l.peerLine = true;
  if (l.filter == dynamic || !l.vlanConfig) return;
  std::vector<IntfId> staticRouters;
  for (auto& r : l.vlanConfig->routerIntfIter()) {
    const bool inVlan = !source_.topoVlanHasPort || source_.topoVlanHasPort(l.vlan, r.key());
    if (*r.value() && inVlan && l.intfWanted(r.key())) staticRouters.push_back(r.key());
  }
  std::sort(staticRouters.begin(), staticRouters.end());
  for (IntfId r : staticRouters)
    dprintf(l.socket, "%-4d %-15s %-15s %-11s %-11s %-8s %-3s %-1s %-s\n", l.vlan.value(),
            addr.stringValue().charPtr(), "0.0.0.0", "- ", "- ", "- ", "-", "-", r.shortName().charPtr());
}

void DebugCliCallback::printGroupRegular(const Listing& l,
                                         const std::vector<std::pair<IntfId, GroupType>>& ports,
                                         GroupType groupType, IpAddr addr) const {
  if (ports.empty()) return;
  char start[128];
  std::snprintf(start, sizeof start, "%-5d %-16s %-8s %-20s %-2s", l.vlan.value(),
                addr.stringValue().charPtr(), groupTypeText(groupType), "- ", l.flag());
  std::string line = start;
  int column = 53;
  bool wrap = false;
  for (size_t i = 0; i < ports.size(); ++i) {
    if (i > 0) line += ", ", column += 2;
    if (wrap) line += "\n" + std::string(52, ' '), column = 53, wrap = false;
    const Kiv::String& name = ports[i].first.shortName();
    line += name.view();
    column += static_cast<int>(name.size());
    wrap = column > 74;
  }
  line += "\n";
  dprintf(l.socket, "%s", line.c_str());
}

bool DebugCliCallback::printGroupIntfDetail(Listing& l, const Kiv::Ptr<IgmpIntfStatus const>& intfStatus,
                                            IntfId intf, bool peerIntf, IpAddr addr) const {
  const char* format = "%-4d %-15s %-15s %-11s %-11s %-8s %-3s %-1s %-1s %-s\n";
  if (peerIntf) {
    KIV_TRACE(agentTrace, 8, ", peer intf " << intf);
    dprintf(l.socket, format, l.vlan.value(), addr.stringValue().charPtr(), "unknown", "- ", "- ", "- ", "-",
            "-", " ", intf.shortName().charPtr());
    l.peerLine = true;
    return true;
  }
  if (!intfStatus) return false;
  bool printed = false;
  if (l.filter != user) {
    std::vector<Kiv::Ptr<IgmpMembership const>> memberships;
    for (auto& m : intfStatus->membershipIter()) memberships.emplace_back(m.ptr());
    std::sort(memberships.begin(), memberships.end(),
              [](auto& a, auto& b) { return a->reporter() < b->reporter(); });
    for (auto& m : memberships) printDetail(l, addr, intf, *m);
    printed = !memberships.empty();
    if (l.filter == dynamic) return printed;
  }
  if (intfStatus->staticEntry()) {
    dprintf(l.socket, format, l.vlan.value(), addr.stringValue().charPtr(), "0.0.0.0", "- ", "- ", "- ", "-",
            "-", l.flag(), intf.shortName().charPtr());
    printed = true;
  }
  return printed;
}

void DebugCliCallback::printDetail(const Listing& l, IpAddr addr, IntfId intf,
                                   const IgmpMembership& m) const {
  std::string expiry;
  if (m.filterMode() == Gmp::Igmp::filterModeExclude) {
    expiry = doTimeDiff(m.expire(), l.now, false);
  } else {
    // An include-mode membership lasts while its sources do: each general query without a report
    // that names them takes one of the robustness count's retransmissions.
    const uint32_t robustness = l.context->robustness();
    uint32_t count = robustness;
    for (auto& s : m.sourceIter()) count = std::min(count, s->sourceAge());
    const Kiv::Seconds until =
        m.lastReport() + static_cast<double>(robustness - count) * l.context->queryInterval();
    expiry = "~" + doTimeDiff(until, l.now, false);
  }
  dprintf(l.socket, "%-4d %-15s %-15s %-11s %-11s %-8s %-3s %-1d %-1s %-s\n", l.vlan.value(),
          addr.stringValue().charPtr(), m.reporter().stringValue().charPtr(),
          doTimeDiff(l.now, m.firstReport(), true).c_str(), doTimeDiff(l.now, m.lastReport(), true).c_str(),
          expiry.c_str(), versionText(m.igmpVersion()), m.filterMode() == 0 ? 0 : 1, l.flag(),
          intf.shortName().charPtr());
}

bool DebugCliCallback::printDynamicRouters(Listing& l, IpAddr addr) const {
  const char* format = "%-4d %-15s %-15s %-11s %-11s %-8s %-3s %-1s %-s\n";
  std::vector<Kiv::Ptr<MulticastRouter const>> routers;
  for (auto& r : l.context->routerIter()) routers.emplace_back(r.ptr());
  std::sort(routers.begin(), routers.end(), [](auto& a, auto& b) { return a->addr() < b->addr(); });
  std::map<IntfId, bool> local;
  for (auto& r : routers) {
    local[r->intf()] = true;
    if (r->intf() == Lomax::switchIntfId() || l.printedIntfs->intf(r->intf()) || !l.intfWanted(r->intf()))
      continue;
    dprintf(l.socket, format, l.vlan.value(), addr.stringValue().charPtr(), r->addr().stringValue().charPtr(),
            doTimeDiff(l.now, r->firstHeard(), true).c_str(), doTimeDiff(l.now, r->lastHeard(), true).c_str(),
            doTimeDiff(r->expire(), l.now, false).c_str(), "- ", "- ", r->intf().shortName().charPtr());
  }
  if (!l.peerVlanStatus) return false;
  std::vector<IntfId> peerRouters;
  for (auto& p : l.peerVlanStatus->routerIntfIter()) {
    const IntfId intf = p.key();
    if (*p.value() && !local.contains(intf) && intf != Lomax::switchIntfId() && !l.printedIntfs->intf(intf) &&
        l.intfWanted(intf))
      peerRouters.push_back(intf);
  }
  std::sort(peerRouters.begin(), peerRouters.end());
  for (IntfId intf : peerRouters)
    dprintf(l.socket, format, l.vlan.value(), addr.stringValue().charPtr(), "unknown", "- ", "- ", "- ", "-",
            "- ", intf.shortName().charPtr());
  return !peerRouters.empty();
}

}  // namespace IgmpSnoopingAgent
