// A core of VLAN 10 on real entities, both timer wheels on the virtual clock, and a flooder that
// records what it is asked; frames come from the frame builders, as on the wire.
#pragma once

#include <vector>

#include <gtest/gtest.h>

#include "core/CoreSm.h"
#include "kernel/ActivityManager.h"
#include "kernel/TimerWheel.h"
#include "model/IgmpProtocolConfig.h"
#include "net/FrameBuilder.h"
#include "tests/support/Addr.h"
#include "tests/support/RecordingLogSink.h"

namespace CoreTest {

using namespace Bridging::IgmpSnooping;
using Lomax::IntfId;
using Lomax::IpAddr;

struct RecordingFlooder : IgmpSnoopingFlooder {
  RecordingFlooder() : IgmpSnoopingFlooder("recorder") {}
  void floodReqIs(Kiv::Ptr<IgmpSnoopingFloodReq> req) override { reqs.push_back(req); }
  std::vector<Kiv::Ptr<IgmpSnoopingFloodReq>> reqs;
};

inline constexpr auto ip = TestSupport::ipAddr;

class CoreHarness {
 public:
  static constexpr Kiv::Seconds start = 1000.0;

  CoreHarness() {
    contextConfig = protocolConfig->contextConfigIs(Bridging::VlanId(10));
    status = protocolStatus->contextStatusIs(Bridging::VlanId(10));
  }
  ~CoreHarness() {
    if (core) core->kivDoZombieReactors(true);
  }

  // Builds the core with these ports enabled.
  void startCore(std::initializer_list<const char*> ports = {"Ethernet1", "Ethernet2", "Ethernet3"}) {
    core = Kiv::make<CoreSm>(config, status, counterDir, contextConfig, profileConfig, wheel, wheel2);
    core->flooderIs(flooder);
    for (const char* p : ports) core->enabledIntfIs(IntfId(p), true);
    core->initializedIs(true);
  }
  // Hands a frame (Ethernet header first) to the core as the VLAN glue does.
  void rx(const char* port, Kiv::Ptr<Lomax::Pkt> frame) {
    frame->beginOffsetIs(14);
    core->doRxPkt(IntfId(port), frame, flooder);
  }
  void advance(Kiv::Seconds dt) { Kiv::activityManager()->advanceBy(dt); }
  Kiv::Seconds now() const { return Kiv::System::currentTime(); }

  Kiv::Ptr<IgmpMembership> membership(const char* group, const char* port, const char* reporter) const {
    auto g = status->group(ip(group));
    auto s = g ? g->intf(IntfId(port)) : nullptr;
    return s ? s->membership(ip(reporter)) : nullptr;
  }
  Kiv::Ptr<IgmpContextIntfCounter> counter(const char* port) const {
    return counterDir->intfCounter(IntfId(port).stringValue());
  }
  Kiv::Ptr<IgmpSnoopingFloodReq> lastFlood() const {
    return flooder->reqs.empty() ? nullptr : flooder->reqs.back();
  }
  size_t floods() const { return flooder->reqs.size(); }

  static Lomax::FrameBuilder host(const char* addr) {
    return Lomax::FrameBuilder(Lomax::EthAddr(0x0200, 0x0000, 0x0001), ip(addr));
  }

  Kiv::VirtualTime virtualTime{start};
  Kiv::Ptr<Bez::TimerWheel> wheel =
      Bez::TimerWheelIs(Kiv::ActivityManagerConfig::clock(), 100, 108200, true, 1024);
  Kiv::Ptr<Bez::TimerWheel> wheel2 =
      Bez::TimerWheelIs(Kiv::ActivityManagerConfig::clock(), 100, 108200, true, 1024);
  Kiv::Ptr<Config> config = Kiv::make<Config>("config");
  Kiv::Ptr<IgmpProtocolConfig> protocolConfig = Kiv::make<IgmpProtocolConfig>("protocolConfig");
  Kiv::Ptr<IgmpProtocolStatus> protocolStatus = Kiv::make<IgmpProtocolStatus>("protocolStatus");
  Kiv::Ptr<IgmpCounterDir> counterDir = Kiv::make<IgmpCounterDir>("counters");
  Kiv::Ptr<IgmpProfile::ProfileConfig> profileConfig = Kiv::make<IgmpProfile::ProfileConfig>("profiles");
  Kiv::Ptr<IgmpContextConfig> contextConfig;
  Kiv::Ptr<IgmpContextStatus> status;
  Kiv::Ptr<RecordingFlooder> flooder = Kiv::make<RecordingFlooder>();
  Kiv::Ptr<CoreSm> core;
};

}  // namespace CoreTest
