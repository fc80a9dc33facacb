// The bytes under a ring trace. The kernel keeps a ring in process memory; platform/ installs a
// factory that maps a file instead, so a crash leaves the ring on disk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Vellum {

class RingStorage {
 public:
  virtual ~RingStorage() = default;
  // Zero-filled when new, and 8-byte aligned.
  virtual uint8_t* bytes() = 0;
  virtual size_t size() const = 0;
};

class RingStorageFactory {
 public:
  virtual ~RingStorageFactory() = default;
  // `name` is the ring's name; the factory decides where it lives. nullptr when it can't be had.
  virtual std::unique_ptr<RingStorage> storage(const std::string& name, size_t bytes) = 0;
};

// nullptr restores the in-process memory factory.
void ringStorageFactoryIs(RingStorageFactory* factory);
RingStorageFactory& ringStorageFactory();

}  // namespace Vellum
