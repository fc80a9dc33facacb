// View of a DVMRP message, carried as IGMP type 0x13: the code byte says which DVMRP message it is.
#pragma once

#include <cstdint>

namespace Lomax {

inline constexpr uint8_t dvmrpCodeProbe = 1;

class DvmrpHdr {
 public:
  static constexpr uint16_t minBytes = 8;

  explicit DvmrpHdr(uint8_t* p) : p_(p) {}
  uint8_t* bytes() const { return p_; }
  uint8_t code() const { return p_[1]; }

 private:
  uint8_t* p_;
};

}  // namespace Lomax
