// The socket filter run by Linux on a real packet socket at one end of a veth pair, with frames sent
// from the other end: which kinds reach the socket and which the filter keeps out.
//
// Linux takes the outer 802.1Q tag off a received frame before packet sockets and their filters see
// it (the tag moves to the socket buffer's metadata). A singly tagged frame therefore meets the filter
// untagged and passes by its untagged branch, and a doubly tagged one meets it with its inner tag only:
// the tagged branch then accepts it, so on Linux a doubly tagged IGMP frame passes.
#include "glue/SocketFilter.h"

#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <sys/socket.h>

#include <memory>
#include <vector>

#include "net/FrameBuilder.h"
#include "platform/PacketAccess.h"
#include "tests/support/NetNs.h"
#include "tests/support/RawPort.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lomax::EthAddr;
using Lomax::IpAddr;

const EthAddr hostMac(0x0200, 0x0000, 0x0001);

Bytes bytesOf(const Kiv::Ptr<Lomax::Pkt>& p) { return Bytes(p->data(), p->data() + p->len()); }

Bytes igmpReport(IpAddr group, Bridging::VlanIdOrNone vlan = {}) {
  return bytesOf(Lomax::FrameBuilder(hostMac, IpAddr(10, 0, 0, 1), vlan).igmpV2Report(group));
}

// Ethernet to dst with this EtherType, then payload, padded to the minimum frame.
Bytes ethFrame(EthAddr dst, uint16_t ethType, const Bytes& payload) {
  Bytes f(std::max<size_t>(14 + payload.size(), 60));
  dst.bytesOut(f.data());
  hostMac.bytesOut(f.data() + 6);
  f[12] = static_cast<uint8_t>(ethType >> 8), f[13] = static_cast<uint8_t>(ethType);
  std::copy(payload.begin(), payload.end(), f.begin() + 14);
  return f;
}

// An IPv4 header for protocol proto to dst, and eight bytes behind it; no option, no checksum check.
Bytes ipv4Frame(EthAddr dst, uint8_t proto, IpAddr dstIp) {
  Bytes ip(28);
  ip[0] = 0x45, ip[3] = 28, ip[8] = 1, ip[9] = proto;
  IpAddr(10, 0, 0, 1).bytesOut(&ip[12]);
  dstIp.bytesOut(&ip[16]);
  return ethFrame(dst, 0x0800, ip);
}

Bytes withTag(Bytes f, uint16_t vid) {
  const uint8_t tag[4] = {0x81, 0x00, static_cast<uint8_t>(vid >> 8), static_cast<uint8_t>(vid)};
  f.insert(f.begin() + 12, tag, tag + 4);
  return f;
}

class SocketFilterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!TestNet::NetNs::unavailable().empty()) GTEST_SKIP() << TestNet::NetNs::unavailable();
    ns_ = std::make_unique<TestNet::NetNs>("filter");
    ASSERT_TRUE(ns_->ok());
    ASSERT_TRUE(ns_->ip("link add wire type veth peer name tap"));
    ASSERT_TRUE(ns_->ip("link set wire up") && ns_->ip("link set tap up"));
    wire_ = std::make_unique<TestNet::RawPort>(*ns_, "wire");
    tap_ = std::make_unique<TestNet::RawPort>(*ns_, "tap");
    other_ = std::make_unique<TestNet::RawPort>(*ns_, "tap");
    // The filter alone decides here, outgoing frames included.
    const int off = 0;
    ASSERT_EQ(setsockopt(tap_->fd(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &off, sizeof off), 0);
    Platform::PacketAccess::filterAttach(tap_->fd(), IgmpShim::SocketFilter::program);
    while (tap_->recv(0)) {
    }
  }

  // Sends each frame from the far end (or, when marked outgoing, out of the filtered interface from
  // another socket), then a report that passes; returns what the filtered socket got before it.
  std::vector<Bytes> passed(const std::vector<std::pair<Bytes, bool>>& frames) {
    for (const auto& [f, outgoing] : frames) EXPECT_TRUE((outgoing ? other_ : wire_)->send(f));
    const Bytes sentinel = igmpReport(IpAddr(239, 9, 9, 9));
    EXPECT_TRUE(wire_->send(sentinel));
    std::vector<Bytes> got;
    while (auto f = tap_->recv()) {
      if (*f == sentinel) return got;
      got.push_back(*f);
    }
    ADD_FAILURE() << "the last report never arrived";
    return got;
  }

  std::unique_ptr<TestNet::NetNs> ns_;
  std::unique_ptr<TestNet::RawPort> wire_, tap_, other_;
};

TEST_F(SocketFilterTest, ControlFramesToIpMulticastMacsPass) {
  const EthAddr allSystems(0x0100, 0x5e00, 0x0001);
  const std::vector<Bytes> pass = {
      igmpReport(IpAddr(239, 1, 1, 1)),
      bytesOf(Lomax::FrameBuilder(hostMac, IpAddr(10, 0, 0, 1)).pimV2Hello(105)),
      ipv4Frame(EthAddr(0x0100, 0x5e00, 0x00fb), 17, IpAddr(224, 0, 0, 251)),
      ethFrame(allSystems, 0x0801, Bytes(20, 0xab)),
      igmpReport(IpAddr(239, 1, 1, 2), Bridging::VlanIdOrNone(10)),
      withTag(igmpReport(IpAddr(239, 1, 1, 3), Bridging::VlanIdOrNone(20)), 10),
  };
  std::vector<std::pair<Bytes, bool>> sent;
  for (const Bytes& f : pass) sent.emplace_back(f, false);
  // Tags come back from the socket's ancillary data, so every frame reads as it was sent.
  EXPECT_EQ(passed(sent), pass);
}

TEST_F(SocketFilterTest, EverythingElseIsKeptOut) {
  Bytes unicastReport = igmpReport(IpAddr(239, 1, 1, 1));
  EthAddr(0x0200, 0x0000, 0x0002).bytesOut(unicastReport.data());
  Bytes wrongMacReport = igmpReport(IpAddr(239, 1, 1, 1));
  wrongMacReport[2] = 0x5f;
  const Bytes udpToGroup = ipv4Frame(EthAddr(0x0100, 0x5e01, 0x0101), 17, IpAddr(239, 1, 1, 1));
  const std::vector<std::pair<Bytes, bool>> frames = {
      {ethFrame(EthAddr(0x0100, 0x5e00, 0x0001), 0x0806, Bytes(28, 0)), false},
      {udpToGroup, false},
      {withTag(udpToGroup, 10), false},
      {withTag(withTag(udpToGroup, 20), 10), false},
      {unicastReport, false},
      {wrongMacReport, false},
      {ipv4Frame(EthAddr(0x0100, 0x5e00, 0x0001), 6, IpAddr(224, 1, 0, 1)), false},
      {igmpReport(IpAddr(239, 1, 1, 4)), true},
  };
  EXPECT_EQ(passed(frames), std::vector<Bytes>{});
  // The socket's own frames never come back to it, filter or not.
  EXPECT_TRUE(tap_->send(igmpReport(IpAddr(239, 1, 1, 5))));
  EXPECT_EQ(passed({}), std::vector<Bytes>{});
}

}  // namespace
