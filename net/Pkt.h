// A reference-counted Ethernet frame with a movable span on it, and the manager that pools packets.
// Storage is shared between shallow copies; whoever changes bytes in place first takes its own copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "kernel/BlockPool.h"
#include "kernel/Exception.h"
#include "kernel/Ptr.h"
#include "kernel/String.h"

namespace Lomax {

class Pkt : public Kiv::PtrInterface {
 public:
  class Manager;
  // A reference-counted block of bytes; the frame lies inside it with room in front for a tag.
  struct Storage;
  struct Buffer {
    uint8_t* data = nullptr;
    uint32_t bytes = 0;
  };

  Pkt(const Pkt&) = delete;
  Pkt& operator=(const Pkt&) = delete;
  ~Pkt() override;

  uint8_t* data() const { return current_.data; }
  uint16_t len() const { return current_.bytes; }
  // Sets the frame's length within the storage's room; the bytes are not cleared.
  void lenIs(uint16_t len);
  uint32_t room() const { return buffer_[1].bytes; }
  uint32_t headroom() const { return buffer_[0].bytes; }
  // All bytes held, from the first slot in use; the frame's room and the room in front of it.
  uint32_t bytes() const;

  int16_t beginOffset() const { return beginOffset_; }
  uint16_t endOffset() const { return endOffset_; }
  void beginOffsetIs(int16_t v) {
    beginOffset_ = v;
    KIV_ASSERT(checkOffsetBounds());
  }
  void beginOffsetInc(int16_t v) { beginOffsetIs(static_cast<int16_t>(beginOffset_ + v)); }
  void endOffsetIs(uint16_t v) {
    endOffset_ = v;
    KIV_ASSERT(checkOffsetBounds());
  }
  void endOffsetInc(uint16_t v) { endOffsetIs(static_cast<uint16_t>(endOffset_ + v)); }
  // The span never reaches outside the storage: in front no further than the headroom, and its two
  // ends never cross.
  bool checkOffsetBounds() const {
    return beginOffset_ >= -static_cast<int32_t>(headroom()) && beginOffset_ + endOffset_ <= current_.bytes;
  }
  uint8_t* offsetFront() const { return current_.data + beginOffset_; }
  uint32_t offsetBytes() const { return static_cast<uint32_t>(current_.bytes - beginOffset_ - endOffset_); }

  // Moves the frame's first byte by n within the storage (n < 0 claims headroom); the span keeps
  // its offsets from the new front.
  void frontInc(int n);
  // True while a shallow copy shares the bytes.
  bool isShared() const;
  // Gives this packet bytes of its own (with at least minHeadroom in front) if they are shared or the
  // headroom is short; returns how far the frame's bytes moved, so that views into them can follow.
  ptrdiff_t doUnshare(uint32_t minHeadroom = 0);

  // "begin=<beginOffset> end=<endOffset> bytes=<hex of the frame>"; stringValueIs reads it back exactly,
  // or with keepOffsets false as a frame whose span is the whole frame. False, and the packet as it
  // was, for text of another shape.
  Kiv::String stringValue() const;
  [[nodiscard]] bool stringValueIs(const Kiv::String& text, bool keepOffsets);

  // Packets come from the manager's pool of packet objects.
  static void* operator new(size_t size);
  static void operator delete(void* p, size_t size);

 private:
  Pkt(Manager* manager, Storage* storage, uint32_t headroom, uint16_t len);
  void storageIs(Storage* storage, uint32_t headroom, uint16_t len);
  // Places the frame at headroom bytes into the storage.
  void frameAt(uint32_t headroom, uint16_t len);

  Manager* manager_;
  Storage* storage_;
  // Slot 0 is the room in front of the frame, slot 1 the frame and the room behind it.
  Buffer buffer_[2];
  uint8_t firstBuffer_ = 0;
  struct {
    uint8_t* data;
    uint16_t bytes;
  } current_;
  int16_t beginOffset_ = 0;
  uint16_t endOffset_ = 0;
};

// Makes packets on the agent's one thread. Freed packet objects and standard-size storage go back to
// pools, so the receive path does not call the allocator once the pools are warm.
class Pkt::Manager {
 public:
  static constexpr uint32_t standardStorageBytes = 2048;
  static constexpr uint32_t standardHeadroom = 64;
  // Beyond this many idle buffers the pool gives memory back.
  static constexpr size_t maxPooled = 4096;
  // In fuzz and sanitizer builds every frame has storage of exactly its size, unpooled, so that the
  // address sanitizer sees a read behind a frame's last byte.
#ifdef IGMPSNOOP_EXACT_PKT_STORAGE
  static constexpr bool exactStorage = true;
#else
  static constexpr bool exactStorage = false;
#endif

  Manager() = default;
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;
  ~Manager();

  // An empty frame in standard storage.
  Kiv::Ptr<Pkt> newPkt();
  // A frame holding a copy of the given bytes.
  Kiv::Ptr<Pkt> newPkt(std::span<const uint8_t> frame);
  // A frame of len zeroed bytes.
  Kiv::Ptr<Pkt> newPkt(uint16_t len);
  // Shares the bytes of pkt and starts with its offsets, which are its own from then on.
  Kiv::Ptr<Pkt> newShallowCopy(const Kiv::Ptr<Pkt>& pkt);

  size_t pooledStorages() const { return freeStorage_.size(); }
  size_t storagesAllocated() const { return storagesAllocated_; }

 private:
  friend class Pkt;
  Storage* storageNew(uint32_t bytes);
  void storageRelease(Storage* s);
  void* pktMemNew();
  void pktMemFree(void* p);

  std::vector<Storage*> freeStorage_;
  Kiv::BlockPool pktPool_{sizeof(Pkt), maxPooled};
  size_t storagesAllocated_ = 0;
};

Pkt::Manager& globalPktManager();

}  // namespace Lomax
