// Interface identifiers: a 64-bit value whose name is interned once per process, and its structured view.
// Switch-style names ("Ethernet1/2", "Port-Channel5", "Vlan10") are parsed into a kind and numeric parts;
// any other name ("eth1", "swp3", "veth-h1") is of the kind otherIntfIdType and told apart by its name.
#pragma once

#include <atomic>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "kernel/RingTrace.h"
#include "kernel/String.h"
#include "kernel/Value.h"

namespace Lomax {

namespace detail {
// The intern table's entries, in blocks that never move; an id's low 20 bits index them. Kept at
// namespace scope so that reading a name is a few loads inline, with no call and no guard.
struct InternEntry {
  Kiv::String name;
  Kiv::String shortName;
  uint64_t bits = 0;
  // The name's text record in the ring trace, and the ring it belongs to.
  mutable uint64_t ringGeneration = 0;
  mutable uint32_t ringText = 0;
};
inline constexpr uint64_t internIndexMask = (1u << 20) - 1;
inline constexpr size_t internBlockSize = 4096;
extern std::atomic<InternEntry*> internBlocks[(internIndexMask + 1) / internBlockSize];
// The entry of an id whose block is not there yet: only the empty id before any name was interned.
const InternEntry& internEntrySlow(uint64_t bits);
[[gnu::always_inline]] inline const InternEntry& internEntry(uint64_t bits) {
  const size_t index = bits & internIndexMask;
  const InternEntry* block = internBlocks[index / internBlockSize].load(std::memory_order_acquire);
  if (!block) [[unlikely]]
    return internEntrySlow(bits);
  return block[index % internBlockSize];
}
}  // namespace detail

class IntfId {
 public:
  constexpr IntfId() = default;
  explicit IntfId(const Kiv::String& name) { handleInitialized(name); }
  // All name syntax lives here; the empty name gives the empty id.
  void handleInitialized(const Kiv::String& name);

  // Both are read from the intern table: no parsing, no allocation.
  const Kiv::String& stringValue() const { return detail::internEntry(bits_).name; }
  const Kiv::String& shortName() const { return detail::internEntry(bits_).shortName; }

  constexpr uint64_t value() const { return bits_; }
  // Small and dense: names are numbered as they are first interned. An index for per-interface arrays.
  constexpr uint32_t internIndex() const { return static_cast<uint32_t>(bits_ & detail::internIndexMask); }
  uint64_t hash() const { return Kiv::mixHash(bits_); }
  constexpr bool operator==(const IntfId&) const = default;
  bool operator<(const IntfId& o) const;
  constexpr explicit operator bool() const { return bits_ != 0; }

 private:
  friend class GenericIntfId;
  uint64_t bits_ = 0;
};

inline constexpr IntfId emptyIntfId{};
// The pseudo-interface of the switch's own bridge function, "Switch".
IntfId switchIntfId();
// The pseudo-interface of the switch's own processor, "Cpu".
IntfId cpuIntfId();

inline constexpr uint8_t otherIntfIdType = 15;

// The 64 bits, from the top: kind 8, subType 4, three parts of 14, 8 and 8 bits, the number of parts 2,
// and a 20-bit index into the intern table. Ids of one kind thus order by their parts, numerically.
class GenericIntfId {
 public:
  static constexpr uint32_t maxPartValue[3] = {0x3fff, 0xff, 0xff};

  constexpr explicit GenericIntfId(IntfId id) : id_(id) {}
  constexpr IntfId intfId() const { return id_; }

  static constexpr uint8_t typeId(IntfId id) { return static_cast<uint8_t>(id.bits_ >> 56); }
  // Gives id the name of the same parts in another family; kind must be one with a name family.
  static void typeIdIs(IntfId& id, uint8_t kind);
  // The family's variant; every family named today has only variant 0.
  static constexpr uint8_t subType(IntfId id) { return static_cast<uint8_t>((id.bits_ >> 52) & 0xf); }
  static constexpr uint8_t parts(IntfId id) { return static_cast<uint8_t>((id.bits_ >> 20) & 0x3); }
  static constexpr uint32_t part(IntfId id, uint8_t index) {
    return index >= parts(id) ? 0
                              : static_cast<uint32_t>((id.bits_ >> partShift[index]) & maxPartValue[index]);
  }
  // Sets one part (or appends the next one) and renames id accordingly.
  static void partIs(IntfId& id, uint8_t index, uint32_t value);

  constexpr bool operator==(const GenericIntfId&) const = default;
  // Kind, then parts; ids whose structure is equal (names of the other kind) order by name.
  bool operator<(const GenericIntfId& o) const;

 private:
  static constexpr int partShift[3] = {38, 30, 22};
  friend class IntfId;
  IntfId id_;
};

inline bool IntfId::operator<(const IntfId& o) const { return GenericIntfId(*this) < GenericIntfId(o); }

std::ostream& operator<<(std::ostream& os, IntfId id);
// The ring trace holds each interned name once and refers to it by id.
[[gnu::always_inline]] inline void ringArg(Vellum::Writer& w, IntfId id) {
  const detail::InternEntry& e = detail::internEntry(id.value());
  w.text(e.name, e.ringGeneration, e.ringText);
}

}  // namespace Lomax

namespace Kiv {

// Both forms are the name: the bits of an id are only meaningful inside one process.
template <>
struct ValueTraits<Lomax::IntfId> {
  static constexpr const char* typeName = "Lomax::IntfId";
  static std::string text(Lomax::IntfId v) { return v.stringValue().stdString(); }
  static bool fromText(std::string_view s, Lomax::IntfId& v) {
    v = Lomax::IntfId(Kiv::String(s));
    return true;
  }
  static void binary(std::string& out, Lomax::IntfId v) { ValueTraits<String>::binary(out, v.stringValue()); }
  static bool fromBinary(std::string_view& in, Lomax::IntfId& v) {
    String name;
    if (!ValueTraits<String>::fromBinary(in, name)) return false;
    v = Lomax::IntfId(name);
    return true;
  }
};

}  // namespace Kiv
