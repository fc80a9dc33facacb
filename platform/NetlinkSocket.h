// A non-blocking rtnetlink socket: numbered requests out, and everything the kernel queues read in
// bulk; with a bounds-checked walk over netlink messages and attributes, which come from the kernel
// and are checked before they are read like any other input.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <span>
#include <vector>

namespace Platform {

class NetlinkSocket {
 public:
  // Joins the given rtnetlink multicast groups; throws Kiv::Exception when Linux refuses. The socket
  // lives in the network namespace of the calling thread.
  explicit NetlinkSocket(std::initializer_list<unsigned> groups);
  ~NetlinkSocket();
  NetlinkSocket(const NetlinkSocket&) = delete;
  NetlinkSocket& operator=(const NetlinkSocket&) = delete;

  int fd() const { return fd_; }
  // Sends a request (NLM_F_REQUEST is added to flags) with this body after the header; returns its
  // sequence number, or 0 when the kernel refused it.
  uint32_t request(uint16_t type, uint16_t flags, std::span<const uint8_t> body);
  // Hands every datagram queued to fn. False when the kernel had to drop messages for want of room:
  // what they said is lost, and the caller must read the state afresh.
  bool readAll(const std::function<void(std::span<const uint8_t>)>& fn);

 private:
  int fd_ = -1;
  uint32_t seq_ = 0;
  // Large enough for any datagram the kernel builds for a dump.
  std::vector<uint8_t> buf_ = std::vector<uint8_t>(64 << 10);
};

// One message of a datagram: its header fields and the bytes after the header.
struct NetlinkMsg {
  uint16_t type;
  uint16_t flags;
  uint32_t seq;
  std::span<const uint8_t> body;
};
// Calls fn for each whole message; stops at the first that does not fit.
void netlinkMsgsEach(std::span<const uint8_t> bytes, const std::function<void(const NetlinkMsg&)>& fn);
// Calls fn(type, payload) for each whole attribute, the nested and byte-order flags taken off the type.
void netlinkAttrsEach(std::span<const uint8_t> bytes,
                      const std::function<void(uint16_t, std::span<const uint8_t>)>& fn);

}  // namespace Platform
