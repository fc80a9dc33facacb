// Blocks of one size kept for reuse by objects that are made and dropped for every packet (packets,
// flood requests), so that a warm pool never calls the allocator. One thread, like the loop.
#pragma once

#include <cstddef>
#include <new>
#include <vector>

namespace Kiv {

class BlockPool {
 public:
  // Beyond maxKept idle blocks the pool gives memory back.
  BlockPool(size_t blockBytes, size_t maxKept) : blockBytes_(blockBytes), maxKept_(maxKept) {}
  BlockPool(const BlockPool&) = delete;
  BlockPool& operator=(const BlockPool&) = delete;
  ~BlockPool() {
    for (void* p : free_) ::operator delete(p);
  }

  size_t blockBytes() const { return blockBytes_; }
  size_t blocksKept() const { return free_.size(); }

  void* blockNew() {
    if (free_.empty()) return ::operator new(blockBytes_);
    void* p = free_.back();
    free_.pop_back();
    return p;
  }
  void blockDel(void* p) {
    if (free_.size() < maxKept_) {
      free_.push_back(p);
    } else {
      ::operator delete(p);
    }
  }

 private:
  std::vector<void*> free_;
  size_t blockBytes_;
  size_t maxKept_;
};

}  // namespace Kiv
