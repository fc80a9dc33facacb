// Ordered collection, ascending by key, for what is printed or walked in order. Iterators keep the
// current key, so deleting the element under one and then advancing yields its successor.
#pragma once

#include <cstdint>
#include <map>

#include "kernel/HashMap.h"

namespace Kiv {

template <class K, class V>
class RbTreeMap {
 public:
  class Iterator {
   public:
    Iterator() = default;
    Iterator(const RbTreeMap* m, typename std::map<K, V>::const_iterator it)
        : map_(m), it_(it), version_(m->version_), done_(it == m->map_.end()) {
      if (!done_) key_ = it->first;
    }
    explicit operator bool() const { return !done_; }
    bool done() const { return done_; }
    const K& key() const { return key_; }
    bool currNodeMaybeStale() const { return map_ && map_->version_ != version_; }
    // Null when the element under the iterator has been removed.
    const V* value() const {
      if (done_) return nullptr;
      if (currNodeMaybeStale()) return map_->find(key_);
      return &it_->second;
    }
    Iterator& operator++() {
      if (done_) return *this;
      if (currNodeMaybeStale()) {
        it_ = map_->map_.upper_bound(key_);
        version_ = map_->version_;
      } else {
        ++it_;
      }
      done_ = it_ == map_->map_.end();
      if (!done_) key_ = it_->first;
      return *this;
    }
    const Iterator& operator*() const { return *this; }
    bool operator!=(detail::IterEnd) const { return !done_; }

   private:
    const RbTreeMap* map_ = nullptr;
    typename std::map<K, V>::const_iterator it_;
    uint32_t version_ = 0;
    bool done_ = true;
    K key_{};
  };

  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  const V* find(const K& k) const {
    auto it = map_.find(k);
    return it == map_.end() ? nullptr : &it->second;
  }
  V* find(const K& k) {
    auto it = map_.find(k);
    return it == map_.end() ? nullptr : &it->second;
  }
  bool set(const K& k, const V& v) {
    auto [it, added] = map_.try_emplace(k, v);
    if (added) return ++version_, true;
    if (it->second == v) return false;
    it->second = v;
    return true;
  }
  bool erase(const K& k) {
    if (!map_.erase(k)) return false;
    ++version_;
    return true;
  }
  void clear() {
    if (map_.empty()) return;
    map_.clear();
    ++version_;
  }
  Iterator begin() const { return Iterator(this, map_.begin()); }
  // Starts at k or, if k is absent, at the first key above it.
  Iterator lowerBound(const K& k) const { return Iterator(this, map_.lower_bound(k)); }
  detail::IterRange<Iterator> iter() const { return {begin()}; }

 private:
  std::map<K, V> map_;
  uint32_t version_ = 0;
};

}  // namespace Kiv
