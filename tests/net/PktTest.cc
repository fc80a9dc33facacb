// Packets: the span and its bound, shallow copies, pooled storage, the text form, and 802.1Q tags.
#include <gtest/gtest.h>

#include <vector>

#include "net/Pkt.h"
#include "net/PktVlanTag.h"

namespace {

using Lomax::globalPktManager;
using Lomax::Pkt;

std::vector<uint8_t> frameOf(size_t len) {
  std::vector<uint8_t> f(len);
  for (size_t i = 0; i < len; ++i) f[i] = static_cast<uint8_t>(i);
  return f;
}

TEST(PktTest, SpanOffsetsAndBytes) {
  auto f = frameOf(60);
  Kiv::Ptr<Pkt> p = globalPktManager().newPkt(f);
  EXPECT_EQ(p->len(), 60);
  p->beginOffsetIs(14);
  EXPECT_EQ(p->offsetBytes(), 46u);
  EXPECT_EQ(p->offsetFront()[0], 14);
  p->endOffsetInc(6);
  p->beginOffsetInc(2);
  EXPECT_EQ(p->offsetBytes(), 38u);
  // Fuzz and sanitizer builds hold each frame in storage of exactly its size.
  EXPECT_EQ(p->bytes(), Pkt::Manager::exactStorage ? Pkt::Manager::standardHeadroom + 60
                                                   : Pkt::Manager::standardStorageBytes);
  // Negative offsets reach into the room in front of the frame, no further.
  p->beginOffsetIs(-4);
  EXPECT_EQ(p->offsetBytes(), 58u);
}

TEST(PktDeathTest, SpanPastTheEndEndsTheProcess) {
  auto f = frameOf(60);
  Kiv::Ptr<Pkt> p = globalPktManager().newPkt(f);
  p->beginOffsetIs(50);
  EXPECT_DEATH(p->endOffsetInc(11), "Assertion `checkOffsetBounds\\(\\)' failed");
  EXPECT_DEATH(p->beginOffsetIs(-1000), "checkOffsetBounds\\(\\)");
}

TEST(PktTest, ShallowCopySharesBytesUntilOneIsChangedInPlace) {
  auto f = frameOf(64);
  f[12] = 0x81, f[13] = 0x00, f[14] = 0x00, f[15] = 0x0a;
  Kiv::Ptr<Pkt> p = globalPktManager().newPkt(f);
  p->beginOffsetIs(18);
  Kiv::Ptr<Pkt> c = globalPktManager().newShallowCopy(p);
  EXPECT_EQ(c->data(), p->data());
  EXPECT_EQ(c->beginOffset(), 18);
  EXPECT_TRUE(p->isShared());
  c->beginOffsetIs(0);
  EXPECT_EQ(p->beginOffset(), 18);

  ASSERT_TRUE(Lomax::stripPktVlanTag(c));
  EXPECT_NE(c->data(), p->data());
  EXPECT_EQ(Lomax::vlanIdFromEthPkt(p), 10);
  EXPECT_EQ(Lomax::vlanIdFromEthPkt(c), 0);
  EXPECT_EQ(c->len(), 60);
  EXPECT_EQ(std::vector<uint8_t>(c->data(), c->data() + 12), std::vector<uint8_t>(f.begin(), f.begin() + 12));
  EXPECT_EQ(std::vector<uint8_t>(c->data() + 12, c->data() + 60),
            std::vector<uint8_t>(f.begin() + 16, f.end()));
  EXPECT_FALSE(Lomax::stripPktVlanTag(c));

  Lomax::insertPktVlanTag(c, Bridging::VlanId(4094));
  EXPECT_EQ(Lomax::vlanIdFromEthPkt(c), 4094);
  f[14] = 0x0f, f[15] = 0xfe;
  EXPECT_EQ(std::vector<uint8_t>(c->data(), c->data() + c->len()), f);
}

TEST(PktTest, FreedStorageIsReused) {
  if (Pkt::Manager::exactStorage) GTEST_SKIP() << "storage is exact and unpooled in this build";
  Pkt::Manager& m = globalPktManager();
  auto f = frameOf(100);
  { Kiv::Ptr<Pkt> warm = m.newPkt(f); }
  size_t allocated = m.storagesAllocated();
  size_t pooled = m.pooledStorages();
  for (int i = 0; i < 100; ++i) {
    Kiv::Ptr<Pkt> p = m.newPkt(f);
    Kiv::Ptr<Pkt> c = m.newShallowCopy(p);
  }
  EXPECT_EQ(m.storagesAllocated(), allocated);
  EXPECT_EQ(m.pooledStorages(), pooled);
  // Frames too large for standard storage get their own, which goes back to the allocator.
  auto jumbo = frameOf(9000);
  {
    Kiv::Ptr<Pkt> p = m.newPkt(jumbo);
    EXPECT_EQ(p->len(), 9000);
    EXPECT_EQ(m.storagesAllocated(), allocated + 1);
  }
  EXPECT_EQ(m.storagesAllocated(), allocated);
}

TEST(PktTest, TextFormRoundTripsExactly) {
  auto f = frameOf(61);
  Kiv::Ptr<Pkt> p = globalPktManager().newPkt(f);
  p->beginOffsetIs(34);
  p->endOffsetInc(5);
  Kiv::String text = p->stringValue();
  EXPECT_EQ(text.stdString().substr(0, 26), "begin=34 end=5 bytes=00010");

  Kiv::Ptr<Pkt> q = globalPktManager().newPkt();
  ASSERT_TRUE(q->stringValueIs(text, true));
  EXPECT_EQ(q->stringValue(), text);
  if (Pkt::Manager::exactStorage) {
    EXPECT_EQ(q->bytes(), Pkt::Manager::standardHeadroom + 61);
  }
  EXPECT_EQ(std::vector<uint8_t>(q->data(), q->data() + q->len()), f);

  Kiv::Ptr<Pkt> whole = globalPktManager().newShallowCopy(q);
  ASSERT_TRUE(whole->stringValueIs(text, false));
  EXPECT_EQ(whole->beginOffset(), 0);
  EXPECT_EQ(whole->offsetBytes(), 61u);
  EXPECT_EQ(q->beginOffset(), 34);

  for (const char* bad : {"", "begin=1 end=0 bytes=0", "begin=1 end=0 bytes=zz", "begin=9 end=0 bytes=00",
                          "begin=0 end=0", "begin=x end=0 bytes="}) {
    EXPECT_FALSE(q->stringValueIs(bad, true)) << bad;
  }
  EXPECT_EQ(q->stringValue(), text);
}

}  // namespace
