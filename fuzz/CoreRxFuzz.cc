// Fuzzes the core's whole receive path: arbitrary bytes as the IP packet (any version, header length and
// total length) into a core that holds groups, a querier and routers, on the virtual clock. Nothing may
// crash, and every packet must leave its mark on the interface's counters.
//
// Input: a sequence of packets, each [flags][length: 2][IP packet: length bytes]. Flags bit 0 asks for the
// IGMP or PIM checksum to be made right over the length the IP header gives, when the header holds one;
// bits 1-2 choose the port, bits 3-7 the seconds to advance before the packet.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <vector>

#include "core/CoreSm.h"
#include "kernel/ActivityManager.h"
#include "model/IgmpProtocolConfig.h"
#include "net/IpHdr.h"
#include "net/MessageHdr.h"

namespace {

using namespace Bridging::IgmpSnooping;

uint64_t counterSum(const IgmpContextIntfCounter& c) {
  uint64_t sum = 0;
  for (const Kiv::AttrInfo& a : c.typeInfo().attrs) sum += std::strtoull(a.text(c).c_str(), nullptr, 10);
  return sum;
}

struct World {
  World() {
    contextConfig = protocolConfig->contextConfigIs(Bridging::VlanId(10));
    contextConfig->maxGroupsIs(64);
    status = protocolStatus->contextStatusIs(Bridging::VlanId(10));
    core = Kiv::make<CoreSm>(config, status, counterDir, contextConfig, profileConfig, wheel, wheel);
    core->flooderIs(flooder);
    for (const Lomax::IntfId& p : ports) core->enabledIntfIs(p, true);
    core->initializedIs(true);
  }
  ~World() { core->kivDoZombieReactors(true); }

  Kiv::VirtualTime virtualTime{1000.0};
  Kiv::Ptr<Bez::TimerWheel> wheel =
      Bez::TimerWheelIs(Kiv::ActivityManagerConfig::clock(), 100, 108200, true, 1024);
  Kiv::Ptr<Config> config = Kiv::make<Config>("config");
  Kiv::Ptr<IgmpProtocolConfig> protocolConfig = Kiv::make<IgmpProtocolConfig>("protocolConfig");
  Kiv::Ptr<IgmpProtocolStatus> protocolStatus = Kiv::make<IgmpProtocolStatus>("protocolStatus");
  Kiv::Ptr<IgmpCounterDir> counterDir = Kiv::make<IgmpCounterDir>("counters");
  Kiv::Ptr<IgmpProfile::ProfileConfig> profileConfig = Kiv::make<IgmpProfile::ProfileConfig>("profiles");
  Kiv::Ptr<IgmpSnoopingFlooder> flooder = Kiv::make<IgmpSnoopingFlooder>("flooder");
  Kiv::Ptr<IgmpContextConfig> contextConfig;
  Kiv::Ptr<IgmpContextStatus> status;
  Kiv::Ptr<CoreSm> core;
  const Lomax::IntfId ports[4] = {Lomax::IntfId("Ethernet1"), Lomax::IntfId("Ethernet2"),
                                  Lomax::IntfId("Ethernet3"), Lomax::switchIntfId()};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  World world;
  size_t at = 0;
  while (size - at >= 3) {
    const uint8_t flags = data[at];
    const size_t len = std::min<size_t>(size_t{data[at + 1]} << 8 | data[at + 2], size - at - 3);
    const uint8_t* packet = data + at + 3;
    Lomax::IntfId port = world.ports[(flags >> 1) & 3];
    Kiv::activityManager()->advanceBy(flags >> 3);

    std::vector<uint8_t> frame(14 + len);
    frame[12] = 0x08;
    std::copy(packet, packet + len, frame.data() + 14);
    if (flags & 1) {
      const std::optional<Lomax::IpHdr> ip = Lomax::IpHdr::of(frame.data() + 14, static_cast<uint32_t>(len));
      const uint32_t message = ip ? ip->payloadLen() : 0;
      if (ip && ip->headerBytes() + message <= len) {
        if (auto m = Lomax::MessageHdr::of(frame.data() + 14 + ip->headerBytes(), message))
          m->doChecksumUpdate(message);
      }
    }

    Kiv::Ptr<Lomax::Pkt> pkt = Lomax::globalPktManager().newPkt(frame);
    pkt->beginOffsetIs(14);
    Kiv::Ptr<IgmpContextIntfCounter> counter = world.counterDir->intfCounter(port.stringValue());
    const uint64_t before = counterSum(*counter);
    world.core->doRxPkt(port, pkt, world.flooder);
    if (counterSum(*counter) <= before) std::abort();
    at += 3 + len;
  }
  // Let every timer the packets set run out.
  Kiv::activityManager()->advanceBy(100000.0);
  return 0;
}
