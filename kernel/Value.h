// Seconds, hashing of keys, and the text and binary forms of attribute values (ValueTraits).
// A value type used as a key provides hash() and operator==; a value type that is reflected
// (replicated, dumped, debugged) specialises ValueTraits.
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

#include "kernel/String.h"

namespace Kiv {

// Seconds since the system clock's epoch. Infinity (anything above the largest double) is "never".
using Seconds = double;
inline constexpr Seconds infinity = std::numeric_limits<double>::infinity();
inline constexpr bool isNever(Seconds t) { return t > std::numeric_limits<double>::max(); }
// NaN compares false with everything and negative infinity comes before every time: neither can be
// ordered among wake-ups, so neither is a time.
inline constexpr bool isOrderedTime(Seconds t) {
  return t == t && t >= std::numeric_limits<double>::lowest();
}
// The range text of a time that is not one.
inline constexpr const char* secondsRangeText = "Seconds::value NaN or -inf not allowed";

inline uint64_t mixHash(uint64_t x) {
  x ^= x >> 33;
  x *= 0xff51afd7ed558ccdull;
  x ^= x >> 33;
  x *= 0xc4ceb9fe1a85ec53ull;
  return x ^ (x >> 33);
}

template <class K>
uint64_t hashOf(const K& k) {
  if constexpr (std::is_integral_v<K> || std::is_enum_v<K>) {
    return mixHash(static_cast<uint64_t>(k));
  } else {
    return k.hash();
  }
}

// Text and binary forms. Binary is little-endian, fixed size for scalars, length-prefixed for strings.
template <class T, class Enable = void>
struct ValueTraits;

namespace detail {
template <class T>
void putRaw(std::string& out, const T& v) {
  out.append(reinterpret_cast<const char*>(&v), sizeof v);
}
template <class T>
bool getRaw(std::string_view& in, T& v) {
  if (in.size() < sizeof v) return false;
  std::memcpy(&v, in.data(), sizeof v);
  in.remove_prefix(sizeof v);
  return true;
}
bool parseInteger(std::string_view s, long long& out);
bool parseUnsigned(std::string_view s, unsigned long long& out);
[[nodiscard]] bool parseDouble(std::string_view s, double& out);
std::string doubleText(double v);
}  // namespace detail

template <>
struct ValueTraits<bool> {
  static constexpr const char* typeName = "bool";
  static std::string text(bool v) { return v ? "true" : "false"; }
  static bool fromText(std::string_view s, bool& v) {
    if (s == "true" || s == "1") return v = true, true;
    if (s == "false" || s == "0") return v = false, true;
    return false;
  }
  static void binary(std::string& out, bool v) { out.push_back(v ? 1 : 0); }
  static bool fromBinary(std::string_view& in, bool& v) {
    uint8_t b;
    if (!detail::getRaw(in, b)) return false;
    v = b != 0;
    return true;
  }
};

template <class T>
struct ValueTraits<
    T, std::enable_if_t<(std::is_integral_v<T> && !std::is_same_v<T, bool>) || std::is_enum_v<T>>> {
  static constexpr const char* typeName = std::is_enum_v<T> ? "enum" : (std::is_signed_v<T> ? "int" : "uint");
  static std::string text(T v) {
    if constexpr (std::is_enum_v<T>) {
      return std::to_string(static_cast<long long>(v));
    } else {
      return std::to_string(v);
    }
  }
  static bool fromText(std::string_view s, T& v) {
    using U =
        typename std::conditional_t<std::is_enum_v<T>, std::underlying_type<T>, std::type_identity<T>>::type;
    if constexpr (std::is_signed_v<U>) {
      long long x;
      if (!detail::parseInteger(s, x) || x < std::numeric_limits<U>::min() ||
          x > std::numeric_limits<U>::max())
        return false;
      v = static_cast<T>(x);
    } else {
      unsigned long long x;
      if (!detail::parseUnsigned(s, x) || x > std::numeric_limits<U>::max()) return false;
      v = static_cast<T>(x);
    }
    return true;
  }
  static void binary(std::string& out, T v) { detail::putRaw(out, v); }
  static bool fromBinary(std::string_view& in, T& v) { return detail::getRaw(in, v); }
};

template <>
struct ValueTraits<double> {
  static constexpr const char* typeName = "double";
  static std::string text(double v) { return detail::doubleText(v); }
  static bool fromText(std::string_view s, double& v) { return detail::parseDouble(s, v); }
  static void binary(std::string& out, double v) { detail::putRaw(out, v); }
  static bool fromBinary(std::string_view& in, double& v) { return detail::getRaw(in, v); }
};

template <>
struct ValueTraits<String> {
  static constexpr const char* typeName = "string";
  static std::string text(const String& v) { return v.stdString(); }
  static bool fromText(std::string_view s, String& v) {
    v = String(s);
    return true;
  }
  static void binary(std::string& out, const String& v) {
    detail::putRaw(out, static_cast<uint32_t>(v.size()));
    out.append(v.view());
  }
  static bool fromBinary(std::string_view& in, String& v) {
    uint32_t n;
    if (!detail::getRaw(in, n) || in.size() < n) return false;
    v = String(in.substr(0, n));
    in.remove_prefix(n);
    return true;
  }
};

}  // namespace Kiv
