// The hash table under HashMap and HashMap2018: a power-of-two bucket array indexed by the top bits
// of the bit-reversed key hash, each chain kept sorted by that reversed hash. Iteration therefore runs
// in reversed-hash order whatever the table's size, which is what makes a bookmark (a key) meaningful:
// a walk restarted from a key continues with whatever follows that key's position, even if the key has
// gone or the table has grown. Lookup hashes and never allocates.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "kernel/Value.h"

namespace Kiv::detail {

// The bits of each byte in reverse order.
inline constexpr struct ReversedBytes {
  uint8_t of[256];
  constexpr ReversedBytes() : of() {
    for (unsigned b = 0; b < 256; ++b) {
      unsigned r = 0;
      for (unsigned i = 0; i < 8; ++i) r |= ((b >> i) & 1u) << (7 - i);
      of[b] = static_cast<uint8_t>(r);
    }
  }
} reversedBytes;

inline uint64_t reverseBits(uint64_t x) {
  x = ((x >> 1) & 0x5555555555555555ull) | ((x & 0x5555555555555555ull) << 1);
  x = ((x >> 2) & 0x3333333333333333ull) | ((x & 0x3333333333333333ull) << 2);
  x = ((x >> 4) & 0x0f0f0f0f0f0f0f0full) | ((x & 0x0f0f0f0f0f0f0f0full) << 4);
  return __builtin_bswap64(x);
}

inline uint64_t reverseLowBitsWide(uint64_t x, unsigned bits) {
  if (bits <= 16)
    return (uint64_t{reversedBytes.of[x & 0xff]} << 8 | reversedBytes.of[x >> 8 & 0xff]) >> (16 - bits);
  return reverseBits(x) >> (64 - bits);
}
// The low `bits` bits of x in reverse order, that is reverseBits(x) >> (64 - bits) for bits in 1..64:
// a byte table, so that a small table's bucket costs one lookup, inline, and one of up to 65,536
// buckets two.
[[gnu::always_inline]] inline uint64_t reverseLowBits(uint64_t x, unsigned bits) {
  if (bits <= 8) [[likely]]
    return reversedBytes.of[x & 0xff] >> (8 - bits);
  return reverseLowBitsWide(x, bits);
}

// Node must provide: Node* kivNext, and Ops::key(node), Ops::release(node) (drops the table's hold).
// The table keeps its first 2^InlineLog2 buckets inline (one by default), so a small table costs no
// bucket allocation, and a lookup in it reads no bucket array elsewhere in memory. The inline buckets
// fill to two per bucket before the table moves to an array of its own.
template <class Node, class Key, class Ops, uint8_t InlineLog2 = 0>
class HashTable {
 public:
  HashTable() = default;
  HashTable(const HashTable&) = delete;
  HashTable& operator=(const HashTable&) = delete;
  ~HashTable() {
    clear();
    if (log2_ > InlineLog2) delete[] many_;
  }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  uint32_t version() const { return version_; }

  static uint64_t order(const Key& k) { return reverseBits(hashOf(k)); }

  Node* find(const Key& k) const {
    if (!size_) return nullptr;
    // Only the bucket is needed, not the whole reversed hash.
    Node* n = buckets()[log2_ ? reverseLowBits(hashOf(k), log2_) : 0];
    for (; n; n = n->kivNext) {
      if (Ops::key(n) == k) return n;
    }
    return nullptr;
  }

  // Starts loading the first node of each bucket while the buckets are the table's own few: for a
  // caller about to look up most of a small table's keys.
  void prefetch() const {
    if (log2_ > InlineLog2) return;
    for (Node* n : inline_) {
      if (n) __builtin_prefetch(n);
    }
  }

  // Links a node whose key is absent.
  void insert(Node* n) {
    if (size_ + 1 > capacity() << (InlineLog2 && log2_ == InlineLog2)) grow();
    uint64_t o = order(Ops::key(n));
    Node** link = &slot(o);
    while (*link && order(Ops::key(*link)) <= o) link = &(*link)->kivNext;
    n->kivNext = *link;
    *link = n;
    ++size_;
    ++version_;
  }

  // Unlinks the node of key k and returns it (the caller takes over the table's hold), or null.
  Node* unlink(const Key& k) {
    if (!size_) return nullptr;
    for (Node** link = &slot(order(k)); *link; link = &(*link)->kivNext) {
      if (Ops::key(*link) == k) {
        Node* n = *link;
        *link = n->kivNext;
        n->kivNext = nullptr;
        --size_;
        ++version_;
        return n;
      }
    }
    return nullptr;
  }

  void clear() {
    if (!size_) return;
    size_t nb = capacity();
    Node** b = buckets();
    for (size_t i = 0; i < nb; ++i) {
      Node* n = b[i];
      b[i] = nullptr;
      while (n) {
        Node* next = n->kivNext;
        n->kivNext = nullptr;
        Ops::release(n);
        n = next;
      }
    }
    size_ = 0;
    ++version_;
  }

  // The first node at or after order o (inclusive when inclusive is set), or null.
  Node* firstFrom(uint64_t o, bool inclusive) const {
    if (!size_) return nullptr;
    size_t nb = capacity();
    size_t i = index(o);
    for (Node* n = buckets()[i]; n; n = n->kivNext) {
      uint64_t no = order(Ops::key(n));
      if (no > o || (inclusive && no == o)) return n;
    }
    for (++i; i < nb; ++i) {
      if (Node* n = buckets()[i]) return n;
    }
    return nullptr;
  }
  Node* first() const { return firstFrom(0, true); }
  // Successor of a node that is still linked.
  Node* next(const Node* n) const {
    if (n->kivNext) return n->kivNext;
    size_t nb = capacity();
    for (size_t i = index(order(Ops::key(n))) + 1; i < nb; ++i) {
      if (Node* m = buckets()[i]) return m;
    }
    return nullptr;
  }

 private:
  size_t capacity() const { return size_t(1) << log2_; }
  Node** buckets() const { return log2_ > InlineLog2 ? many_ : const_cast<Node**>(inline_); }
  size_t index(uint64_t o) const { return log2_ ? size_t(o >> (64 - log2_)) : 0; }
  Node*& slot(uint64_t o) { return buckets()[index(o)]; }
  Node* bucket(uint64_t o) const { return buckets()[index(o)]; }

  void grow() {
    uint8_t newLog2 = log2_ + 1;
    size_t nb = size_t(1) << newLog2;
    Node** fresh = new Node*[nb]();
    // Walking in order and appending keeps every chain sorted.
    Node** last = nullptr;
    size_t lastIdx = nb;
    for (Node* n = first(); n;) {
      Node* following = next(n);
      size_t i = size_t(order(Ops::key(n)) >> (64 - newLog2));
      if (i != lastIdx) last = &fresh[i], lastIdx = i;
      n->kivNext = nullptr;
      *last = n;
      last = &n->kivNext;
      n = following;
    }
    if (log2_ > InlineLog2) delete[] many_;
    many_ = fresh;
    log2_ = newLog2;
  }

  // Ahead of the buckets: a lookup reads the size and the bucket count, then a bucket, which in a
  // small table then lie in one or two neighbouring cache lines.
  uint32_t size_ = 0;
  uint8_t log2_ = InlineLog2;
  uint32_t version_ = 0;
  union {
    Node* inline_[size_t(1) << InlineLog2] = {};
    Node** many_;
  };
};

}  // namespace Kiv::detail
