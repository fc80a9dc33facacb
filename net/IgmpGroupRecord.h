// A group record of a membership report, and the source addresses it carries, read in place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>

#include "net/Igmp.h"
#include "net/IpAddr.h"

namespace Gmp::Igmp {

// Source addresses as they lie on the wire, four bytes each; also over an array of IpAddr, which has that
// same layout. Holds a pointer: valid while the bytes it was made over are.
class SourceList {
 public:
  static_assert(sizeof(Lomax::IpAddr) == 4);

  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Lomax::IpAddr;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = Lomax::IpAddr;
    Iterator() = default;
    explicit Iterator(const uint8_t* p) : p_(p) {}
    Lomax::IpAddr operator*() const { return Lomax::IpAddr::fromBytes(p_); }
    Iterator& operator++() {
      p_ += 4;
      return *this;
    }
    Iterator operator++(int) {
      Iterator r = *this;
      p_ += 4;
      return r;
    }
    bool operator==(const Iterator&) const = default;

   private:
    const uint8_t* p_ = nullptr;
  };

  constexpr SourceList() = default;
  SourceList(const uint8_t* wire, uint16_t count) : p_(wire), n_(count) {}
  explicit SourceList(std::span<const Lomax::IpAddr> addrs)
      : p_(reinterpret_cast<const uint8_t*>(addrs.data())), n_(static_cast<uint16_t>(addrs.size())) {}

  uint16_t size() const { return n_; }
  bool empty() const { return n_ == 0; }
  Lomax::IpAddr operator[](size_t i) const { return Lomax::IpAddr::fromBytes(p_ + 4 * i); }
  Iterator begin() const { return Iterator(p_); }
  Iterator end() const { return Iterator(p_ + 4 * size_t{n_}); }
  const uint8_t* wireBytes() const { return p_; }

 private:
  const uint8_t* p_ = nullptr;
  uint16_t n_ = 0;
};

class IgmpGroupRecord {
 public:
  IgmpGroupRecord() = default;
  IgmpGroupRecord(RecordType type, Lomax::IpAddr group, SourceList sources = {})
      : type_(type), group_(group), sources_(sources) {}

  RecordType recordType() const { return type_; }
  Lomax::IpAddr group() const { return group_; }
  const SourceList& sources() const { return sources_; }
  uint16_t numSources() const { return sources_.size(); }

 private:
  RecordType type_ = recordTypeUnknown;
  Lomax::IpAddr group_;
  SourceList sources_;
};

}  // namespace Gmp::Igmp
