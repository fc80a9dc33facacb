// Creating, sizing and mapping the ring trace file.
#include "platform/MappedRingStorage.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace Platform {

std::string previousRingFilePath(const std::string& path) {
  const std::string stem = path.ends_with(".vl") ? path.substr(0, path.size() - 3) : path;
  return stem + "-prev-" + std::to_string(::time(nullptr)) + "-" + std::to_string(::getpid()) + ".vl";
}

std::unique_ptr<MappedRingStorage> MappedRingStorage::open(const std::string& path, size_t bytes) {
  // A file already there is the record of an earlier agent, or the live ring of another opener: it is
  // renamed aside, whole, and the new ring starts in a file of its own.
  int fd = -1;
  for (int attempt = 0; attempt < 2 && fd < 0; ++attempt) {
    fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0 && errno == EEXIST) ::rename(path.c_str(), previousRingFilePath(path).c_str());
  }
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
