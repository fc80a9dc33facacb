// Immutable shared strings: one allocation holding count, length, hash and bytes.
#include "kernel/String.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

namespace Kiv {

uint64_t hashBytes(const void* data, size_t len) {
  // FNV-1a, then a final mix so that the low bits spread for power-of-two tables.
  auto p = static_cast<const unsigned char*>(data);
  uint64_t h = 1469598103934665603ull;
  for (size_t i = 0; i < len; ++i) h = (h ^ p[i]) * 1099511628211ull;
  h ^= h >> 32;
  h *= 0x9e3779b97f4a7c15ull;
  return h ^ (h >> 29);
}

uint64_t String::emptyHash() noexcept {
  static const uint64_t h = hashBytes("", 0);
  return h;
}

String::String(std::string_view s) : rep_(nullptr) {
  if (s.empty()) return;
  void* mem = std::malloc(offsetof(Rep, data) + s.size() + 1);
  if (!mem) throw std::bad_alloc();
  rep_ = static_cast<Rep*>(mem);
  rep_->refs = 1;
  rep_->len = static_cast<uint32_t>(s.size());
  rep_->hash = hashBytes(s.data(), s.size());
  std::memcpy(rep_->data, s.data(), s.size());
  rep_->data[s.size()] = '\0';
}

void String::unref() noexcept {
  if (rep_ && --rep_->refs == 0) std::free(rep_);
  rep_ = nullptr;
}

String String::substr(size_t pos, size_t n) const {
  std::string_view v = view();
  if (pos > v.size()) pos = v.size();
  return String(v.substr(pos, n));
}

String String::operator+(const String& o) const {
  std::string s;
  s.reserve(size() + o.size());
  s.append(view()).append(o.view());
  return String(s);
}

String format(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  va_list ap2;
  va_copy(ap2, ap);
  char small[256];
  int n = std::vsnprintf(small, sizeof small, fmt, ap);
  va_end(ap);
  if (n < 0) {
    va_end(ap2);
    return String();
  }
  if (static_cast<size_t>(n) < sizeof small) {
    va_end(ap2);
    return String(std::string_view(small, n));
  }
  std::vector<char> big(n + 1);
  std::vsnprintf(big.data(), big.size(), fmt, ap2);
  va_end(ap2);
  return String(std::string_view(big.data(), n));
}

}  // namespace Kiv
