// Packet access to the device interfaces as one service: the agent writes its settings once, enabled
// last, and from then on the manager keeps one packet-access object in the collection for each
// interface that the desired-interface directory wants, and takes it away when it is no longer wanted.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "glue/SocketFilter.h"
#include "kernel/Ptr.h"
#include "net/IntfId.h"

namespace Interface {

class EthDevPamManager : public Kiv::PtrInterface {
 public:
  // The EtherType the sockets listen to: all of them, since on a bridge port a socket of one protocol
  // sees nothing (the bridge takes the frame first).
  static constexpr uint16_t ethProtocolAll = 3;

  uint32_t maxRxPktData() const { return maxRxPktData_; }
  void maxRxPktDataIs(uint32_t v) { maxRxPktData_ = v; }
  uint16_t ethProtocol() const { return ethProtocol_; }
  void ethProtocolIs(uint16_t v) { ethProtocol_ = v; }
  std::span<const IgmpShim::SocketFilterInsn> filterProgram() const { return filterProgram_; }
  void filterProgramIs(std::span<const IgmpShim::SocketFilterInsn> p) {
    filterProgram_.assign(p.begin(), p.end());
  }
  bool perIntfRlimit() const { return perIntfRlimit_; }
  void perIntfRlimitIs(bool v) { perIntfRlimit_ = v; }
  uint32_t sockRcvBuf() const { return sockRcvBuf_; }
  void sockRcvBufIs(uint32_t v) { sockRcvBuf_ = v; }
  bool perIntfSocket() const { return perIntfSocket_; }
  void perIntfSocketIs(bool v) { perIntfSocket_ = v; }
  bool pktReuse() const { return pktReuse_; }
  void pktReuseIs(bool v) { pktReuse_ = v; }
  bool enableBulkPamRead() const { return enableBulkPamRead_; }
  void enableBulkPamReadIs(bool v) { enableBulkPamRead_ = v; }
  bool separateDot1QHdr() const { return separateDot1QHdr_; }
  void separateDot1QHdrIs(bool v) { separateDot1QHdr_ = v; }

  // What one interface's packet access lost, for the debug listing.
  struct PamCounters {
    uint32_t rxErrors = 0;
    uint32_t txErrors = 0;
    uint32_t txDrops = 0;
  };
  virtual PamCounters intfPamCounters(Lomax::IntfId intf) const = 0;

  bool enabled() const { return enabled_; }
  // The settings above take effect here: an implementation opens its sockets on the first true.
  void enabledIs(bool v) {
    if (v == enabled_) return;
    enabled_ = v;
    handleEnabled();
  }

 protected:
  virtual void handleEnabled() = 0;

 private:
  uint32_t maxRxPktData_ = 0;
  uint16_t ethProtocol_ = 0;
  std::vector<IgmpShim::SocketFilterInsn> filterProgram_;
  bool perIntfRlimit_ = true;
  uint32_t sockRcvBuf_ = 0;
  bool perIntfSocket_ = true;
  bool pktReuse_ = false;
  bool enableBulkPamRead_ = false;
  bool separateDot1QHdr_ = false;
  bool enabled_ = false;
};

}  // namespace Interface
