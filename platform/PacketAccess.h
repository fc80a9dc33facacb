// Packet access on Linux: one AF_PACKET socket of all protocols for every wanted interface, read in
// bulk from a TPACKET_V3 ring through the agent's socket filter, and written with or without a tag.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <unordered_set>
#include <vector>

#include "glue/SocketFilter.h"
#include "kernel/Ptr.h"
#include "net/Pkt.h"

namespace Platform {

class PacketAccess {
 public:
  struct Settings {
    // The ring's size; the kernel drops (and counts) what arrives while it is full.
    uint32_t ringBytes = 8u << 20;
    // Frames longer than this are dropped and counted.
    uint32_t maxRxPktData = 10000;
    // How long the kernel holds a part-filled block before handing it over, in milliseconds: the
    // latency of a lone frame.
    uint32_t blockTimeoutMs = 2;
    // SO_MARK of every frame sent; 0 sends unmarked.
    uint32_t txMark = 0;
    std::span<const IgmpShim::SocketFilterInsn> filter = IgmpShim::SocketFilter::program;
  };

  struct RxFrame {
    int ifindex;
    // The frame as the wire carried it: a tag the kernel took off is back in front of the EtherType.
    Kiv::Ptr<Lomax::Pkt> pkt;
  };
  // Frames of one ring block, in arrival order; the span is valid during the call only.
  using RxHandler = std::function<void(std::span<const RxFrame>)>;

  struct Counters {
    uint64_t rxFrames = 0;     // handed to the handler
    uint64_t rxUnwanted = 0;   // from an interface not wanted: dropped here
    uint64_t rxOversize = 0;   // longer than maxRxPktData, or cut short by the ring: dropped here
    uint64_t ringDrops = 0;    // passed the filter but found the ring full: dropped by the kernel
    uint64_t ringFreezes = 0;  // times the kernel found the ring full
    uint64_t txFrames = 0;
    uint64_t txNoRoom = 0;  // refused for lack of buffer space, or by an egress filter (ENOBUFS)
    uint64_t txErrors = 0;  // any other refusal: interface down or gone, frame malformed
  };

  // Opens the socket and maps the ring; throws Kiv::Exception when Linux refuses (not root, say).
  // The socket lives in the network namespace of the calling thread.
  PacketAccess(const Settings& settings, RxHandler handler);
  ~PacketAccess();
  PacketAccess(const PacketAccess&) = delete;
  PacketAccess& operator=(const PacketAccess&) = delete;

  // Frames of interfaces not wanted are dropped; none is wanted at first.
  void wantedIntfIs(int ifindex, bool wanted);
  bool wantedIntf(int ifindex) const { return wanted_.contains(ifindex); }

  // Puts pkt on ifindex's wire, with an 802.1Q tag of this TCI inserted behind the addresses when
  // tci is given. The frame's bytes are not changed. False when Linux refused it (counted).
  bool txPkt(int ifindex, const Kiv::Ptr<Lomax::Pkt>& pkt, std::optional<uint16_t> tci = {});
  void txMarkIs(uint32_t mark);

  // Reads the kernel's drop counts, which reading resets, into the running totals.
  const Counters& counters();

  // Converts and attaches a filter to any packet socket; throws Kiv::Exception when refused.
  static void filterAttach(int fd, std::span<const IgmpShim::SocketFilterInsn> filter);

 private:
  void handleReadable();
  void doReadBlock(uint8_t* block);

  int fd_ = -1;
  uint8_t* ring_ = nullptr;
  size_t ringBytes_ = 0;
  uint32_t blockBytes_ = 0;
  uint32_t blocks_ = 0;
  // The block the kernel fills next after the ones we hold.
  uint32_t nextBlock_ = 0;
  uint32_t maxRxPktData_;
  RxHandler handler_;
  std::unordered_set<int> wanted_;
  std::vector<RxFrame> batch_;
  Counters counters_;
};

}  // namespace Platform
