// igmpsnoop-replay on captures that the test writes with libpcap from the frame builders' frames.
#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "net/FrameBuilder.h"
#include "net/IgmpQuery.h"
#include "tests/support/Addr.h"
#include "tests/support/ToolRun.h"

namespace {

using Lomax::EthAddr;
using Lomax::FrameBuilder;
using Lomax::IpAddr;
using TestSupport::toolRun;

constexpr auto ip = TestSupport::ipAddr;

FrameBuilder host(uint16_t n, const char* addr, Bridging::VlanIdOrNone vlan = {}) {
  return FrameBuilder(EthAddr(0x0200, 0x0000, n), ip(addr), vlan);
}

class Capture {
 public:
  explicit Capture(std::string path) : path_(std::move(path)) {
    pcap_ = pcap_open_dead(DLT_EN10MB, 65535);
    dump_ = pcap_dump_open(pcap_, path_.c_str());
  }
  ~Capture() { close(); }
  void frame(double t, const Kiv::Ptr<Lomax::Pkt>& pkt) {
    pcap_pkthdr h{};
    h.ts.tv_sec = static_cast<time_t>(t);
    h.ts.tv_usec = static_cast<suseconds_t>((t - static_cast<double>(h.ts.tv_sec)) * 1e6);
    h.caplen = h.len = pkt->len();
    pcap_dump(reinterpret_cast<u_char*>(dump_), &h, pkt->data());
  }
  void close() {
    if (dump_) pcap_dump_close(dump_), dump_ = nullptr;
    if (pcap_) pcap_close(pcap_), pcap_ = nullptr;
  }

 private:
  std::string path_;
  pcap_t* pcap_ = nullptr;
  pcap_dumper_t* dump_ = nullptr;
};

class ReplayTest : public ::testing::Test {
 protected:
  ReplayTest() {
    char tmpl[] = "/tmp/replayXXXXXX";
    dir = mkdtemp(tmpl);
  }
  ~ReplayTest() override { std::filesystem::remove_all(dir); }
  // Two hosts join two groups, a querier and a PIM router speak, one host leaves (and the querier
  // asks after the group), the other goes silent and expires at 260 s (robustness 2 x 125 s + 10 s).
  std::string write(Bridging::VlanIdOrNone vlan = {}) {
    const std::string file = dir + "/c.pcap";
    Capture c(file);
    const double t0 = 1764000000;
    const FrameBuilder a = host(1, "10.0.0.1", vlan), b = host(2, "10.0.0.2", vlan),
                       rtr = host(9, "10.0.0.254", vlan);
    c.frame(t0, a.igmpV2Report(ip("239.1.1.1")));
    c.frame(t0 + 1, b.igmpV2Report(ip("239.3.3.3")));
    c.frame(t0 + 2, rtr.igmpQuery(Gmp::Igmp::IgmpQuery(Gmp::Igmp::igmpVersion2, 100, IpAddr())));
    c.frame(t0 + 3, rtr.pimV2Hello(105));
    c.frame(t0 + 10, b.igmpV2Leave(ip("239.3.3.3")));
    c.frame(t0 + 10.01, rtr.igmpQuery(Gmp::Igmp::IgmpQuery(Gmp::Igmp::igmpVersion2, 10, ip("239.3.3.3"))));
    c.frame(t0 + 300, host(3, "10.0.0.3", vlan).igmpV2Report(ip("239.2.2.2")));
    return file;
  }
  std::string dir;
};

TEST_F(ReplayTest, TimelineShowsJoinsLeavesExpiriesRoutersAndTheQuerier) {
  const auto r = toolRun("igmpsnoop-replay", {write(), "--port-by-mac"});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string& out = r.out;
  for (const char* line :
       {"2025-11-24 16:00:00.000  + vlan 1 member 239.1.1.1 02:00:00:00:00:01 10.0.0.1  v2 exclude\n",
        "2025-11-24 16:00:02.000    vlan 1 confident  no -> yes\n",
        "2025-11-24 16:00:02.000  + vlan 1 publish 239.1.1.1  02:00:00:00:00:01\n",
        "2025-11-24 16:00:02.000  + vlan 1 querier  10.0.0.254 on 02:00:00:00:00:09\n",
        "2025-11-24 16:00:03.000    vlan 1 router 10.0.0.254  on 02:00:00:00:00:09 (query) -> on "
        "02:00:00:00:00:09 (PIM)\n",
        // No report answers the querier's question within its last member query time.
        "2025-11-24 16:00:12.100  - vlan 1 member 239.3.3.3 02:00:00:00:00:02 10.0.0.2  v2 exclude  "
        "(expired)\n",
        // The PIM hello's hold time, 105 s.
        "2025-11-24 16:01:48.000  - vlan 1 router 10.0.0.254  on 02:00:00:00:00:09 (PIM)\n",
        "2025-11-24 16:04:20.000  - vlan 1 member 239.1.1.1 02:00:00:00:00:01 10.0.0.1  v2 exclude  "
        "(expired)\n",
        "2025-11-24 16:05:00.000  + vlan 1 member 239.2.2.2 02:00:00:00:00:03 10.0.0.3  v2 exclude\n",
        "7 frames replayed, 0 skipped\n"}) {
    EXPECT_NE(out.find(line), std::string::npos) << line << "in\n" << out;
  }
}

TEST_F(ReplayTest, FinalPrintsTheEndStateAsSnoopctlShowsGroups) {
  const std::string map = dir + "/ports";
  std::ofstream(map) << "# hosts\n02:00:00:00:00:03 Ethernet3\n02:00:00:00:00:09 Ethernet9\n";
  const auto r =
      toolRun("igmpsnoop-replay", {write(Bridging::VlanId(10)), "--vlan", "10", "--port", map, "--final"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "VLAN  Group      Type     Confident  Ports\n"
            "10    239.2.2.2  Dynamic  no         Et3\n");
  // Frames of another VLAN than the one asked for are skipped.
  const auto other = toolRun("igmpsnoop-replay", {write(Bridging::VlanId(10)), "--vlan", "20"});
  EXPECT_NE(other.out.find("0 frames replayed, 7 skipped"), std::string::npos) << other.out;
}

TEST_F(ReplayTest, BadInputIsOneClearLine) {
  const std::string junk = dir + "/junk.pcap";
  std::ofstream(junk) << "not a capture";
  auto r = toolRun("igmpsnoop-replay", {junk});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.rfind("igmpsnoop-replay: " + junk + ": ", 0), 0u) << r.err;
  r = toolRun("igmpsnoop-replay", {write(), "--port-by-mac", "--port", junk});
  EXPECT_EQ(r.status, 2);
  r = toolRun("igmpsnoop-replay", {"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("usage: igmpsnoop-replay", 0), 0u);
}

}  // namespace
