// The socket's set-up, the ring walk, the tag put back, and transmit through scatter-gather.
//
// Linux takes an 802.1Q tag off a received frame before any packet socket sees it: the receive path
// moves the outer tag into the socket buffer's metadata, and both the socket filter and the ring see
// the frame without it. The ring's frame header carries the tag (the same data PACKET_AUXDATA gives a
// plain socket), and the walk below writes it back in front of the EtherType. A frame that carried two
// tags thus reaches the filter with one, the inner one, still in its bytes.
#include "platform/PacketAccess.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>

#include "kernel/ActivityManager.h"
#include "kernel/Exception.h"
#include "kernel/Trace.h"
#include "net/PktVlanTag.h"

namespace Platform {

namespace {

Kiv::TraceHandle pamTrace("IgmpSnoopingPam", false);

// The kernel hands a block over when it is full or when blockTimeoutMs has passed, so under a light
// load every block holds only a few frames and the ring covers a stall of the reader of about
// blocks x blockTimeoutMs, whatever its size in bytes. Small blocks make many: 512 of them in 8 MiB
// ride out a second of a busy loop at any rate the ring's bytes allow.
constexpr uint32_t blockBytes = 16u << 10;
// A hint the kernel needs for version 3 rings; frames are packed as they come.
constexpr uint32_t frameBytesHint = 2048;

static_assert(sizeof(IgmpShim::SocketFilterInsn) == sizeof(sock_filter));
static_assert(offsetof(IgmpShim::SocketFilterInsn, k) == offsetof(sock_filter, k));

[[noreturn]] void fail(const std::string& what) {
  throw Kiv::Exception("packet access: " + what + ": " + std::strerror(errno));
}

void optionIs(int fd, int level, int name, const void* value, socklen_t len, const char* what) {
  if (setsockopt(fd, level, name, value, len) < 0) fail(what);
}

void intOptionIs(int fd, int level, int name, int value, const char* what) {
  optionIs(fd, level, name, &value, sizeof value, what);
}

}  // namespace

void PacketAccess::filterAttach(int fd, std::span<const IgmpShim::SocketFilterInsn> filter) {
  sock_fprog prog{};
  prog.len = static_cast<unsigned short>(filter.size());
  // The kernel copies the program and never writes through this pointer.
  prog.filter = reinterpret_cast<sock_filter*>(const_cast<IgmpShim::SocketFilterInsn*>(filter.data()));
  optionIs(fd, SOL_SOCKET, SO_ATTACH_FILTER, &prog, sizeof prog, "SO_ATTACH_FILTER");
}

PacketAccess::PacketAccess(const Settings& settings, RxHandler handler)
    : maxRxPktData_(settings.maxRxPktData), handler_(std::move(handler)) {
  // Protocol 0 receives nothing until the bind below, so no frame gets in before the filter stands.
  fd_ = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd_ < 0) fail("socket");
  try {
    filterAttach(fd_, settings.filter);
    intOptionIs(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, 1, "PACKET_IGNORE_OUTGOING");
    intOptionIs(fd_, SOL_PACKET, PACKET_VERSION, TPACKET_V3, "PACKET_VERSION");
    blockBytes_ = blockBytes;
    blocks_ = std::max(1u, settings.ringBytes / blockBytes);
    tpacket_req3 req{};
    req.tp_block_size = blockBytes_;
    req.tp_block_nr = blocks_;
    req.tp_frame_size = frameBytesHint;
    req.tp_frame_nr = blockBytes_ / frameBytesHint * blocks_;
    req.tp_retire_blk_tov = settings.blockTimeoutMs;
    optionIs(fd_, SOL_PACKET, PACKET_RX_RING, &req, sizeof req, "PACKET_RX_RING");
    ringBytes_ = size_t{blockBytes_} * blocks_;
    void* ring = mmap(nullptr, ringBytes_, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (ring == MAP_FAILED) fail("mmap");
    ring_ = static_cast<uint8_t*>(ring);
    if (settings.txMark) txMarkIs(settings.txMark);
    sockaddr_ll addr{};
    addr.sll_family = AF_PACKET;
    addr.sll_protocol = htons(ETH_P_ALL);
    if (bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) fail("bind");
  } catch (...) {
    if (ring_) munmap(ring_, ringBytes_);
    close(fd_);
    throw;
  }
  Kiv::activityManager()->fdIs(fd_, Kiv::Poller::readable, [this](unsigned) { handleReadable(); });
}

PacketAccess::~PacketAccess() {
  Kiv::activityManager()->fdDel(fd_);
  munmap(ring_, ringBytes_);
  close(fd_);
}

void PacketAccess::wantedIntfIs(int ifindex, bool wanted) {
  if (wanted) {
    wanted_.insert(ifindex);
  } else {
    wanted_.erase(ifindex);
  }
}

void PacketAccess::txMarkIs(uint32_t mark) {
  intOptionIs(fd_, SOL_SOCKET, SO_MARK, static_cast<int>(mark), "SO_MARK");
}

void PacketAccess::handleReadable() {
  // One lap of the ring at most, so that a sender faster than we are cannot hold the loop; readiness
  // stays on and brings us back.
  for (uint32_t n = 0; n < blocks_; ++n) {
    uint8_t* block = ring_ + size_t{nextBlock_} * blockBytes_;
    auto* desc = reinterpret_cast<tpacket_block_desc*>(block);
    if (!(__atomic_load_n(&desc->hdr.bh1.block_status, __ATOMIC_ACQUIRE) & TP_STATUS_USER)) return;
    doReadBlock(block);
    // Given back before the handler runs, so the kernel can fill it again meanwhile.
    __atomic_store_n(&desc->hdr.bh1.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
    nextBlock_ = (nextBlock_ + 1) % blocks_;
    if (!batch_.empty()) {
      handler_(batch_);
      batch_.clear();
    }
  }
}

void PacketAccess::doReadBlock(uint8_t* block) {
  const auto* desc = reinterpret_cast<const tpacket_block_desc*>(block);
  const uint32_t frames = desc->hdr.bh1.num_pkts;
  uint32_t offset = desc->hdr.bh1.offset_to_first_pkt;
  for (uint32_t i = 0; i < frames; ++i) {
    if (offset + TPACKET_ALIGN(sizeof(tpacket3_hdr)) + sizeof(sockaddr_ll) > blockBytes_) break;
    const auto* hdr = reinterpret_cast<const tpacket3_hdr*>(block + offset);
    const auto* sll =
        reinterpret_cast<const sockaddr_ll*>(block + offset + TPACKET_ALIGN(sizeof(tpacket3_hdr)));
    const uint32_t next = hdr->tp_next_offset;
    const uint8_t* frame = block + offset + hdr->tp_mac;
    const uint32_t len = hdr->tp_snaplen;
    if (!wanted_.contains(sll->sll_ifindex)) {
      ++counters_.rxUnwanted;
    } else if (len != hdr->tp_len || len > maxRxPktData_ || len < Lomax::ethHeaderBytes ||
               offset + hdr->tp_mac + len > blockBytes_) {
      ++counters_.rxOversize;
      KIV_TRACE(pamTrace, 5, "Dropping frame of " << hdr->tp_len << " bytes on ifindex " << sll->sll_ifindex);
    } else {
      Kiv::Ptr<Lomax::Pkt> pkt = Lomax::globalPktManager().newPkt(std::span<const uint8_t>(frame, len));
      if (hdr->tp_status & TP_STATUS_VLAN_VALID) {
        const uint16_t tpid =
            hdr->tp_status & TP_STATUS_VLAN_TPID_VALID ? hdr->hv1.tp_vlan_tpid : Lomax::ethTypeVlan;
        Lomax::insertPktVlanTag(pkt, tpid, hdr->hv1.tp_vlan_tci);
      }
      batch_.push_back(RxFrame{sll->sll_ifindex, std::move(pkt)});
    }
    if (!next) break;
    offset += next;
  }
  counters_.rxFrames += batch_.size();
}

bool PacketAccess::txPkt(int ifindex, const Kiv::Ptr<Lomax::Pkt>& pkt, std::optional<uint16_t> tci) {
  if (!pkt || pkt->len() < Lomax::ethHeaderBytes) {
    ++counters_.txErrors;
    return false;
  }
  uint8_t* data = pkt->data();
  uint8_t tag[Lomax::vlanTagBytes] = {Lomax::ethTypeVlan >> 8, Lomax::ethTypeVlan & 0xff};
  iovec iov[3];
  int iovs = 1;
  iov[0] = {data, pkt->len()};
  if (tci) {
    tag[2] = static_cast<uint8_t>(*tci >> 8);
    tag[3] = static_cast<uint8_t>(*tci);
    iov[0].iov_len = 12;
    iov[1] = {tag, sizeof tag};
    iov[2] = {data + 12, pkt->len() - 12u};
    iovs = 3;
  }
  sockaddr_ll addr{};
  addr.sll_family = AF_PACKET;
  addr.sll_ifindex = ifindex;
  addr.sll_halen = 6;
  std::memcpy(addr.sll_addr, data, 6);
  std::memcpy(&addr.sll_protocol, tci ? tag : data + 12, 2);
  msghdr msg{};
  msg.msg_name = &addr;
  msg.msg_namelen = sizeof addr;
  msg.msg_iov = iov;
  msg.msg_iovlen = iovs;
  if (sendmsg(fd_, &msg, MSG_DONTWAIT) >= 0) {
    ++counters_.txFrames;
    return true;
  }
  const int err = errno;
  ++(err == ENOBUFS || err == EAGAIN ? counters_.txNoRoom : counters_.txErrors);
  KIV_TRACE(pamTrace, 5, "Send on ifindex " << ifindex << " refused: " << std::strerror(err));
  return false;
}

const PacketAccess::Counters& PacketAccess::counters() {
  tpacket_stats_v3 stats{};
  socklen_t len = sizeof stats;
  if (getsockopt(fd_, SOL_PACKET, PACKET_STATISTICS, &stats, &len) == 0) {
    counters_.ringDrops += stats.tp_drops;
    counters_.ringFreezes += stats.tp_freeze_q_cnt;
  }
  return counters_;
}

}  // namespace Platform
