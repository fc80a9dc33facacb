// Creating, sizing and mapping the ring trace file.
#include "platform/MappedRingStorage.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace Platform {

std::unique_ptr<MappedRingStorage> MappedRingStorage::open(const std::string& path, size_t bytes) {
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return nullptr;
  void* mem = MAP_FAILED;
  if (::ftruncate(fd, static_cast<off_t>(bytes)) == 0) {
    mem = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  }
  ::close(fd);  // the mapping keeps the file
  if (mem == MAP_FAILED) return nullptr;
  return std::unique_ptr<MappedRingStorage>(new MappedRingStorage(static_cast<uint8_t*>(mem), bytes));
}

MappedRingStorage::~MappedRingStorage() { ::munmap(bytes_, size_); }

std::string ringFilePath(const std::string& name) {
  const char* dir = std::getenv("VELLUMDIR");
  if (dir && *dir) return std::string(dir) + "/" + name + ".vl";
  return name + "-" + std::to_string(::getpid()) + ".vl";
}

std::unique_ptr<Vellum::RingStorage> MappedRingStorageFactory::storage(const std::string& name,
                                                                       size_t bytes) {
  return MappedRingStorage::open(ringFilePath(name), bytes);
}

void installMappedRingStorage() {
  static MappedRingStorageFactory factory;
  Vellum::ringStorageFactoryIs(&factory);
}

}  // namespace Platform
