// A host's end of a test link: a plain packet socket on one interface that sends frames as given and
// receives every frame that arrives there, its 802.1Q tag (which Linux takes off) put back in place.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tests/support/NetNs.h"

namespace TestNet {

class RawPort {
 public:
  RawPort(const NetNs& ns, const std::string& intf);
  ~RawPort();
  RawPort(const RawPort&) = delete;
  RawPort& operator=(const RawPort&) = delete;

  int fd() const { return fd_; }
  int ifindex() const { return ifindex_; }
  bool send(std::span<const uint8_t> frame);
  // Sends count copies of frame in batches of one system call; returns how many were taken.
  uint64_t sendBurst(std::span<const uint8_t> frame, uint64_t count);
  // The next frame to arrive within limitSeconds, or nothing.
  std::optional<std::vector<uint8_t>> recv(double limitSeconds = 5);

 private:
  int fd_ = -1;
  int ifindex_ = 0;
};

}  // namespace TestNet
