// The socket's set-up, request framing, the receive loop, and the message and attribute walks.
#include "platform/NetlinkSocket.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "kernel/Exception.h"

namespace Platform {

namespace {
[[noreturn]] void fail(const char* what) {
  throw Kiv::Exception(std::string("rtnetlink: ") + what + ": " + std::strerror(errno));
}
}  // namespace

NetlinkSocket::NetlinkSocket(std::initializer_list<unsigned> groups) {
  fd_ = socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE);
  if (fd_ < 0) fail("socket");
  sockaddr_nl addr{};
  addr.nl_family = AF_NETLINK;
  // A large buffer makes a burst of link events less likely to overrun it; an overrun costs a resync.
  const int rcvbuf = 4 << 20;
  const int on = 1;
  setsockopt(fd_, SOL_SOCKET, SO_RCVBUFFORCE, &rcvbuf, sizeof rcvbuf);
  setsockopt(fd_, SOL_NETLINK, NETLINK_EXT_ACK, &on, sizeof on);
  if (bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
    close(fd_);
    fail("bind");
  }
  for (unsigned group : groups) {
    if (setsockopt(fd_, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof group) < 0) {
      close(fd_);
      fail("NETLINK_ADD_MEMBERSHIP");
    }
  }
}

NetlinkSocket::~NetlinkSocket() { close(fd_); }

uint32_t NetlinkSocket::request(uint16_t type, uint16_t flags, std::span<const uint8_t> body) {
  std::vector<uint8_t> msg(NLMSG_LENGTH(body.size()));
  auto* hdr = reinterpret_cast<nlmsghdr*>(msg.data());
  hdr->nlmsg_len = static_cast<uint32_t>(msg.size());
  hdr->nlmsg_type = type;
  hdr->nlmsg_flags = static_cast<uint16_t>(flags | NLM_F_REQUEST);
  // Sequence 0 is what events carry: never used for a request.
  if (++seq_ == 0) ++seq_;
  hdr->nlmsg_seq = seq_;
  if (!body.empty()) std::memcpy(NLMSG_DATA(hdr), body.data(), body.size());
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  if (sendto(fd_, msg.data(), msg.size(), 0, reinterpret_cast<sockaddr*>(&kernel), sizeof kernel) < 0)
    return 0;
  return seq_;
}

bool NetlinkSocket::readAll(const std::function<void(std::span<const uint8_t>)>& fn) {
  for (;;) {
    const ssize_t n = recv(fd_, buf_.data(), buf_.size(), MSG_DONTWAIT);
    if (n > 0) {
      fn(std::span<const uint8_t>(buf_.data(), static_cast<size_t>(n)));
      continue;
    }
    if (n < 0 && errno == ENOBUFS) return false;
    if (n < 0 && errno == EINTR) continue;
    return true;
  }
}

void netlinkMsgsEach(std::span<const uint8_t> bytes, const std::function<void(const NetlinkMsg&)>& fn) {
  while (bytes.size() >= sizeof(nlmsghdr)) {
    nlmsghdr hdr;
    std::memcpy(&hdr, bytes.data(), sizeof hdr);
    if (hdr.nlmsg_len < sizeof(nlmsghdr) || hdr.nlmsg_len > bytes.size()) return;
    fn(NetlinkMsg{hdr.nlmsg_type, hdr.nlmsg_flags, hdr.nlmsg_seq,
                  bytes.subspan(NLMSG_HDRLEN, hdr.nlmsg_len - NLMSG_HDRLEN)});
    bytes = bytes.subspan(std::min<size_t>(NLMSG_ALIGN(hdr.nlmsg_len), bytes.size()));
  }
}

void netlinkAttrsEach(std::span<const uint8_t> bytes,
                      const std::function<void(uint16_t, std::span<const uint8_t>)>& fn) {
  while (bytes.size() >= sizeof(nlattr)) {
    nlattr attr;
    std::memcpy(&attr, bytes.data(), sizeof attr);
    if (attr.nla_len < sizeof(nlattr) || attr.nla_len > bytes.size()) return;
    fn(static_cast<uint16_t>(attr.nla_type & NLA_TYPE_MASK),
       bytes.subspan(NLA_HDRLEN, attr.nla_len - NLA_HDRLEN));
    bytes = bytes.subspan(std::min<size_t>(NLA_ALIGN(attr.nla_len), bytes.size()));
  }
}

}  // namespace Platform
