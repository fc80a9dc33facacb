// Parsing interface names into kinds and parts, and the process-wide intern table of names.
#include "net/IntfId.h"

#include <atomic>
#include <charconv>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "kernel/Exception.h"
#include "kernel/RingTrace.h"

namespace Lomax {

namespace {

struct Family {
  std::string_view prefix;
  std::string_view shortPrefix;
  uint8_t kind;
  uint8_t minParts;
  uint8_t maxParts;
};

// Kinds 11 and 12 belong to the agent's own interfaces and to nothing else.
constexpr Family families[] = {
    {"Ethernet", "Et", 1, 1, 3},    {"Port-Channel", "Po", 2, 1, 1},
    {"Vlan", "Vl", 3, 1, 1},        {"Management", "Ma", 4, 1, 2},
    {"Loopback", "Lo", 5, 1, 1},    {"Cpu", "Cpu", 10, 0, 0},
    {"Switch", "Switch", 11, 0, 0}, {"L2QuerierLink", "L2QuerierLink", 12, 0, 1},
};

const Family* familyOfKind(uint8_t kind) {
  for (const Family& f : families) {
    if (f.kind == kind) return &f;
  }
  return nullptr;
}

constexpr int kindShift = 56;
constexpr int partsShift = 20;
constexpr uint64_t indexMask = detail::internIndexMask;
constexpr uint64_t structureMask = ~indexMask;

uint64_t structureBits(uint8_t kind, uint8_t nParts, const uint32_t* parts) {
  static constexpr int shifts[3] = {38, 30, 22};
  uint64_t bits = uint64_t{kind} << kindShift | uint64_t{nParts} << partsShift;
  for (uint8_t i = 0; i < nParts; ++i) bits |= uint64_t{parts[i]} << shifts[i];
  return bits;
}

// Reads "<digits>[/<digits>...]" with canonical numbers only, so that parts give back the same name.
bool parseParts(std::string_view s, const Family& f, uint32_t* parts, uint8_t& n) {
  n = 0;
  if (s.empty()) return f.minParts == 0;
  while (true) {
    if (n == f.maxParts || s.empty() || (s[0] == '0' && s.size() > 1 && s[1] != '/')) return false;
    uint32_t v = 0;
    auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (r.ec != std::errc() || s[0] == '+' || v > GenericIntfId::maxPartValue[n]) return false;
    parts[n++] = v;
    s.remove_prefix(r.ptr - s.data());
    if (s.empty()) return n >= f.minParts;
    if (s[0] != '/') return false;
    s.remove_prefix(1);
  }
}

uint64_t parseStructure(std::string_view name, std::string& shortName) {
  for (const Family& f : families) {
    if (!name.starts_with(f.prefix)) continue;
    uint32_t parts[3];
    uint8_t n;
    std::string_view rest = name.substr(f.prefix.size());
    if (!parseParts(rest, f, parts, n)) continue;
    shortName.assign(f.shortPrefix).append(rest);
    return structureBits(f.kind, n, parts);
  }
  shortName.assign(name);
  return uint64_t{otherIntfIdType} << kindShift;
}

// Names are never removed, so an index handed out stays valid for the life of the process. Entries
// live in fixed blocks that never move: readers index them without the lock.
class InternTable {
 public:
  static constexpr size_t blockSize = detail::internBlockSize;
  using Entry = detail::InternEntry;

  InternTable() { intern(Kiv::String()); }

  uint64_t intern(const Kiv::String& name) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = byName_.find(name.view());
    if (it != byName_.end()) return it->second;
    std::string shortName;
    uint64_t bits = name.empty() ? 0 : parseStructure(name.view(), shortName);
    size_t index = count_;
    if (index > indexMask) Kiv::throwRangeException("IntfId: too many interface names");
    if (index % blockSize == 0)
      detail::internBlocks[index / blockSize].store(new Entry[blockSize], std::memory_order_release);
    Entry& e = detail::internBlocks[index / blockSize].load(std::memory_order_relaxed)[index % blockSize];
    e.name = name;
    e.shortName = Kiv::String(shortName);
    e.bits = bits | index;
    ++count_;
    byName_.emplace(e.name.view(), e.bits);
    return e.bits;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<std::string_view, uint64_t> byName_;
  size_t count_ = 0;
};

InternTable& internTable() {
  // Never destroyed: ids may be read by static destructors of other units.
  static InternTable* table = new InternTable;
  return *table;
}

}  // namespace

void IntfId::handleInitialized(const Kiv::String& name) { bits_ = internTable().intern(name); }

namespace detail {
std::atomic<InternEntry*> internBlocks[(internIndexMask + 1) / internBlockSize];

const InternEntry& internEntrySlow(uint64_t bits) {
  internTable();
  return internEntry(bits);
}
}  // namespace detail

IntfId switchIntfId() {
  static const IntfId id(Kiv::String("Switch"));
  return id;
}

IntfId cpuIntfId() {
  static const IntfId id(Kiv::String("Cpu"));
  return id;
}

std::ostream& operator<<(std::ostream& os, IntfId id) { return os << id.stringValue(); }

namespace {

// Names id anew from its family's prefix and the given parts.
void rename(IntfId& id, uint8_t kind, uint8_t nParts, const uint32_t* parts) {
  const Family* family = familyOfKind(kind);
  KIV_ASSERT(family);
  KIV_ASSERT(nParts >= family->minParts && nParts <= family->maxParts);
  std::string name(family->prefix);
  for (uint8_t i = 0; i < nParts; ++i) {
    if (i) name.push_back('/');
    name.append(std::to_string(parts[i]));
  }
  id.handleInitialized(Kiv::String(name));
}

}  // namespace

void GenericIntfId::typeIdIs(IntfId& id, uint8_t kind) {
  uint32_t values[3];
  uint8_t n = parts(id);
  for (uint8_t i = 0; i < n; ++i) values[i] = part(id, i);
  rename(id, kind, n, values);
}

void GenericIntfId::partIs(IntfId& id, uint8_t index, uint32_t value) {
  uint8_t n = parts(id);
  KIV_ASSERT(index <= n && index < 3 && value <= maxPartValue[index]);
  uint32_t values[3];
  for (uint8_t i = 0; i < n; ++i) values[i] = part(id, i);
  values[index] = value;
  rename(id, typeId(id), index == n ? n + 1 : n, values);
}

bool GenericIntfId::operator<(const GenericIntfId& o) const {
  uint64_t a = id_.bits_ & structureMask, b = o.id_.bits_ & structureMask;
  if (a != b) return a < b;
  if (id_.bits_ == o.id_.bits_) return false;
  return id_.stringValue() < o.id_.stringValue();
}

}  // namespace Lomax
