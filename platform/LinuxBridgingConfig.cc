// From the bridge's view to the bridge's configuration, by difference.
#include "platform/LinuxBridgingConfig.h"

#include <map>
#include <set>
#include <vector>

namespace Platform {

namespace {
constexpr uint16_t maxVlan = 4094;
Lomax::IntfId intfOf(const std::string& name) { return Lomax::IntfId(Kiv::String(name)); }
}  // namespace

void LinuxBridgingConfig::viewIs(const BridgeTopology::View& view) {
  std::map<int, Lomax::IntfId> byIndex;
  std::set<Lomax::IntfId> ports;
  for (const auto& p : view.ports) {
    const Lomax::IntfId intf = intfOf(p.name);
    byIndex[p.ifindex] = intf;
    ports.insert(intf);
    const uint16_t pvid = p.pvid >= 1 && p.pvid <= maxVlan ? p.pvid : 0;
    config_->switchIntfConfigIs(intf)->defaultVlanIs(Bridging::VlanIdOrNone(pvid));
  }

  std::set<Bridging::VlanId> vlans;
  for (const auto& v : view.vlans) {
    if (v.vid < 1 || v.vid > maxVlan) continue;
    const Bridging::VlanId vlan(v.vid);
    vlans.insert(vlan);
    Kiv::Ptr<Bridging::BridgeVlanConfig> vc = config_->vlanConfigIs(vlan);
    std::set<Lomax::IntfId> members;
    for (const auto& m : v.members) {
      auto it = byIndex.find(m.ifindex);
      if (it == byIndex.end()) continue;
      members.insert(it->second);
      vc->intfIs(it->second)->taggedIs(m.tagged);
    }
    std::vector<Lomax::IntfId> gone;
    for (auto& m : vc->intfIter()) {
      if (!members.contains(m.key())) gone.push_back(m.key());
    }
    for (auto intf : gone) vc->intfDel(intf);
  }

  std::vector<Bridging::VlanId> vlansGone;
  for (auto& v : config_->vlanConfigIter()) {
    if (!vlans.contains(v.key())) vlansGone.push_back(v.key());
  }
  for (auto vlan : vlansGone) config_->vlanConfigDel(vlan);
  std::vector<Lomax::IntfId> portsGone;
  for (auto& p : config_->switchIntfConfigIter()) {
    if (!ports.contains(p.key())) portsGone.push_back(p.key());
  }
  for (auto intf : portsGone) config_->switchIntfConfigDel(intf);
}

}  // namespace Platform
