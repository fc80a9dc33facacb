// The collections: lookup, iteration that survives deletion under the iterator, bookmarks that start
// at a key's hash position, growth, and the ordered map.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "kernel/HashMap.h"
#include "kernel/RbTreeMap.h"

namespace {

struct Item : Kiv::PtrInterface, Kiv::HashLink<Item> {
  explicit Item(uint32_t k) : key(k) {}
  uint32_t key;
};
struct ItemKey {
  const uint32_t& operator()(const Item& i) const { return i.key; }
};
using Items = Kiv::HashMap<uint32_t, Item, ItemKey>;
// Eight buckets in the map itself before it takes an array of its own.
using InlineItems = Kiv::HashMap<uint32_t, Item, ItemKey, 3>;

template <class Map>
std::vector<uint32_t> keysOf(const Map& m) {
  std::vector<uint32_t> out;
  for (auto& i : m.iter()) out.push_back(i.key());
  return out;
}

// Every behaviour holds whether the first buckets live in the map or not.
template <class Map>
class HashMapTest : public ::testing::Test {};
using Maps = ::testing::Types<Items, InlineItems>;
TYPED_TEST_SUITE(HashMapTest, Maps);

TYPED_TEST(HashMapTest, FindsInsertsReplacesAndGrowsKeepingEveryElement) {
  TypeParam m;
  Items plain;
  for (uint32_t k = 0; k < 1000; ++k) {
    m.insert(k, Kiv::make<Item>(k));
    plain.insert(k, Kiv::make<Item>(k));
    // Walks run in the same order whatever the table's buckets and size, across every growth.
    if (k < 40) {
      ASSERT_EQ(keysOf(m), keysOf(plain)) << k;
    }
  }
  EXPECT_EQ(m.size(), 1000u);
  for (uint32_t k = 0; k < 1000; ++k) ASSERT_EQ(m.find(k)->key, k);
  EXPECT_EQ(m.find(1000), nullptr);
  auto replacement = Kiv::make<Item>(7);
  Kiv::Ptr<Item> old = m.insert(7, replacement);
  EXPECT_EQ(old->key, 7u);
  EXPECT_EQ(m.find(7), replacement.ptr());
  std::vector<uint32_t> keys = keysOf(m);
  EXPECT_EQ(std::set<uint32_t>(keys.begin(), keys.end()).size(), 1000u);
}

// Lookup picks the bucket from the hash's low bits by table; it must agree with the full reversal that
// orders the chains, or a lookup would miss what an insert filed.
TEST(HashBucketTest, BucketOfALookupIsTheTopOfTheReversedHash) {
  uint64_t x = 0x9e3779b97f4a7c15ull;
  for (int i = 0; i < 1000; ++i) {
    x = Kiv::mixHash(x + i);
    for (unsigned bits = 1; bits <= 64; ++bits) {
      ASSERT_EQ(Kiv::detail::reverseLowBits(x, bits), Kiv::detail::reverseBits(x) >> (64 - bits)) << bits;
    }
  }
}

TEST(HashMapDeathTest, KeyMustMatchTheValue) {
  Items m;
  EXPECT_DEATH(m.insert(1, Kiv::make<Item>(2)), "fwkKey\\(\\) == KeyFunktor\\(\\)\\( _value \\)");
}

TYPED_TEST(HashMapTest, DeletingTheCurrentElementThenAdvancingYieldsItsSuccessor) {
  TypeParam m;
  for (uint32_t k = 0; k < 64; ++k) m.insert(k, Kiv::make<Item>(k));
  std::vector<uint32_t> order = keysOf(m);
  std::vector<uint32_t> visited;
  for (auto it = m.begin(); it; ++it) {
    visited.push_back(it.key());
    Kiv::Ptr<Item> gone = m.take(it.key());
    EXPECT_EQ(it.ptr(), gone.ptr());      // still held by the iterator
    EXPECT_FALSE(it.currNodeNonStale());  // and known to be stale
    // Insertions during the walk may or may not be visited, but never break it.
    if (it.key() % 8 == 0) m.insert(it.key() + 1000, Kiv::make<Item>(it.key() + 1000));
  }
  for (size_t i = 0; i < order.size(); ++i)
    EXPECT_EQ(std::count(visited.begin(), visited.end(), order[i]), 1);
}

TYPED_TEST(HashMapTest, BookmarkRestartsAtTheKeysPositionEvenWhenTheKeyIsGone) {
  TypeParam m;
  for (uint32_t k = 0; k < 100; ++k) m.insert(k, Kiv::make<Item>(k));
  std::vector<uint32_t> order = keysOf(m);
  uint32_t bookmark = order[40];
  EXPECT_EQ(m.startAtHash(bookmark).key(), bookmark);
  m.take(bookmark);
  // Grow the table meanwhile: positions are orders of the reversed hash, independent of the size.
  for (uint32_t k = 1000; k < 1400; ++k) m.insert(k, Kiv::make<Item>(k));
  std::vector<uint32_t> rest;
  for (auto it = m.startAtHash(bookmark); it; ++it) {
    if (it.key() < 100) rest.push_back(it.key());
  }
  EXPECT_EQ(rest, std::vector<uint32_t>(order.begin() + 41, order.end()));
}

TEST(HashMap2018Test, ValuesWithStaleDetection) {
  Kiv::HashMap2018<uint32_t, double> m;
  EXPECT_TRUE(m.set(1, 1.5));
  EXPECT_FALSE(m.set(1, 1.5));
  EXPECT_TRUE(m.set(1, 2.5));
  for (uint32_t k = 2; k < 20; ++k) m.set(k, k);
  EXPECT_EQ(*m.find(1), 2.5);
  EXPECT_EQ(m.find(99), nullptr);
  size_t n = 0;
  for (auto it = m.begin(); it; ++it) {
    ASSERT_NE(it.value(), nullptr);
    m.erase(it.key());
    EXPECT_EQ(it.value(), nullptr);
    ++n;
  }
  EXPECT_EQ(n, 19u);
  EXPECT_TRUE(m.empty());
}

TEST(RbTreeMapTest, OrderedWalkSurvivesDeletionAndStartsFromAKey) {
  Kiv::RbTreeMap<uint32_t, bool> m;
  for (uint32_t k : {30u, 10u, 20u, 50u, 40u}) m.set(k, true);
  std::vector<uint32_t> seen;
  for (auto it = m.begin(); it; ++it) {
    seen.push_back(it.key());
    if (it.key() == 20) m.erase(20), m.erase(30);
  }
  EXPECT_EQ(seen, (std::vector<uint32_t>{10, 20, 40, 50}));
  EXPECT_EQ(m.lowerBound(41).key(), 50u);
  EXPECT_FALSE(m.lowerBound(51));
}

}  // namespace
