// The socket binds to one interface, ignores what it sends itself, and asks for the tag as ancillary data.
#include "tests/support/RawPort.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>

namespace TestNet {

RawPort::RawPort(const NetNs& ns, const std::string& intf) {
  ifindex_ = ns.ifindex(intf);
  NetNs::Inside in(ns);
  fd_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
  const int on = 1;
  sockaddr_ll addr{};
  addr.sll_family = AF_PACKET;
  addr.sll_protocol = htons(ETH_P_ALL);
  addr.sll_ifindex = ifindex_;
  if (fd_ < 0 || !ifindex_ || setsockopt(fd_, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on) < 0 ||
      setsockopt(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) < 0 ||
      bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
    if (fd_ >= 0) close(fd_);
    throw std::runtime_error("raw port on " + intf + ": " + std::strerror(errno));
  }
}

RawPort::~RawPort() { close(fd_); }

bool RawPort::send(std::span<const uint8_t> frame) {
  return ::send(fd_, frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size());
}

uint64_t RawPort::sendBurst(std::span<const uint8_t> frame, uint64_t count) {
  constexpr unsigned batch = 64;
  iovec iov{const_cast<uint8_t*>(frame.data()), frame.size()};
  mmsghdr msgs[batch]{};
  for (mmsghdr& m : msgs) {
    m.msg_hdr.msg_iov = &iov;
    m.msg_hdr.msg_iovlen = 1;
  }
  uint64_t sent = 0;
  while (sent < count) {
    const int n = sendmmsg(fd_, msgs, static_cast<unsigned>(std::min<uint64_t>(batch, count - sent)), 0);
    if (n <= 0) break;
    sent += static_cast<uint64_t>(n);
  }
  return sent;
}

std::optional<std::vector<uint8_t>> RawPort::recv(double limitSeconds) {
  pollfd p{fd_, POLLIN, 0};
  if (poll(&p, 1, static_cast<int>(std::ceil(limitSeconds * 1000))) <= 0) return std::nullopt;
  std::vector<uint8_t> frame(65536);
  alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(tpacket_auxdata))];
  iovec iov{frame.data(), frame.size()};
  msghdr msg{};
  msg.msg_iov = &iov;
  msg.msg_iovlen = 1;
  msg.msg_control = control;
  msg.msg_controllen = sizeof control;
  const ssize_t n = recvmsg(fd_, &msg, MSG_DONTWAIT);
  if (n < 0) return std::nullopt;
  frame.resize(static_cast<size_t>(n));
  for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
    if (c->cmsg_level != SOL_PACKET || c->cmsg_type != PACKET_AUXDATA) continue;
    tpacket_auxdata aux;
    std::memcpy(&aux, CMSG_DATA(c), sizeof aux);
    if (!(aux.tp_status & TP_STATUS_VLAN_VALID) || frame.size() < 12) continue;
    const uint16_t tpid = aux.tp_status & TP_STATUS_VLAN_TPID_VALID ? aux.tp_vlan_tpid : ETH_P_8021Q;
    const uint8_t tag[4] = {static_cast<uint8_t>(tpid >> 8), static_cast<uint8_t>(tpid),
                            static_cast<uint8_t>(aux.tp_vlan_tci >> 8),
                            static_cast<uint8_t>(aux.tp_vlan_tci)};
    frame.insert(frame.begin() + 12, tag, tag + 4);
  }
  return frame;
}

}  // namespace TestNet
