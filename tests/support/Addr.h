// Addresses from text for tests. A text that is no address is the test's own mistake: it throws, so
// the test fails where it was written instead of going on with 0.0.0.0.
#pragma once

#include <stdexcept>
#include <string>

#include "net/IpAddr.h"

namespace TestSupport {

inline Lomax::IpAddr ipAddr(const char* text) {
  Lomax::IpAddr a;
  if (!Lomax::IpAddr::parse(text, a)) throw std::invalid_argument(std::string("not an address: ") + text);
  return a;
}

}  // namespace TestSupport
