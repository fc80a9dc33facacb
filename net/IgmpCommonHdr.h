// View of the four bytes every IGMP message starts with (RFC 2236, RFC 3376): type, code, checksum.
#pragma once

#include <cstdint>

#include "net/MessageHdr.h"
#include "net/MessageType.h"

namespace Lomax {

class IgmpCommonHdr : public MessageHdr {
 public:
  using MessageHdr::MessageHdr;
  MessageType messageType() const { return static_cast<MessageType>(p_[0]); }
  uint8_t code() const { return p_[1]; }
};

}  // namespace Lomax
