// Unordered collections. HashMap chains the values themselves (each holds its key and next link;
// used for state machines and entities); HashMap2018 keeps plain values in nodes of its own.
// Iterators keep the current key and survive any change to the map: deleting the element under an
// iterator and then advancing yields the element that followed it.
#pragma once

#include <utility>

#include "kernel/Exception.h"
#include "kernel/HashTable.h"
#include "kernel/Ptr.h"

namespace Kiv {

// Base of an object that can live in one HashMap: its chain link.
template <class Self>
struct HashLink {
  Self* kivNext = nullptr;
};

namespace detail {

template <class Table, class Node, class Key, class Ops>
class HashIterBase {
 public:
  HashIterBase() = default;
  HashIterBase(const Table* t, Node* n) : table_(t), node_(n), version_(t->version()) {
    if (n) key_ = Ops::key(n);
  }
  explicit operator bool() const { return node_ != nullptr; }
  bool done() const { return node_ == nullptr; }
  const Key& key() const { return key_; }
  // True when the map changed since the iterator last looked, so its element may be gone.
  bool currNodeMaybeStale() const { return table_ && table_->version() != version_; }
  void advance() {
    if (!node_) return;
    if (currNodeMaybeStale()) {
      node_ = table_->firstFrom(Table::order(key_), false);
      version_ = table_->version();
    } else {
      node_ = table_->next(node_);
    }
    if (node_) key_ = Ops::key(node_);
  }

 protected:
  // The current element, or null if it has been removed.
  Node* currNodeNonStale() const {
    if (!node_) return nullptr;
    return currNodeMaybeStale() ? table_->find(key_) : node_;
  }
  const Table* table_ = nullptr;
  Node* node_ = nullptr;
  uint32_t version_ = 0;
  Key key_{};
};

struct IterEnd {};
// A range for range-based for: the iterators end themselves.
template <class It>
struct IterRange {
  It first;
  It begin() const { return first; }
  IterEnd end() const { return {}; }
};

}  // namespace detail

// KeyFn(value) gives the key stored in the value; V derives from PtrInterface and HashLink<V>.
// InlineLog2: buckets kept in the map itself (see HashTable).
template <class K, class V, class KeyFn, uint8_t InlineLog2 = 0>
class HashMap {
  struct Ops {
    static const K& key(const V* v) { return KeyFn()(*v); }
    static void release(V* v) { v->deleteRef(); }
  };
  using Table = detail::HashTable<V, K, Ops, InlineLog2>;

 public:
  class Iterator : public detail::HashIterBase<Table, V, K, Ops> {
    using Base = detail::HashIterBase<Table, V, K, Ops>;

   public:
    using Base::Base;
    Iterator(const Table* t, V* n) : Base(t, n), hold_(n) {}
    // The element itself, held by the iterator: still readable after its removal.
    V* ptr() const { return hold_.ptr(); }
    V* operator->() const { return hold_.ptr(); }
    const Iterator& operator*() const { return *this; }
    Ptr<V> currNodeNonStale() const { return Ptr<V>(Base::currNodeNonStale()); }
    Iterator& operator++() {
      Base::advance();
      hold_ = Ptr<V>(this->node_);
      return *this;
    }
    bool operator!=(detail::IterEnd) const { return this->node_ != nullptr; }

   private:
    Ptr<V> hold_;
  };

  HashMap() = default;
  size_t size() const { return t_.size(); }
  bool empty() const { return t_.empty(); }
  V* find(const K& k) const { return t_.find(k); }
  void prefetch() const { t_.prefetch(); }
  // Inserts v under key k, replacing any value with the same key; returns the replaced one.
  // The key must be the one the value carries.
  Ptr<V> insert(const K& k, Ptr<V> v) {
    if (!(k == KeyFn()(*v))) {
      assertionFailed("fwkKey() == KeyFunktor()( _value )", __FILE__, __LINE__, __PRETTY_FUNCTION__);
    }
    Ptr<V> old = take(k);
    t_.insert(v.release());
    return old;
  }
  Ptr<V> take(const K& k) {
    V* v = t_.unlink(k);
    Ptr<V> p(v);
    if (v) v->deleteRef();
    return p;
  }
  void clear() { t_.clear(); }
  Iterator begin() const { return Iterator(&t_, t_.first()); }
  // Starts at the hash position of k: at k if present, else at what follows its position.
  Iterator startAtHash(const K& k) const { return Iterator(&t_, t_.firstFrom(Table::order(k), true)); }
  detail::IterRange<Iterator> iter() const { return {begin()}; }

 private:
  Table t_;
};

// Node-based map of plain values (or pointers). Lookup yields a pointer to the value, or null.
template <class K, class V>
class HashMap2018 {
  struct Node {
    Node* kivNext = nullptr;
    K key;
    V value;
  };
  struct Ops {
    static const K& key(const Node* n) { return n->key; }
    static void release(Node* n) { delete n; }
  };
  using Table = detail::HashTable<Node, K, Ops>;

 public:
  class Iterator : public detail::HashIterBase<Table, Node, K, Ops> {
    using Base = detail::HashIterBase<Table, Node, K, Ops>;

   public:
    using Base::Base;
    // Null when the element under the iterator has been removed.
    const V* value() const {
      Node* n = Base::currNodeNonStale();
      return n ? &n->value : nullptr;
    }
    Iterator& operator++() {
      Base::advance();
      return *this;
    }
    const Iterator& operator*() const { return *this; }
    bool operator!=(detail::IterEnd) const { return this->node_ != nullptr; }
  };

  HashMap2018() = default;
  size_t size() const { return t_.size(); }
  bool empty() const { return t_.empty(); }
  const V* find(const K& k) const {
    Node* n = t_.find(k);
    return n ? &n->value : nullptr;
  }
  V* find(const K& k) {
    Node* n = t_.find(k);
    return n ? &n->value : nullptr;
  }
  // Inserts or replaces; returns true when the map changed.
  bool set(const K& k, const V& v) {
    if (Node* n = t_.find(k)) {
      if (n->value == v) return false;
      n->value = v;
      return true;
    }
    t_.insert(new Node{nullptr, k, v});
    return true;
  }
  bool erase(const K& k) {
    Node* n = t_.unlink(k);
    delete n;
    return n != nullptr;
  }
  void clear() { t_.clear(); }
  Iterator begin() const { return Iterator(&t_, t_.first()); }
  Iterator startAtHash(const K& k) const { return Iterator(&t_, t_.firstFrom(Table::order(k), true)); }
  detail::IterRange<Iterator> iter() const { return {begin()}; }

 private:
  Table t_;
};

}  // namespace Kiv
