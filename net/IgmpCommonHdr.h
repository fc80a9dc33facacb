// View of the four bytes every IGMP message starts with (RFC 2236, RFC 3376): type, code, checksum.
#pragma once

#include <cstdint>

#include "net/MessageHdr.h"
#include "net/MessageType.h"

namespace Lomax {

class IgmpCommonHdr : public MessageHdr {
 public:
  // A view exists only over bytes that hold it: none when fewer than minBytes are there.
  static std::optional<IgmpCommonHdr> of(uint8_t* p, uint32_t bytes) {
    if (bytes < minBytes) return std::nullopt;
    return IgmpCommonHdr(p);
  }
  MessageType messageType() const { return static_cast<MessageType>(p_[0]); }
  uint8_t code() const { return p_[1]; }

 private:
  explicit IgmpCommonHdr(uint8_t* p) : MessageHdr(p) {}
};

}  // namespace Lomax
