// Fuzzes the reading of the bridge's multicast database and port messages: any bytes give entries and
// router settings of the bridge named in the first four bytes, with no read past what was given.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>

#include "platform/BridgeNetlink.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  int bridge;
  std::memcpy(&bridge, data, 4);
  const std::span<const uint8_t> bytes(data + 4, size - 4);
  Platform::MdbContents out;
  Platform::mdbMsgParse(bytes, bridge, out);
  Platform::portMsgParse(bytes, bridge, out);
  for (const auto& [port, setting] : out.routerPorts)
    if (port == bridge) std::abort();
  return 0;
}
