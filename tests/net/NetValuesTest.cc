// Addresses, VLAN numbers, checksums, the exponential code, and the IP to Ethernet group mapping.
#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "kernel/Exception.h"
#include "kernel/RingDecoder.h"
#include "kernel/Trace.h"
#include "net/AllowedTrafficDirection.h"
#include "net/EthAddr.h"
#include "net/IntfId.h"
#include "net/IpAddr.h"
#include "net/IpChecksum.h"
#include "net/IpToEthGroupMap.h"
#include "net/QQIC.h"
#include "net/VlanId.h"
#include "net/VlanIdOrNone.h"

namespace {

using Lomax::EthAddr;
using Lomax::IpAddr;

template <class T>
std::string streamed(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

template <class T>
T roundTripBinary(const T& v) {
  std::string out;
  Kiv::ValueTraits<T>::binary(out, v);
  std::string_view in(out);
  T back;
  EXPECT_TRUE(Kiv::ValueTraits<T>::fromBinary(in, back));
  EXPECT_TRUE(in.empty());
  return back;
}

TEST(VlanIdTest, RangesAndTexts) {
  EXPECT_THROW(Bridging::VlanId(0), Kiv::RangeException);
  EXPECT_THROW(Bridging::VlanId(4095), Kiv::RangeException);
  EXPECT_NO_THROW(Bridging::VlanId(1));
  EXPECT_NO_THROW(Bridging::VlanId(4094));
  try {
    Bridging::VlanId(4095);
  } catch (const Kiv::RangeException& e) {
    EXPECT_STREQ(e.what(), "VlanId::value < 1 or > 4094 not allowed");
  }
  EXPECT_NO_THROW(Bridging::VlanIdOrNone(0));
  try {
    Bridging::VlanIdOrNone(4095);
    ADD_FAILURE();
  } catch (const Kiv::RangeException& e) {
    EXPECT_STREQ(e.what(), "VlanIdOrNone::value > 4094 not allowed");
  }
  EXPECT_EQ(streamed(Bridging::VlanId(10)), "10");
  EXPECT_EQ(Kiv::ValueTraits<Bridging::VlanIdOrNone>::text(Bridging::VlanIdOrNone(0)), "0");
  EXPECT_LT(Bridging::VlanId(9), Bridging::VlanId(10));
  Bridging::VlanId v;
  EXPECT_FALSE(Kiv::ValueTraits<Bridging::VlanId>::fromText("4095", v));
  EXPECT_FALSE(Kiv::ValueTraits<Bridging::VlanId>::fromText("0", v));
  EXPECT_TRUE(Kiv::ValueTraits<Bridging::VlanId>::fromText("4094", v));
  EXPECT_EQ(roundTripBinary(v), v);
  EXPECT_EQ(streamed(Bridging::trafficDirectionTransmitOnly), "trafficDirectionTransmitOnly");
  EXPECT_EQ(Bridging::trafficDirectionTransmitOnly, 2);
}

TEST(IpAddrTest, TextOrderAndReservedBlock) {
  IpAddr a;
  EXPECT_EQ(a.stringValue().stdString(), "0.0.0.0");
  a.stringValueIs("10.0.0.10");
  EXPECT_EQ(a, IpAddr(10, 0, 0, 10));
  EXPECT_LT(IpAddr(10, 0, 0, 2), a);
  EXPECT_EQ(streamed(IpAddr(239, 255, 255, 250)), "239.255.255.250");
  for (const char* bad :
       {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", "+1.2.3.4", "1..2.3", "0001.2.3.4"})
    EXPECT_FALSE(IpAddr::parse(bad, a)) << bad;
  EXPECT_THROW(a.stringValueIs("x"), Kiv::RangeException);
  uint8_t wire[4] = {224, 0, 0, 22};
  EXPECT_EQ(IpAddr::fromBytes(wire), IpAddr(224, 0, 0, 22));
  EXPECT_TRUE(IpAddr(224, 0, 0, 255).isReservedMulticast());
  EXPECT_FALSE(IpAddr(224, 0, 1, 0).isReservedMulticast());
  EXPECT_FALSE(IpAddr(239, 0, 0, 1).isReservedMulticast());
  EXPECT_EQ(roundTripBinary(IpAddr(1, 2, 3, 4)), IpAddr(1, 2, 3, 4));
  EXPECT_NE(IpAddr(1, 2, 3, 4).hash(), IpAddr(4, 3, 2, 1).hash());
}

TEST(EthAddrTest, WordsTextAndGroupMapping) {
  EthAddr e;
  e.wordIs(0, 0x0100);
  e.wordIs(1, 0x5e00);
  e.wordIs(2, 0x0101);
  EXPECT_EQ(e.stringValue().stdString(), "01:00:5e:00:01:01");
  EXPECT_EQ(Bridging::IgmpSnooping::IpToEthGroupMap(IpAddr(224, 128, 1, 1)), e);
  EXPECT_EQ(Bridging::IgmpSnooping::IpToEthGroupMap(IpAddr(224, 0, 1, 1)), e);
  EXPECT_EQ(streamed(Bridging::IgmpSnooping::IpToEthGroupMap(IpAddr(239, 255, 255, 250))),
            "01:00:5e:7f:ff:fa");
  EthAddr parsed;
  ASSERT_TRUE(EthAddr::parse("02:0A:0b:00:00:ff", parsed));
  EXPECT_EQ(parsed, EthAddr(0x020a, 0x0b00, 0x00ff));
  EXPECT_FALSE(EthAddr::parse("02:0a:0b:00:00", parsed));
  EXPECT_FALSE(EthAddr::parse("02-0a-0b-00-00-ff", parsed));
  EXPECT_LT(EthAddr(0x0100, 0x5e00, 0x0001), EthAddr(0x0100, 0x5e00, 0x0002));
  EXPECT_EQ(roundTripBinary(e), e);
}

TEST(IpChecksumTest, Rfc1071ExampleOddLengthsAndVerification) {
  // The sum of RFC 1071's example bytes is 0xddf2; the checksum is its complement.
  uint8_t ex[] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
  EXPECT_EQ(Lomax::IpChecksum::of(ex, sizeof ex).value(), static_cast<uint16_t>(~0xddf2));
  // An odd tail counts as the high byte of a word.
  uint8_t odd[] = {0x12, 0x34, 0x56};
  EXPECT_EQ(Lomax::IpChecksum::of(odd, 3).value(), static_cast<uint16_t>(~(0x1234 + 0x5600)));
  // A header with its own checksum in place sums to the zero checksum.
  uint8_t hdr[] = {0x45, 0x00, 0x00, 0x1c, 0, 0, 0, 0, 1, 2, 0, 0, 10, 0, 0, 1, 224, 0, 0, 1};
  uint16_t c = Lomax::IpChecksum::of(hdr, sizeof hdr).value();
  hdr[10] = c >> 8, hdr[11] = c & 0xff;
  EXPECT_EQ(Lomax::IpChecksum::of(hdr, sizeof hdr), Lomax::zeroChecksum);
  EXPECT_EQ(Lomax::IpChecksum::of(nullptr, 0).value(), 0xffff);
  // Wide words and their carries agree with 16-bit words summed one by one, at every length and
  // alignment, and with bytes that make carries on every word.
  std::vector<uint8_t> bytes(300);
  uint32_t seed = 1;
  for (size_t round = 0; round < 3; ++round) {
    for (auto& b : bytes)
      b = round == 2 ? 0xff : static_cast<uint8_t>((seed = seed * 1103515245 + 12345) >> 16);
    for (size_t start = 0; start < 8; ++start) {
      for (size_t len = 0; start + len <= bytes.size(); ++len) {
        uint32_t sum = 0;
        for (size_t i = 0; i < len; i += 2)
          sum += uint32_t(bytes[start + i]) << 8 | (i + 1 < len ? bytes[start + i + 1] : 0);
        while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
        ASSERT_EQ(Lomax::IpChecksum::of(bytes.data() + start, len).value(), static_cast<uint16_t>(~sum))
            << "start " << start << " len " << len;
      }
    }
  }
}

TEST(RingArgTest, AddressesInterfacesAndVlansDecodeToTheirStreamText) {
  const IpAddr group(239, 1, 2, 3);
  const Lomax::IntfId intf(Kiv::String("Ethernet4/1"));
  const Lomax::IntfId other(Kiv::String("veth-h2"));
  const Bridging::VlanId vlan(42);
  const std::string text = "Group " + streamed(group) + " on " + streamed(intf) + " on Vlan " +
                           streamed(vlan) + " from " + streamed(IpAddr());
  // An interface's name is kept once per ring: a second ring must get it again.
  for (int ring = 0; ring < 2; ++ring) {
    Vellum::snoopVlHandle = Vellum::initialize_handle("NetValuesTest", std::vector<uint32_t>(10, 30));
    ASSERT_NE(Vellum::snoopVlHandle, nullptr);
    for (int i = 0; i < 2; ++i)
      KIV_RING(2, "Group " << group << " on " << intf << " on Vlan " << vlan << " from " << IpAddr());
    KIV_RING(2, other << " then " << intf);
    Vellum::RingDecoder d(
        {reinterpret_cast<const char*>(Vellum::snoopVlHandle->bytes()), Vellum::snoopVlHandle->size()});
    ASSERT_TRUE(d.ok()) << d.error();
    ASSERT_EQ(d.messages().size(), 3u);
    EXPECT_EQ(d.messages()[0].text, text);
    EXPECT_EQ(d.messages()[1].text, text);
    EXPECT_EQ(d.messages()[2].text, "veth-h2 then Ethernet4/1");
    delete Vellum::snoopVlHandle;
    Vellum::snoopVlHandle = nullptr;
  }
}

TEST(QQICTest, ExponentialFormDecodesAndEncodesEveryCode) {
  using Gmp::Igmp::QQIC;
  EXPECT_EQ(QQIC(127).seconds(), 127u);
  EXPECT_EQ(QQIC(0x80).seconds(), 128u);
  EXPECT_EQ(QQIC(0x8c).seconds(), 224u);
  EXPECT_EQ(QQIC(0xff).seconds(), 31744u);
  for (unsigned code = 0; code < 256; ++code) {
    EXPECT_EQ(QQIC::fromValue(QQIC::decode(static_cast<uint8_t>(code))).code(), code);
  }
  // Values between codes round down; above the range they stay at the largest.
  EXPECT_EQ(QQIC::fromValue(1000).seconds(), 992u);
  EXPECT_EQ(QQIC::fromValue(100000).code(), 0xff);
}

}  // namespace
