// Decoding ring trace bytes: header checks, site records, slot validation, argument rendering.
#include "kernel/RingDecoder.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "kernel/RingLayout.h"

namespace Vellum {

namespace {

template <class T>
bool take(std::string_view& in, T& v) {
  if (in.size() < sizeof v) return false;
  std::memcpy(&v, in.data(), sizeof v);
  in.remove_prefix(sizeof v);
  return true;
}

// The text of a text record, or "?" for an id that names none.
std::string_view recordText(std::string_view sites, uint32_t id) {
  if (id == 0 || id > sites.size()) return "?";
  std::string_view record = sites.substr(id - 1);
  uint32_t line;
  uint16_t fileLen, textLen;
  if (!take(record, line) || !take(record, fileLen) || !take(record, textLen) ||
      record.size() < size_t{fileLen} + textLen) {
    return "?";
  }
  return record.substr(fileLen, textLen);
}

// Appends one argument of `kind` from the payload; false when the payload has run out.
bool renderArg(char kind, std::string_view& payload, std::string_view sites, std::ostringstream& os) {
  switch (kind) {
    case layout::kindInt: {
      int64_t v;
      return take(payload, v) && (os << v, true);
    }
    case layout::kindUint: {
      uint64_t v;
      return take(payload, v) && (os << v, true);
    }
    case layout::kindDouble: {
      double v;
      return take(payload, v) && (os << v, true);
    }
    case layout::kindBool: {
      uint8_t v;
      return take(payload, v) && (os << (v ? "true" : "false"), true);
    }
    case layout::kindChar: {
      char v;
      return take(payload, v) && (os << v, true);
    }
    case layout::kindString: {
      uint8_t n;
      if (!take(payload, n) || payload.size() < n) return false;
      os << payload.substr(0, n);
      payload.remove_prefix(n);
      return true;
    }
    case layout::kindIpv4: {
      uint8_t b[4];
      if (!take(payload, b)) return false;
      os << int{b[0]} << '.' << int{b[1]} << '.' << int{b[2]} << '.' << int{b[3]};
      return true;
    }
    case layout::kindEth: {
      uint8_t b[6];
      if (!take(payload, b)) return false;
      char text[18];
      std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
      os << text;
      return true;
    }
    case layout::kindText: {
      uint32_t id;
      return take(payload, id) && (os << recordText(sites, id), true);
    }
    default:
      return false;
  }
}

// Whether [offset, offset + len) lies within size bytes, without overflowing on hostile headers.
bool fits(uint64_t offset, uint64_t len, uint64_t size) { return offset <= size && len <= size - offset; }

}  // namespace

RingDecoder::RingDecoder(std::string_view bytes) {
  layout::FileHeader h;
  if (bytes.size() < layout::headerBytes) {
    error_ = "too short for a ring trace";
    return;
  }
  std::memcpy(&h, bytes.data(), sizeof h);
  if (std::memcmp(h.magic, layout::magic, sizeof h.magic) != 0) {
    error_ = "not a ring trace";
    return;
  }
  if (h.version != layout::version || h.slotBytes != layout::slotBytes || h.levelCount != layout::levels) {
    error_ = "unsupported ring trace layout";
    return;
  }
  if (!fits(h.siteAreaOffset, h.siteAreaBytes, bytes.size()) || h.siteBytesUsed > h.siteAreaBytes) {
    error_ = "ring trace site area out of bounds";
    return;
  }
  h.name[sizeof h.name - 1] = '\0';
  name_ = h.name;
  for (uint32_t level = 0; level < layout::levels; ++level) {
    if (!fits(h.levelOffset[level], uint64_t{h.levelSlots[level]} * layout::slotBytes, bytes.size())) {
      error_ = "ring trace level out of bounds";
      return;
    }
  }
  for (uint32_t level = 0; level < layout::levels; ++level) {
    decodeLevel(bytes, h.levelOffset[level], h.levelSlots[level], h.siteAreaOffset, h.siteBytesUsed);
  }
  std::sort(messages_.begin(), messages_.end(),
            [](const RingMessage& a, const RingMessage& b) { return a.seq < b.seq; });
}

void RingDecoder::decodeLevel(std::string_view bytes, uint64_t offset, uint32_t slots, uint64_t siteBase,
                              uint64_t siteBytes) {
  std::string_view sites = bytes.substr(siteBase, siteBytes);
  for (uint32_t i = 0; i < slots; ++i) {
    std::string_view slot = bytes.substr(offset + uint64_t{i} * layout::slotBytes, layout::slotBytes);
    layout::SlotHeader head;
    uint64_t trailer;
    std::memcpy(&head, slot.data(), sizeof head);
    std::memcpy(&trailer, slot.data() + layout::trailerOffset, sizeof trailer);
    if (head.seq == 0 || head.seq != trailer || head.site == 0 || head.site > sites.size() ||
        head.payloadBytes > layout::payloadCapacity) {
      continue;
    }
    std::string_view record = sites.substr(head.site - 1);
    uint32_t line;
    uint16_t fileLen, formatLen;
    if (!take(record, line) || !take(record, fileLen) || !take(record, formatLen) ||
        record.size() < size_t{fileLen} + formatLen) {
      continue;
    }
    std::string_view format = record.substr(fileLen, formatLen);
    std::string_view payload = slot.substr(layout::payloadOffset, head.payloadBytes);
    std::ostringstream os;
    bool more = true;
    for (size_t k = 0; k < format.size(); ++k) {
      if (format[k] != layout::argMark) {
        os << format[k];
      } else if (k + 1 < format.size()) {
        char kind = format[++k];
        more = more && renderArg(kind, payload, sites, os);
        if (!more) os << '?';  // cut for lack of room in the slot
      }
    }
    messages_.push_back(
        RingMessage{head.seq, head.time, head.level, std::string(record.substr(0, fileLen)), line, os.str()});
  }
}

std::string timeText(Kiv::Seconds t) {
  using namespace std::chrono;
  if (!std::isfinite(t)) return "never";
  // Beyond the calendar's easy range (a damaged slot) the seconds are shown as they are.
  if (t < 0 || t > 1e11) return std::to_string(t);
  auto micros = sys_time<microseconds>(microseconds(std::llround(t * 1e6)));
  auto day = floor<days>(micros);
  year_month_day ymd(day);
  hh_mm_ss<microseconds> tod(micros - day);
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u %02lld:%02lld:%02lld.%06lld", int(ymd.year()),
                unsigned(ymd.month()), unsigned(ymd.day()), static_cast<long long>(tod.hours().count()),
                static_cast<long long>(tod.minutes().count()), static_cast<long long>(tod.seconds().count()),
                static_cast<long long>(tod.subseconds().count()));
  return text;
}

std::string ringMessageLine(const RingMessage& m) {
  return timeText(m.time) + " L" + std::to_string(m.level) + " " + m.file + ":" + std::to_string(m.line) +
         " " + m.text;
}

}  // namespace Vellum
