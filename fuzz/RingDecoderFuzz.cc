// Ring trace files from anywhere: the decoder must reject or decode them without reading out of bounds.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kernel/RingDecoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Vellum::RingDecoder decoder(std::string_view(reinterpret_cast<const char*>(data), size));
  for (const Vellum::RingMessage& m : decoder.messages()) (void)Vellum::ringMessageLine(m);
  return 0;
}
