// The lab's links are made with the ip tool, the port's far end created straight into the hosts namespace.
#include "tests/support/BridgeLab.h"

namespace TestNet {

BridgeLab::BridgeLab(int ports) : sw_("sw"), hosts_("hosts") {
  ok_ = sw_.ok() && hosts_.ok() && sw_.ip("link add br0 type bridge") && sw_.ip("link set br0 up");
  for (int i = 1; ok_ && i <= ports; ++i) ok_ = portAdd(i);
}

bool BridgeLab::portAdd(int i) {
  const std::string p = "p" + std::to_string(i), h = "h" + std::to_string(i);
  return sw_.ip("link add " + p + " type veth peer name " + h + " netns " + hosts_.name()) &&
         sw_.ip("link set " + p + " master br0") && sw_.ip("link set " + p + " up") &&
         hosts_.ip("link set " + h + " up");
}

}  // namespace TestNet
