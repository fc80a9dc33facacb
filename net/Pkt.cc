// Packets, their shared storage, their text form, and the pools behind Pkt::Manager.
#include "net/Pkt.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "net/Hex.h"

namespace Lomax {

struct Pkt::Storage {
  uint32_t refs;
  uint32_t capacity;
  uint8_t* bytes() { return reinterpret_cast<uint8_t*>(this + 1); }
};

Pkt::Pkt(Manager* manager, Storage* storage, uint32_t headroom, uint16_t len)
    : manager_(manager), storage_(nullptr) {
  storageIs(storage, headroom, len);
}

Pkt::~Pkt() { manager_->storageRelease(storage_); }

void Pkt::storageIs(Storage* storage, uint32_t headroom, uint16_t len) {
  if (storage_) manager_->storageRelease(storage_);
  storage_ = storage;
  frameAt(headroom, len);
}

void Pkt::frameAt(uint32_t headroom, uint16_t len) {
  KIV_ASSERT(headroom + len <= storage_->capacity);
  buffer_[0] = {storage_->bytes(), headroom};
  buffer_[1] = {storage_->bytes() + headroom, storage_->capacity - headroom};
  firstBuffer_ = 0;
  current_.data = buffer_[1].data;
  current_.bytes = len;
}

uint32_t Pkt::bytes() const {
  uint32_t sum = 0;
  for (uint8_t i = firstBuffer_; i < 2; ++i) sum += buffer_[i].bytes;
  return sum;
}

void Pkt::lenIs(uint16_t len) {
  KIV_ASSERT(len <= room());
  current_.bytes = static_cast<uint16_t>(len);
  KIV_ASSERT(checkOffsetBounds());
}

void Pkt::frontInc(int n) {
  KIV_ASSERT(n <= current_.bytes && -n <= static_cast<int>(headroom()));
  buffer_[0].bytes += n;
  buffer_[1].data += n;
  buffer_[1].bytes -= n;
  current_.data = buffer_[1].data;
  current_.bytes = static_cast<uint16_t>(current_.bytes - n);
  KIV_ASSERT(checkOffsetBounds());
}

bool Pkt::isShared() const { return storage_->refs > 1; }

ptrdiff_t Pkt::doUnshare(uint32_t minHeadroom) {
  if (!isShared() && headroom() >= minHeadroom) return 0;
  uint32_t headroom = std::max(minHeadroom, Manager::standardHeadroom);
  Storage* s = manager_->storageNew(headroom + current_.bytes);
  std::memcpy(s->bytes() + headroom, current_.data, current_.bytes);
  uint8_t* old = current_.data;
  storageIs(s, headroom, current_.bytes);
  return current_.data - old;
}

Kiv::String Pkt::stringValue() const {
  std::string s = "begin=" + std::to_string(beginOffset_) + " end=" + std::to_string(endOffset_) + " bytes=";
  s.reserve(s.size() + 2 * current_.bytes);
  for (uint16_t i = 0; i < current_.bytes; ++i) {
    s.push_back(hexDigits[current_.data[i] >> 4]);
    s.push_back(hexDigits[current_.data[i] & 0xf]);
  }
  return Kiv::String(s);
}

namespace {

bool takeNumber(std::string_view& s, std::string_view key, long& out) {
  if (!s.starts_with(key)) return false;
  s.remove_prefix(key.size());
  size_t n = 0;
  bool neg = !s.empty() && s[0] == '-';
  long v = 0;
  for (n = neg; n < s.size() && s[n] >= '0' && s[n] <= '9' && n < 7; ++n) v = v * 10 + (s[n] - '0');
  if (n == static_cast<size_t>(neg)) return false;
  out = neg ? -v : v;
  s.remove_prefix(n);
  return true;
}

}  // namespace

bool Pkt::stringValueIs(const Kiv::String& text, bool keepOffsets) {
  std::string_view s = text.view();
  long begin, end;
  if (!takeNumber(s, "begin=", begin) || !takeNumber(s, " end=", end) || !s.starts_with(" bytes="))
    return false;
  s.remove_prefix(7);
  if (s.size() % 2 || s.size() / 2 > 0xffff || end < 0 || begin < -0x8000 || begin > 0x7fff || end > 0xffff)
    return false;
  uint16_t len = static_cast<uint16_t>(s.size() / 2);
  if (keepOffsets && (begin < -static_cast<long>(Manager::standardHeadroom) || begin + end > len))
    return false;
  for (char c : s) {
    if (hexDigit(c) < 0) return false;
  }
  uint32_t need = Manager::standardHeadroom + len;
  if (isShared() || storage_->capacity < need || (Manager::exactStorage && storage_->capacity != need)) {
    storageIs(manager_->storageNew(need), Manager::standardHeadroom, len);
  } else {
    frameAt(Manager::standardHeadroom, len);
  }
  for (uint16_t i = 0; i < len; ++i)
    current_.data[i] = static_cast<uint8_t>(hexDigit(s[2 * i]) << 4 | hexDigit(s[2 * i + 1]));
  beginOffset_ = keepOffsets ? static_cast<int16_t>(begin) : 0;
  endOffset_ = keepOffsets ? static_cast<uint16_t>(end) : 0;
  return true;
}

void* Pkt::operator new(size_t size) {
  return size == sizeof(Pkt) ? globalPktManager().pktMemNew() : ::operator new(size);
}

void Pkt::operator delete(void* p, size_t size) {
  size == sizeof(Pkt) ? globalPktManager().pktMemFree(p) : ::operator delete(p);
}

Pkt::Manager::~Manager() {
  for (Storage* s : freeStorage_) ::operator delete(s);
}

Pkt::Storage* Pkt::Manager::storageNew(uint32_t bytes) {
  if (exactStorage) {
    // Nothing behind the frame but the end of the allocation, so that a read past it is seen.
    auto* s = static_cast<Storage*>(::operator new(sizeof(Storage) + bytes));
    s->refs = 1;
    s->capacity = bytes;
    ++storagesAllocated_;
    return s;
  }
  if (bytes <= standardStorageBytes && !freeStorage_.empty()) {
    Storage* s = freeStorage_.back();
    freeStorage_.pop_back();
    s->refs = 1;
    return s;
  }
  uint32_t capacity = std::max(bytes, standardStorageBytes);
  auto* s = static_cast<Storage*>(::operator new(sizeof(Storage) + capacity));
  s->refs = 1;
  s->capacity = capacity;
  ++storagesAllocated_;
  return s;
}

void Pkt::Manager::storageRelease(Storage* s) {
  if (--s->refs) return;
  if (!exactStorage && s->capacity == standardStorageBytes && freeStorage_.size() < maxPooled) {
    freeStorage_.push_back(s);
    return;
  }
  --storagesAllocated_;
  ::operator delete(s);
}

void* Pkt::Manager::pktMemNew() { return pktPool_.blockNew(); }

void Pkt::Manager::pktMemFree(void* p) { pktPool_.blockDel(p); }

Kiv::Ptr<Pkt> Pkt::Manager::newPkt() {
  return Kiv::Ptr<Pkt>(
      new Pkt(this, storageNew(exactStorage ? standardHeadroom : standardStorageBytes), standardHeadroom, 0));
}

Kiv::Ptr<Pkt> Pkt::Manager::newPkt(std::span<const uint8_t> frame) {
  uint16_t len = static_cast<uint16_t>(std::min<size_t>(frame.size(), 0xffff));
  Kiv::Ptr<Pkt> p(new Pkt(this, storageNew(standardHeadroom + len), standardHeadroom, len));
  if (len) std::memcpy(p->data(), frame.data(), len);
  return p;
}

Kiv::Ptr<Pkt> Pkt::Manager::newPkt(uint16_t len) {
  Kiv::Ptr<Pkt> p(new Pkt(this, storageNew(standardHeadroom + len), standardHeadroom, len));
  std::memset(p->data(), 0, len);
  return p;
}

Kiv::Ptr<Pkt> Pkt::Manager::newShallowCopy(const Kiv::Ptr<Pkt>& pkt) {
  ++pkt->storage_->refs;
  Kiv::Ptr<Pkt> p(new Pkt(this, pkt->storage_, pkt->headroom(), pkt->len()));
  p->beginOffset_ = pkt->beginOffset_;
  p->endOffset_ = pkt->endOffset_;
  return p;
}

Pkt::Manager& globalPktManager() {
  // Never destroyed: packets may still be released by static destructors elsewhere.
  static Pkt::Manager* manager = new Pkt::Manager;
  return *manager;
}

}  // namespace Lomax
