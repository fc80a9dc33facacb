// The ring trace: what is written decodes to the same text, rings wrap, torn slots are skipped.
#include "kernel/RingTrace.h"

#include <gtest/gtest.h>

#include "kernel/RingDecoder.h"
#include "kernel/TimeSource.h"
#include "kernel/Trace.h"

namespace Lab {

// A value type with its own compact ring form, found by argument-dependent lookup.
struct Mac {
  uint8_t b[6];
};
void ringArg(Vellum::Writer& w, const Mac& m) { w.eth(m.b); }

// A value type with only a stream form: it reaches the ring as text.
struct Port {
  int n;
};
std::ostream& operator<<(std::ostream& os, const Port& p) { return os << "Ethernet" << p.n; }

struct Verbose {};
std::ostream& operator<<(std::ostream& os, const Verbose&) { return os << std::string(300, 'v'); }

}  // namespace Lab

namespace {

Kiv::Seconds virtualNow = 1795323662.123456;
Kiv::Seconds now() { return virtualNow; }

class RingTraceTest : public ::testing::Test {
 protected:
  void SetUp() override { Kiv::timeSourceIs(&now); }
  void TearDown() override {
    closeRing();
    Kiv::timeSourceIs(nullptr);
  }
  void openRing(const std::vector<uint32_t>& sizes) {
    closeRing();
    Vellum::snoopVlHandle = Vellum::initialize_handle("IgmpSnoopingDetailed", sizes);
    ASSERT_NE(Vellum::snoopVlHandle, nullptr);
  }
  void closeRing() {
    delete Vellum::snoopVlHandle;
    Vellum::snoopVlHandle = nullptr;
  }
  std::string_view bytes() const {
    return {reinterpret_cast<const char*>(Vellum::snoopVlHandle->bytes()), Vellum::snoopVlHandle->size()};
  }
  std::vector<std::string> texts(std::string_view b) {
    Vellum::RingDecoder d(b);
    EXPECT_TRUE(d.ok()) << d.error();
    std::vector<std::string> out;
    for (const Vellum::RingMessage& m : d.messages()) out.push_back(m.text);
    return out;
  }
  std::vector<std::string> texts() { return texts(bytes()); }
};

const std::vector<uint32_t> tenBy30(10, 30);

TEST_F(RingTraceTest, EveryArgumentKindDecodesToItsText) {
  openRing(tenBy30);
  std::string name = "eth1";
  const char* runtime = "Po5";
  char buffer[16] = "veth-h1";
  Kiv::String shared("Vlan10");
  Lab::Mac mac{{0x01, 0x00, 0x5e, 0x00, 0x01, 0x01}};
  int line = __LINE__ + 1;
  KIV_RING(6, "New querier " << Vellum::Ipv4::fromOctets(10, 0, 0, 3) << " wins over "
                             << Vellum::Ipv4::fromOctets(0, 0, 0, 0));
  KIV_RING(2, "i" << -5 << " l" << int64_t{-1} << " u" << 7u << " U" << uint64_t{18446744073709551615ull}
                  << " d" << 2.5 << " b" << true << false << " c" << 'x' << " s" << name << ' ' << runtime
                  << ' ' << buffer << ' ' << shared << ' ' << std::string_view("sv") << " m" << mac << " p"
                  << Lab::Port{7});

  Vellum::RingDecoder d(bytes());
  ASSERT_TRUE(d.ok()) << d.error();
  EXPECT_EQ(d.name(), "IgmpSnoopingDetailed");
  ASSERT_EQ(d.messages().size(), 2u);
  EXPECT_EQ(Vellum::ringMessageLine(d.messages()[0]),
            "2026-11-22 05:01:02.123456 L6 RingTraceTest.cc:" + std::to_string(line) +
                " New querier 10.0.0.3 wins over 0.0.0.0");
  EXPECT_EQ(d.messages()[1].level, 2);
  EXPECT_EQ(d.messages()[1].text,
            "i-5 l-1 u7 U18446744073709551615 d2.5 btruefalse cx seth1 Po5 veth-h1 Vlan10 sv "
            "m01:00:5e:00:01:01 pEthernet7");
}

void traceValues(const char* who, int n) { KIV_RING(6, "reporter " << who << " count " << n); }

TEST_F(RingTraceTest, ASiteRegistersOnceWithEachRing) {
  openRing(tenBy30);
  char changing[8] = "a";
  for (int i = 0; i < 3; ++i) {
    changing[0] = static_cast<char>('a' + i);
    traceValues(changing, i);
  }
  EXPECT_EQ(texts(),
            (std::vector<std::string>{"reporter a count 0", "reporter b count 1", "reporter c count 2"}));
  openRing(tenBy30);
  traceValues("z", 9);
  EXPECT_EQ(texts(), std::vector<std::string>{"reporter z count 9"});
}

TEST_F(RingTraceTest, LongValuesAreCutNotOverrun) {
  EXPECT_EQ(Vellum::VlString(Lab::Verbose{}).view(), std::string(Vellum::VlString::capacity - 1, 'v'));
  EXPECT_EQ(Vellum::VlString(Lab::Port{3}).charPtr(), std::string("Ethernet3"));
  openRing(tenBy30);
  std::string big(300, 'q');
  KIV_RING(6, big << big << " tail " << 42 << " end");
  std::vector<std::string> t = texts();
  ASSERT_EQ(t.size(), 1u);
  // The first string fills the slot; what follows keeps its literal text, the values show as '?'.
  EXPECT_EQ(t[0], std::string(Vellum::layout::payloadCapacity - 1, 'q') + "? tail ? end");
}

TEST_F(RingTraceTest, RingsWrapAndLevelsMergeInWriteOrder) {
  // 1 KiB holds four slots; level 3 has none and drops its messages.
  openRing({1, 1, 0, 0});
  for (int i = 0; i < 10; ++i) {
    KIV_RING(0, "zero " << i);
    if (i % 3 == 0) KIV_RING(1, "one " << i);
    KIV_RING(3, "three " << i);
    virtualNow += 1;
  }
  EXPECT_EQ(texts(), (std::vector<std::string>{"one 0", "one 3", "zero 6", "one 6", "zero 7", "zero 8",
                                               "zero 9", "one 9"}));
}

TEST_F(RingTraceTest, TornAndForeignBytesAreSkipped) {
  openRing({1});
  for (int i = 0; i < 3; ++i) KIV_RING(0, "message " << i);
  std::string copy(bytes());
  // Slot 1 as a writer killed between the body and the commit leaves it: trailer zero.
  size_t slot1 = Vellum::layout::headerBytes + Vellum::layout::siteAreaBytes + Vellum::layout::slotBytes;
  std::fill_n(copy.begin() + slot1 + Vellum::layout::trailerOffset, 8, '\0');
  EXPECT_EQ(texts(copy), (std::vector<std::string>{"message 0", "message 2"}));

  EXPECT_FALSE(Vellum::RingDecoder(copy.substr(0, 100)).ok());
  EXPECT_FALSE(Vellum::RingDecoder(std::string(copy.size(), 'x')).ok());
  copy.resize(copy.size() - 1);
  EXPECT_FALSE(Vellum::RingDecoder(copy).ok());
}

TEST_F(RingTraceTest, ClosedRingEvaluatesNothing) {
  int evaluations = 0;
  auto counted = [&] { return ++evaluations; };
  KIV_RING(6, "x " << counted());
  EXPECT_EQ(evaluations, 0);
}

}  // namespace
