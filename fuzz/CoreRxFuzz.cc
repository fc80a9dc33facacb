// Fuzzes the core's whole receive path: arbitrary bytes as the payload of an IGMP or PIM packet, into a
// core that holds groups, a querier and routers, on the virtual clock. Nothing may crash, and every
// packet must leave its mark on the interface's counters.
//
// Input: a sequence of packets, each [flags][source: 4][total-length delta][length][payload...]:
// flags bit 0 chooses PIM, bits 1-2 the port, bits 3-7 the seconds to advance before the packet.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "core/CoreSm.h"
#include "kernel/ActivityManager.h"
#include "model/IgmpProtocolConfig.h"
#include "net/IpHdr.h"

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
    core = new CoreSm(config, status, counterDir, contextConfig, profileConfig, wheel, wheel);
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
  while (size - at >= 7) {
    const uint8_t flags = data[at];
    const uint8_t lenDelta = data[at + 5];
    const size_t len = std::min<size_t>(data[at + 6], size - at - 7);
    const uint8_t* payload = data + at + 7;
    Lomax::IntfId port = world.ports[(flags >> 1) & 3];
    Kiv::activityManager()->advanceBy(flags >> 3);

    // Ethernet header, then a sound IP header whose total length the input may bend by a little.
    std::vector<uint8_t> frame(14 + 20 + len);
    frame[12] = 0x08;
    uint8_t* ip = frame.data() + 14;
    ip[0] = 0x45;
    const int total = int(20 + len) + int(int8_t(lenDelta)) / 8;
    const uint16_t totalLen = static_cast<uint16_t>(std::max(20, total));
    ip[2] = static_cast<uint8_t>(totalLen >> 8), ip[3] = static_cast<uint8_t>(totalLen);
    ip[8] = 1;
    ip[9] = (flags & 1) ? Lomax::ipProtocolPim : Lomax::ipProtocolIgmp;
    std::copy(data + at + 1, data + at + 5, ip + 12);
    ip[16] = 224, ip[19] = 1;
    std::copy(payload, payload + len, ip + 20);
    Lomax::IpHdr(ip).doChecksumUpdate();

    Kiv::Ptr<Lomax::Pkt> pkt = Lomax::globalPktManager().newPkt(frame);
    pkt->beginOffsetIs(14);
    Kiv::Ptr<IgmpContextIntfCounter> counter = world.counterDir->intfCounter(port.stringValue());
    const uint64_t before = counterSum(*counter);
    world.core->doRxPkt(port, pkt, world.flooder);
    if (counterSum(*counter) <= before) std::abort();
    at += 7 + len;
  }
  // Let every timer the packets set run out.
  Kiv::activityManager()->advanceBy(100000.0);
  return 0;
}
