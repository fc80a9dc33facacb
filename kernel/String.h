// Immutable shared strings with a precomputed hash; Name is the same used as a key.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace Kiv {

uint64_t hashBytes(const void* data, size_t len);

class String {
 public:
  String() noexcept : rep_(nullptr) {}
  String(const char* s) : String(std::string_view(s ? s : "")) {}
  String(std::string_view s);
  String(const std::string& s) : String(std::string_view(s)) {}
  String(const String& o) noexcept : rep_(o.rep_) { ref(); }
  String(String&& o) noexcept : rep_(o.rep_) { o.rep_ = nullptr; }
  ~String() { unref(); }
  String& operator=(const String& o) noexcept {
    String(o).swap(*this);
    return *this;
  }
  String& operator=(String&& o) noexcept {
    String(static_cast<String&&>(o)).swap(*this);
    return *this;
  }

  const char* charPtr() const noexcept { return rep_ ? rep_->data : ""; }
  size_t size() const noexcept { return rep_ ? rep_->len : 0; }
  bool empty() const noexcept { return size() == 0; }
  std::string stdString() const { return std::string(view()); }
  std::string_view view() const noexcept { return {charPtr(), size()}; }
  const char* begin() const noexcept { return charPtr(); }
  const char* end() const noexcept { return charPtr() + size(); }
  String substr(size_t pos, size_t n = std::string_view::npos) const;
  uint64_t hash() const noexcept { return rep_ ? rep_->hash : emptyHash(); }

  String operator+(const String& o) const;
  String& operator+=(const String& o) { return *this = *this + o; }

  bool operator==(const String& o) const noexcept {
    return rep_ == o.rep_ || (hash() == o.hash() && view() == o.view());
  }
  bool operator<(const String& o) const noexcept { return view() < o.view(); }
  void swap(String& o) noexcept { std::swap(rep_, o.rep_); }

 private:
  struct Rep {
    uint32_t refs;
    uint32_t len;
    uint64_t hash;
    char data[1];
  };
  static uint64_t emptyHash() noexcept;
  void ref() const noexcept {
    if (rep_) ++rep_->refs;
  }
  void unref() noexcept;
  Rep* rep_;
};

using Name = String;

inline std::ostream& operator<<(std::ostream& os, const String& s) { return os << s.view(); }

// printf into a String.
String format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

}  // namespace Kiv
