// The classic BPF program that device packet sockets run on every frame before it reaches the agent:
// frames to 01:00:5e that carry IGMP, PIM, link-local IPv4 multicast or EtherType 0x0801 pass, once.
#pragma once

#include <array>
#include <cstdint>

namespace IgmpShim {

// One instruction, laid out as the Linux kernel's sock_filter so the platform can hand the array over
// as it is.
struct SocketFilterInsn {
  uint16_t code;
  uint8_t jt;
  uint8_t jf;
  uint32_t k;
};

struct SocketFilter {
  static constexpr uint32_t acceptLen = 65535;
  static const std::array<SocketFilterInsn, 29> program;
};

}  // namespace IgmpShim
