// Fuzzes the reading of rtnetlink link messages: any bytes leave the interface table consistent and
// the bridge's view computable, with no read past what was given.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/BridgeTopology.h"
#include "platform/LinkWatcher.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Platform::LinkWatcher watcher;
  const std::span<const uint8_t> bytes(data, size);
  watcher.handleNetlink(bytes);
  watcher.handleNetlink(bytes);
  for (const auto& [ifindex, link] : watcher.links()) {
    if (link.ifindex != ifindex || link.name.empty()) std::abort();
    const Platform::BridgeTopology::View view = Platform::BridgeTopology::viewOf(watcher.links(), ifindex);
    if (view.bridge != ifindex) std::abort();
  }
  Platform::LinkWatcher::bridgeVlansOf(bytes);
  return 0;
}
