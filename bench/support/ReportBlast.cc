// Sends IGMPv2 reports, one per group of a range, paced, from the interface eth0 of the namespace it
// runs in: the load generator of bench/e2e. Frames are built before the clock starts and go out by
// sendmmsg in batches of up to 64.
//
//   ReportBlast FIRST COUNT RATE
//
// Prints the start time (CLOCK_MONOTONIC seconds) when it starts sending, then the offered rate.
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

namespace {

double now() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

uint16_t checksum(const uint8_t* p, size_t n) {
  uint32_t s = 0;
  for (size_t i = 0; i + 1 < n; i += 2) s += static_cast<uint32_t>(p[i] << 8 | p[i + 1]);
  while (s >> 16) s = (s & 0xffff) + (s >> 16);
  return static_cast<uint16_t>(~s);
}

// The group of report i, as bench/e2e names it: 239.(100 + i / 65536).(i / 256 % 256).(i % 256).
std::array<uint8_t, 4> groupOf(uint32_t i) {
  return {239, static_cast<uint8_t>(100 + (i >> 16)), static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
}

std::vector<uint8_t> reportFrame(const std::array<uint8_t, 6>& src, uint32_t i) {
  const auto g = groupOf(i);
  std::vector<uint8_t> f = {1, 0, 0x5e, static_cast<uint8_t>(g[1] & 0x7f), g[2], g[3]};
  f.insert(f.end(), src.begin(), src.end());
  f.insert(f.end(), {0x08, 0x00});
  // IPv4 with the router alert option, TTL 1, protocol 2, from 10.77.0.1.
  std::vector<uint8_t> ip = {0x46, 0xc0, 0, 32, 0,    0,    0,    0,    1,    2,    0, 0,
                             10,   77,   0, 1,  g[0], g[1], g[2], g[3], 0x94, 0x04, 0, 0};
  const uint16_t ipSum = checksum(ip.data(), ip.size());
  ip[10] = static_cast<uint8_t>(ipSum >> 8);
  ip[11] = static_cast<uint8_t>(ipSum);
  std::vector<uint8_t> igmp = {0x16, 0, 0, 0, g[0], g[1], g[2], g[3]};
  const uint16_t igmpSum = checksum(igmp.data(), igmp.size());
  igmp[2] = static_cast<uint8_t>(igmpSum >> 8);
  igmp[3] = static_cast<uint8_t>(igmpSum);
  f.insert(f.end(), ip.begin(), ip.end());
  f.insert(f.end(), igmp.begin(), igmp.end());
  return f;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: ReportBlast FIRST COUNT RATE\n");
    return 2;
  }
  const uint32_t first = static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10));
  const uint32_t count = static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10));
  const double rate = std::strtod(argv[3], nullptr);
  std::array<uint8_t, 6> mac{};
  std::ifstream in("/sys/class/net/eth0/address");
  std::string text;
  in >> text;
  unsigned m[6];
  if (std::sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x", &m[0], &m[1], &m[2], &m[3], &m[4], &m[5]) != 6) {
    std::fprintf(stderr, "ReportBlast: no eth0 here\n");
    return 1;
  }
  for (int k = 0; k < 6; ++k) mac[static_cast<size_t>(k)] = static_cast<uint8_t>(m[k]);

  const int fd = socket(AF_PACKET, SOCK_RAW, 0);
  sockaddr_ll sll{};
  sll.sll_family = AF_PACKET;
  sll.sll_ifindex = static_cast<int>(if_nametoindex("eth0"));
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&sll), sizeof sll) != 0) {
    std::perror("ReportBlast: socket");
    return 1;
  }
  const int sndbuf = 1 << 22;
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sndbuf, sizeof sndbuf);

  std::vector<std::vector<uint8_t>> frames;
  frames.reserve(count);
  for (uint32_t i = 0; i < count; ++i) frames.push_back(reportFrame(mac, first + i));
  std::vector<iovec> iov(count);
  std::vector<mmsghdr> msgs(count);
  for (uint32_t i = 0; i < count; ++i) {
    iov[i] = {frames[i].data(), frames[i].size()};
    msgs[i].msg_hdr.msg_iov = &iov[i];
    msgs[i].msg_hdr.msg_iovlen = 1;
  }

  const double start = now();
  std::printf("%.6f\n", start);
  std::fflush(stdout);
  uint32_t sent = 0;
  while (sent < count) {
    // Send what is due, up to 64 at a time; otherwise wait a little.
    const double due = (now() - start) * rate;
    const uint32_t upTo = std::min<uint32_t>(count, static_cast<uint32_t>(due) + 1);
    if (sent < upTo) {
      const int n = sendmmsg(fd, &msgs[sent], std::min<uint32_t>(64, upTo - sent), 0);
      if (n > 0) sent += static_cast<uint32_t>(n);
    } else {
      const timespec nap{0, 20000};
      nanosleep(&nap, nullptr);
    }
  }
  std::printf("%.1f\n", count / (now() - start));
  close(fd);
  return 0;
}
