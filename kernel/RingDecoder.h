// Reading a ring trace back: every committed message of every level, merged in write order and
// rendered as text. Used by the decoder tool and by tests; torn slots are skipped.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/Value.h"

namespace Vellum {

struct RingMessage {
  uint64_t seq;
  Kiv::Seconds time;
  int level;
  std::string file;
  uint32_t line;
  std::string text;
};

class RingDecoder {
 public:
  // `bytes` is a copy of the ring (the file's contents or a live ring's memory).
  explicit RingDecoder(std::string_view bytes);

  bool ok() const { return error_.empty(); }
  const std::string& error() const { return error_; }
  const std::string& name() const { return name_; }
  const std::vector<RingMessage>& messages() const { return messages_; }

 private:
  void decodeLevel(std::string_view bytes, uint64_t offset, uint32_t slots, uint64_t siteBase,
                   uint64_t siteBytes);

  std::string error_;
  std::string name_;
  std::vector<RingMessage> messages_;
};

// "2026-11-22 05:01:02.123456 L6 CoreSm.cc:123 New querier 10.0.0.3 wins over 0.0.0.0"
std::string ringMessageLine(const RingMessage& m);
// UTC with microseconds: "2026-11-22 05:01:02.123456".
std::string timeText(Kiv::Seconds t);

}  // namespace Vellum
