// Writing the ring trace: file header, site registration, slot claim and commit.
#include "kernel/RingTrace.h"

#include <algorithm>
#include <atomic>
#include <streambuf>
#include <utility>

namespace Vellum {

RingTrace* snoopVlHandle = nullptr;

namespace {

uint64_t nextGeneration = 0;

uint32_t slotsFor(const std::vector<uint32_t>& sizesKiB, uint32_t level) {
  return level < sizesKiB.size() ? sizesKiB[level] * 1024 / layout::slotBytes : 0;
}

}  // namespace

size_t RingTrace::bytesFor(const std::vector<uint32_t>& sizesKiB) {
  size_t bytes = layout::headerBytes + layout::siteAreaBytes;
  for (uint32_t level = 0; level < layout::levels; ++level) {
    bytes += size_t{slotsFor(sizesKiB, level)} * layout::slotBytes;
  }
  return bytes;
}

RingTrace::RingTrace(std::unique_ptr<RingStorage> storage, const std::string& name,
                     const std::vector<uint32_t>& sizesKiB)
    : storage_(std::move(storage)), generation_(++nextGeneration) {
  layout::FileHeader& h = header();
  std::memset(&h, 0, sizeof h);
  h.version = layout::version;
  h.slotBytes = layout::slotBytes;
  h.levelCount = layout::levels;
  h.siteAreaBytes = layout::siteAreaBytes;
  h.siteAreaOffset = layout::headerBytes;
  std::memcpy(h.name, name.data(), std::min(name.size(), sizeof h.name - 1));
  uint64_t offset = layout::headerBytes + layout::siteAreaBytes;
  for (uint32_t level = 0; level < layout::levels; ++level) {
    Level& l = levels_[level];
    const uint32_t slots = slotsFor(sizesKiB, level);
    l.slots = slots ? slots : 1;
    l.base = slots ? storage_->bytes() + offset : scratch_;
    h.levelOffset[level] = offset;
    h.levelSlots[level] = slots;
    offset += uint64_t{slots} * layout::slotBytes;
  }
  // The magic goes last: a reader never sees a half-made header as a ring.
  std::atomic_thread_fence(std::memory_order_release);
  std::memcpy(h.magic, layout::magic, sizeof h.magic);
}

uint32_t RingTrace::registerSite(const char* file, int line, std::string_view format) {
  std::string_view path(file);
  std::string_view base = path.substr(path.find_last_of('/') + 1);  // npos + 1 is 0
  base = base.substr(0, UINT16_MAX);
  format = format.substr(0, UINT16_MAX);
  layout::FileHeader& h = header();
  uint64_t used = h.siteBytesUsed;
  size_t recordBytes = 8 + base.size() + format.size();
  if (used + recordBytes > layout::siteAreaBytes) return 0;
  uint8_t* at = storage_->bytes() + h.siteAreaOffset + used;
  uint32_t lineNo = static_cast<uint32_t>(line);
  uint16_t fileLen = static_cast<uint16_t>(base.size());
  uint16_t formatLen = static_cast<uint16_t>(format.size());
  std::memcpy(at, &lineNo, 4);
  std::memcpy(at + 4, &fileLen, 2);
  std::memcpy(at + 6, &formatLen, 2);
  std::memcpy(at + 8, base.data(), base.size());
  std::memcpy(at + 8 + base.size(), format.data(), format.size());
  std::atomic_ref<uint64_t>(h.siteBytesUsed).store(used + recordBytes, std::memory_order_release);
  return static_cast<uint32_t>(used + 1);
}

RingTrace* initialize_handle(const std::string& name, const std::vector<uint32_t>& sizesKiB) {
  std::unique_ptr<RingStorage> storage = ringStorageFactory().storage(name, RingTrace::bytesFor(sizesKiB));
  if (!storage || storage->size() < RingTrace::bytesFor(sizesKiB)) return nullptr;
  return new RingTrace(std::move(storage), name, sizesKiB);
}

void Writer::registerSite(RingTrace& ring, MsgDesc& desc, std::string* format) {
  std::unique_ptr<std::string> owned(format);
  desc.id = ring.registerSite(desc.file, desc.line, *owned);
  desc.generation = ring.generation();
}

void Writer::literalText(std::string& format, const char* s) {
  for (; *s; ++s) format += *s == layout::argMark ? '?' : *s;
}

void Writer::formatArg(std::string& format, char kind) {
  format += layout::argMark;
  format += kind;
}

Writer::Cut Writer::stringCut(uint8_t* pos, const uint8_t* end, std::string_view s) {
  size_t space = static_cast<size_t>(end - pos) - 1;
  size_t n = std::min({s.size(), size_t{255}, space});
  *pos++ = static_cast<uint8_t>(n);
  std::memcpy(pos, s.data(), n);
  return Cut{pos + n, n < s.size() && n == space};
}

Ipv4 Ipv4::fromOctets(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  uint8_t bytes[4] = {a, b, c, d};
  Ipv4 ip;
  std::memcpy(&ip.netOrder, bytes, 4);
  return ip;
}

std::ostream& operator<<(std::ostream& os, Ipv4 a) {
  uint8_t b[4];
  std::memcpy(b, &a.netOrder, 4);
  return os << int{b[0]} << '.' << int{b[1]} << '.' << int{b[2]} << '.' << int{b[3]};
}

void ringArg(Writer& w, Ipv4 a) { w.ipv4(a.netOrder); }

namespace {

// A stream buffer over VlString's fixed array: output past the end is dropped.
class FixedBuf : public std::streambuf {
 public:
  void reset() { setp(buf_, buf_ + VlString::capacity - 1); }
  std::string_view text() const { return std::string_view(pbase(), pptr() - pbase()); }
  char* terminate() {
    *pptr() = '\0';
    return buf_;
  }

 private:
  char buf_[VlString::capacity];
};

struct VlStream {
  FixedBuf buf;
  std::ostream os{&buf};
};

thread_local VlStream vlStream;

}  // namespace

std::ostream& VlString::start() {
  vlStream.buf.reset();
  std::ostream& os = vlStream.os;
  os.clear();
  os.flags(std::ios_base::dec | std::ios_base::skipws | std::ios_base::boolalpha);
  os.precision(6);
  os.width(0);
  os.fill(' ');
  return os;
}

std::string_view VlString::finish(std::ostream&) {
  vlStream.buf.terminate();
  return vlStream.buf.text();
}

}  // namespace Vellum
