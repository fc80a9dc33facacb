// View of a DVMRP message, carried as IGMP type 0x13: the code byte says which DVMRP message it is.
#pragma once

#include <cstdint>
#include <optional>

namespace Lomax {

inline constexpr uint8_t dvmrpCodeProbe = 1;

class DvmrpHdr {
 public:
  static constexpr uint16_t minBytes = 8;

  // A view exists only over bytes that hold it: none when fewer than minBytes are there.
  static std::optional<DvmrpHdr> of(uint8_t* p, uint32_t bytes) {
    if (bytes < minBytes) return std::nullopt;
    return DvmrpHdr(p);
  }
  uint8_t* bytes() const { return p_; }
  uint8_t code() const { return p_[1]; }

 private:
  explicit DvmrpHdr(uint8_t* p) : p_(p) {}
  uint8_t* p_;
};

}  // namespace Lomax
