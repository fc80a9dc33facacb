// Allocation counting through a replaced global operator new, and RESULT line collection.
#include "bench/support/BenchSupport.h"

#include <malloc.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

namespace {
std::atomic<uint64_t> gAllocs{0};
std::atomic<int64_t> gBytes{0};
struct Line {
  std::string name;
  double value;
  std::string unit;
};
std::vector<Line>& lines() {
  static std::vector<Line> l;
  return l;
}
void* counted(size_t n) {
  gAllocs.fetch_add(1, std::memory_order_relaxed);
  void* p = std::malloc(n ? n : 1);
  if (!p) throw std::bad_alloc();
  gBytes.fetch_add(static_cast<int64_t>(malloc_usable_size(p)), std::memory_order_relaxed);
  return p;
}
void uncounted(void* p) {
  if (!p) return;
  gBytes.fetch_sub(static_cast<int64_t>(malloc_usable_size(p)), std::memory_order_relaxed);
  std::free(p);
}
}  // namespace

void* operator new(size_t n) { return counted(n); }
void* operator new[](size_t n) { return counted(n); }
void operator delete(void* p) noexcept { uncounted(p); }
void operator delete[](void* p) noexcept { uncounted(p); }
void operator delete(void* p, size_t) noexcept { uncounted(p); }
void operator delete[](void* p, size_t) noexcept { uncounted(p); }

namespace Bench {

uint64_t allocations() { return gAllocs.load(std::memory_order_relaxed); }
int64_t liveBytes() { return gBytes.load(std::memory_order_relaxed); }

void result(const std::string& name, double value, const std::string& unit) {
  for (auto& l : lines()) {
    if (l.name == name) {
      l.value = value, l.unit = unit;
      return;
    }
  }
  lines().push_back({name, value, unit});
}

void printResults() {
  for (auto& l : lines()) std::printf("RESULT %s %.6g %s\n", l.name.c_str(), l.value, l.unit.c_str());
  std::fflush(stdout);
}

}  // namespace Bench
