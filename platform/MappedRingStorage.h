// Ring trace storage in a memory-mapped file, so that what was written survives a crash of the
// process: "<VELLUMDIR>/<name>.vl" when VELLUMDIR is set, else "<name>-<pid>.vl" in the current
// directory. The ring always opens a new file: one already at the path (a crashed agent's record, or a
// live writer's ring) is renamed aside to previousRingFilePath(path), its bytes untouched.
#pragma once

#include <string>

#include "kernel/RingStorage.h"

namespace Platform {

class MappedRingStorage : public Vellum::RingStorage {
 public:
  // nullptr when the file can't be created, sized or mapped.
  static std::unique_ptr<MappedRingStorage> open(const std::string& path, size_t bytes);
  ~MappedRingStorage() override;
  MappedRingStorage(const MappedRingStorage&) = delete;
  MappedRingStorage& operator=(const MappedRingStorage&) = delete;

  uint8_t* bytes() override { return bytes_; }
  size_t size() const override { return size_; }

 private:
  MappedRingStorage(uint8_t* bytes, size_t size) : bytes_(bytes), size_(size) {}
  uint8_t* bytes_;
  size_t size_;
};

class MappedRingStorageFactory : public Vellum::RingStorageFactory {
 public:
  std::unique_ptr<Vellum::RingStorage> storage(const std::string& name, size_t bytes) override;
};

std::string ringFilePath(const std::string& name);
// "<path without .vl>-prev-<unix seconds>-<pid of the new opener>.vl".
std::string previousRingFilePath(const std::string& path);

// Makes every ring opened from now on a mapped file.
void installMappedRingStorage();

}  // namespace Platform
