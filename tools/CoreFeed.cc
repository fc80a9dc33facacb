// The cores of the VLANs, fed directly.
#include "tools/CoreFeed.h"

#include <cstring>

#include "kernel/ActivityManager.h"

namespace Tools {

using namespace Bridging::IgmpSnooping;

class CoreFeed::CountingFlooder : public IgmpSnoopingFlooder {
 public:
  CountingFlooder() : IgmpSnoopingFlooder("coreFeed") {}
  void floodReqIs(Kiv::Ptr<IgmpSnoopingFloodReq>) override { pktCountInc(); }
};

CoreFeed::CoreFeed(const IgmpSnoopingAgent::AgentMounts& mounts, Kiv::Ptr<Bez::TimerWheel> timerWheel)
    : mounts_(mounts),
      timerWheel_(std::move(timerWheel)),
      timerWheel2_(Bez::TimerWheelIs(Kiv::ActivityManagerConfig::clock(), 100, 108200, true, 1024)),
      flooder_(Kiv::make<CountingFlooder>()) {}

CoreFeed::~CoreFeed() {
  for (auto& [vlan, core] : cores_) core->kivDoZombieReactors(true);
}

Kiv::Ptr<CoreSm> CoreFeed::core(Bridging::VlanId vlan) const {
  auto it = cores_.find(vlan);
  return it == cores_.end() ? nullptr : it->second;
}

void CoreFeed::portIs(Bridging::VlanId vlan, Lomax::IntfId intf, bool enabled) {
  Kiv::Ptr<CoreSm>& core = cores_[vlan];
  if (!core) {
    auto contextConfig = mounts_.protocolConfig->contextConfigIs(vlan);
    auto status = mounts_.protocolStatus->contextStatusIs(vlan);
    core = Kiv::make<CoreSm>(mounts_.config, status, mounts_.counterDir, contextConfig, mounts_.profileConfig,
                             timerWheel_, timerWheel2_);
    core->flooderIs(flooder_);
    core->enabledIntfIs(intf, enabled);
    core->initializedIs(true);
    return;
  }
  core->enabledIntfIs(intf, enabled);
}

void CoreFeed::rxFrame(Bridging::VlanId vlan, Lomax::IntfId intf, const Kiv::Ptr<Lomax::Pkt>& frame) {
  Kiv::Ptr<CoreSm> c = core(vlan);
  if (!c || !c->enabledIntf(intf)) {
    portIs(vlan, intf, true);
    c = core(vlan);
  }
  frame->beginOffsetIs(14);
  c->doRxPkt(intf, frame, flooder_);
}

bool CoreFeed::untag(const Kiv::Ptr<Lomax::Pkt>& frame, Bridging::VlanId untaggedVlan,
                     Bridging::VlanId& vlan) {
  if (frame->len() < 14) return false;
  uint8_t* d = frame->data();
  if (d[12] != 0x81 || d[13] != 0x00) {
    vlan = untaggedVlan;
    return true;
  }
  if (frame->len() < 18) return false;
  const unsigned vid = (d[14] & 0x0f) << 8 | d[15];
  if (!Bridging::VlanId::isValid(vid)) return false;
  vlan = Bridging::VlanId(static_cast<uint16_t>(vid));
  std::memmove(d + 12, d + 16, frame->len() - 16);
  frame->lenIs(static_cast<uint16_t>(frame->len() - 4));
  return true;
}

}  // namespace Tools
