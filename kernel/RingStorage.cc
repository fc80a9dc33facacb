// The default ring storage: zeroed process memory, gone with the process.
#include "kernel/RingStorage.h"

#include <vector>

namespace Vellum {

namespace {

class MemoryRingStorage : public RingStorage {
 public:
  explicit MemoryRingStorage(size_t bytes) : words_((bytes + 7) / 8), size_(bytes) {}
  uint8_t* bytes() override { return reinterpret_cast<uint8_t*>(words_.data()); }
  size_t size() const override { return size_; }

 private:
  std::vector<uint64_t> words_;  // words keep the slots' sequence numbers aligned
  size_t size_;
};

class MemoryRingStorageFactory : public RingStorageFactory {
 public:
  std::unique_ptr<RingStorage> storage(const std::string&, size_t bytes) override {
    return std::make_unique<MemoryRingStorage>(bytes);
  }
};

MemoryRingStorageFactory memoryFactory;
RingStorageFactory* factory = &memoryFactory;

}  // namespace

void ringStorageFactoryIs(RingStorageFactory* f) { factory = f ? f : &memoryFactory; }

RingStorageFactory& ringStorageFactory() { return *factory; }

}  // namespace Vellum
