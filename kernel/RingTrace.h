// The ring trace: always on once opened, binary, one ring of fixed-size slots per trace level.
// Each statement registers its format once (MsgDesc); a write is the site id, a time and the
// arguments in binary. Formatting happens only when the file is decoded (RingDecoder).
#pragma once

#include <algorithm>
#include <atomic>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "kernel/RingLayout.h"
#include "kernel/RingStorage.h"
#include "kernel/String.h"
#include "kernel/TimeSource.h"

namespace Vellum {

// One ring file. Sizes are given per level in KiB of 256-byte slots: 30 holds 120 messages.
class RingTrace {
 public:
  struct Slot {
    uint8_t* bytes;
    uint64_t seq;
  };

  RingTrace(std::unique_ptr<RingStorage> storage, const std::string& name,
            const std::vector<uint32_t>& sizesKiB);
  RingTrace(const RingTrace&) = delete;
  RingTrace& operator=(const RingTrace&) = delete;

  static size_t bytesFor(const std::vector<uint32_t>& sizesKiB);

  // Distinguishes this ring from earlier ones, so that a site registers again with a new ring.
  uint64_t generation() const { return generation_; }
  // The site's id, or 0 when the site area is full.
  uint32_t registerSite(const char* file, int line, std::string_view format);
  // A text record's id, or 0 when the site area is full.
  uint32_t registerText(std::string_view text) { return registerSite("", 0, text); }

  // Claims the oldest slot of the level and stamps it. A level without slots of its own writes into
  // a scratch slot outside the file. Both run for every trace statement, so they are inline.
  [[gnu::always_inline]] Slot startMsg(int level) {
    Level& l = levels_[level];
    uint8_t* slot = l.base + size_t{l.next} * layout::slotBytes;
    l.next = l.next + 1 == l.slots ? 0 : l.next + 1;
    storeSeq(slot + layout::trailerOffset, 0, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    const double time = Kiv::timeSourceNow();
    std::memcpy(slot + offsetof(layout::SlotHeader, time), &time, sizeof time);
    return Slot{slot, ++seq_};
  }
  [[gnu::always_inline]] void endMsg(Slot slot, uint32_t site, int level, size_t payloadBytes,
                                     uint8_t flags) {
    if (site == 0) [[unlikely]]
      return;
    // site, level, flags and payload length fill the header's last eight bytes: one store.
    static_assert(offsetof(layout::SlotHeader, site) + 8 == sizeof(layout::SlotHeader));
    const uint64_t word = uint64_t{site} | uint64_t{static_cast<uint8_t>(level)} << 32 |
                          uint64_t{flags} << 40 | uint64_t{static_cast<uint16_t>(payloadBytes)} << 48;
    std::memcpy(slot.bytes + offsetof(layout::SlotHeader, site), &word, sizeof word);
    storeSeq(slot.bytes + layout::trailerOffset, slot.seq, std::memory_order_release);
    storeSeq(slot.bytes, slot.seq, std::memory_order_release);
  }

  const uint8_t* bytes() const { return storage_->bytes(); }
  size_t size() const { return storage_->size(); }

 private:
  struct Level {
    uint8_t* base = nullptr;
    uint32_t slots = 0;
    uint32_t next = 0;
  };
  layout::FileHeader& header() { return *reinterpret_cast<layout::FileHeader*>(storage_->bytes()); }
  static void storeSeq(uint8_t* at, uint64_t seq, std::memory_order order) {
    std::atomic_ref<uint64_t>(*reinterpret_cast<uint64_t*>(at)).store(seq, order);
  }

  std::unique_ptr<RingStorage> storage_;
  uint64_t generation_;
  uint64_t seq_ = 0;
  Level levels_[layout::levels];
  alignas(8) uint8_t scratch_[layout::slotBytes];
};

// The process's ring; null until one of the agent's start-up paths opens it. It is never closed,
// so that a crash leaves a record.
extern RingTrace* snoopVlHandle;

// Opens a ring named `name` through the installed storage factory; nullptr if no storage could be
// had. The caller owns the ring (the agent keeps it in snoopVlHandle until the process ends).
RingTrace* initialize_handle(const std::string& name, const std::vector<uint32_t>& sizesKiB);

// A trace statement's site: registered with a ring on its first write there.
struct MsgDesc {
  constexpr MsgDesc(const char* f, int l) : file(f), line(l) {}
  const char* file;
  int line;
  uint64_t generation = 0;
  uint32_t id = 0;
};

class Writer;

// The customisation point: a value type writes itself with the Writer's primitives, always the same
// primitives in the same order (the format records them once per site).
template <class T>
concept HasRingArg = requires(Writer& w, const T& v) {
  ringArg(w, v);
};

// Formats a value by its operator<< into a thread-local buffer of 256 bytes, zero-terminated;
// longer text is cut. The text lasts until the next VlString on the same thread.
class VlString {
 public:
  static constexpr size_t capacity = 256;
  template <class T>
  explicit VlString(const T& v) {
    v_ = finish(start() << v);
  }
  const char* charPtr() const { return v_.data(); }
  std::string_view view() const { return v_; }

 private:
  static std::ostream& start();
  static std::string_view finish(std::ostream& os);
  std::string_view v_;
};

// An IPv4 address as the u32 of its four bytes in network order.
struct Ipv4 {
  uint32_t netOrder;
  static Ipv4 fromOctets(uint8_t a, uint8_t b, uint8_t c, uint8_t d);
};
std::ostream& operator<<(std::ostream& os, Ipv4 a);
void ringArg(Writer& w, Ipv4 a);

// Writes one message into the ring; the slot is committed when the writer goes.
// String literals (const char[N]) are part of the format; every other value is an argument.
// A site's first write with a ring is a registering write: it builds the format (format_) and
// registers it. Every later write is plain: format_ is null from construction, and as the writer and
// the ringArg functions are all inline, the compiler drops every test of it, so that a plain write
// claims a slot and stores arguments, and does no more.
class Writer {
 public:
  struct Registering {};
  [[gnu::always_inline]] Writer(RingTrace& ring, MsgDesc& desc, int level)
      : ring_(ring),
        desc_(desc),
        level_(level < 0 ? 0 : std::min(level, static_cast<int>(layout::levels) - 1)),
        slot_(ring.startMsg(level_)),
        pos_(slot_.bytes + layout::payloadOffset),
        end_(slot_.bytes + layout::trailerOffset) {}
  Writer(RingTrace& ring, MsgDesc& desc, int level, Registering) : Writer(ring, desc, level) {
    format_ = new std::string;
  }
  [[gnu::always_inline]] ~Writer() {
    if (format_) [[unlikely]]
      registerSite(ring_, desc_, format_);
    ring_.endMsg(slot_, desc_.id, level_, pos_ - (slot_.bytes + layout::payloadOffset),
                 truncated_ ? layout::slotTruncated : 0);
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  template <class T>
  [[gnu::always_inline]] Writer& operator<<(T&& v);

  [[gnu::always_inline]] void int64(int64_t v) { fixed(layout::kindInt, &v, sizeof v); }
  [[gnu::always_inline]] void uint64(uint64_t v) { fixed(layout::kindUint, &v, sizeof v); }
  [[gnu::always_inline]] void real(double v) { fixed(layout::kindDouble, &v, sizeof v); }
  [[gnu::always_inline]] void boolean(bool v) {
    uint8_t b = v;
    fixed(layout::kindBool, &b, 1);
  }
  [[gnu::always_inline]] void character(char c) { fixed(layout::kindChar, &c, 1); }
  [[gnu::always_inline]] void ipv4(uint32_t netOrder) { fixed(layout::kindIpv4, &netOrder, 4); }
  [[gnu::always_inline]] void eth(const uint8_t* sixBytes) { fixed(layout::kindEth, sixBytes, 6); }
  // Short strings are copied inline, with no call; longer ones may be cut.
  [[gnu::always_inline]] void string(std::string_view s) {
    if (!room(layout::kindString, 1)) return;
    const size_t n = s.size();
    if (n <= shortString && static_cast<size_t>(end_ - pos_) > shortString) [[likely]] {
      *pos_++ = static_cast<uint8_t>(n);
      copyShort(pos_, s.data(), n);
      pos_ += n;
      return;
    }
    const Cut cut = stringCut(pos_, end_, s);
    pos_ = cut.pos;
    if (cut.full) {
      end_ = pos_;
      truncated_ = true;
    }
  }
  // A text that many messages repeat (an interface's name): written once per ring as a text record,
  // then four bytes per message. The caller keeps the ring generation and id with the text.
  [[gnu::always_inline]] void text(const Kiv::String& s, uint64_t& generation, uint32_t& id) {
    if (generation != ring_.generation()) [[unlikely]] {
      id = ring_.registerText(s.view());
      generation = ring_.generation();
    }
    fixed(layout::kindText, &id, sizeof id);
  }

 private:
  [[gnu::always_inline]] void literal(const char* s) {
    if (format_) [[unlikely]]
      literalText(*format_, s);
  }
  static constexpr size_t shortString = 32;
  // n <= shortString: two fixed-size copies that overlap in the middle.
  [[gnu::always_inline]] static void copyShort(uint8_t* d, const char* s, size_t n) {
    if (n >= 16) {
      std::memcpy(d, s, 16);
      std::memcpy(d + n - 16, s + n - 16, 16);
    } else if (n >= 8) {
      std::memcpy(d, s, 8);
      std::memcpy(d + n - 8, s + n - 8, 8);
    } else if (n >= 4) {
      std::memcpy(d, s, 4);
      std::memcpy(d + n - 4, s + n - 4, 4);
    } else {
      for (size_t i = 0; i < n; ++i) d[i] = static_cast<uint8_t>(s[i]);
    }
  }
  // The helpers out of line take what they need as arguments, never the writer itself: a writer whose
  // address is never taken lives in registers.
  struct Cut {
    uint8_t* pos;
    bool full;
  };
  static Cut stringCut(uint8_t* pos, const uint8_t* end, std::string_view s);
  static void literalText(std::string& format, const char* s);
  // Registers the site with the format built by this write, and drops the format.
  static void registerSite(RingTrace& ring, MsgDesc& desc, std::string* format);
  static void formatArg(std::string& format, char kind);
  // Once an argument does not fit, none after it is written: the end moves to the current position.
  [[gnu::always_inline]] bool room(char kind, size_t n) {
    if (format_) [[unlikely]]
      formatArg(*format_, kind);
    if (static_cast<size_t>(end_ - pos_) < n) [[unlikely]] {
      end_ = pos_;
      truncated_ = true;
      return false;
    }
    return true;
  }
  [[gnu::always_inline]] void fixed(char kind, const void* p, size_t n) {
    if (room(kind, n)) {
      std::memcpy(pos_, p, n);
      pos_ += n;
    }
  }

  RingTrace& ring_;
  MsgDesc& desc_;
  const int level_;
  RingTrace::Slot slot_;
  uint8_t* pos_;
  uint8_t* end_;
  std::string* format_ = nullptr;
  bool truncated_ = false;
};

template <class T>
[[gnu::always_inline]] inline Writer& Writer::operator<<(T&& v) {
  using R = std::remove_reference_t<T>;
  using D = std::remove_cvref_t<T>;
  if constexpr (std::is_array_v<R> && std::is_same_v<std::remove_extent_t<R>, const char>) {
    literal(v);
  } else if constexpr (std::is_array_v<R> && std::is_same_v<std::remove_extent_t<R>, char>) {
    std::string_view text(v, std::extent_v<R>);
    string(text.substr(0, text.find('\0')));
  } else if constexpr (std::is_same_v<D, const char*> || std::is_same_v<D, char*>) {
    string(v ? std::string_view(v) : std::string_view("(null)"));
  } else if constexpr (HasRingArg<D>) {
    ringArg(*this, v);
  } else if constexpr (std::is_same_v<D, bool>) {
    boolean(v);
  } else if constexpr (std::is_same_v<D, char> || std::is_same_v<D, signed char> ||
                       std::is_same_v<D, unsigned char>) {
    character(static_cast<char>(v));  // as a stream prints them
  } else if constexpr (std::is_integral_v<D> && std::is_signed_v<D>) {
    int64(v);
  } else if constexpr (std::is_integral_v<D>) {
    uint64(v);
  } else if constexpr (std::is_floating_point_v<D>) {
    real(static_cast<double>(v));
  } else if constexpr (std::is_enum_v<D> && std::is_convertible_v<D, int>) {
    int64(static_cast<int64_t>(v));
  } else if constexpr (std::is_same_v<D, Kiv::String>) {
    string(v.view());
  } else if constexpr (std::is_convertible_v<const D&, std::string_view>) {
    string(std::string_view(v));
  } else {
    string(VlString(v).view());
  }
  return *this;
}

}  // namespace Vellum
