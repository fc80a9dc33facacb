// A switch made of a Linux bridge in a namespace of its own, with veth ports whose far ends sit in a
// hosts namespace: port p<i> of bridge br0 faces host interface h<i>.
#pragma once

#include <string>

#include "tests/support/NetNs.h"

namespace TestNet {

class BridgeLab {
 public:
  // Builds br0 with ports p1..p<ports>, everything up; ok() says whether it all worked.
  explicit BridgeLab(int ports);

  bool ok() const { return ok_; }
  NetNs& sw() { return sw_; }
  NetNs& hosts() { return hosts_; }
  // Adds p<i> facing h<i>, up and in br0.
  bool portAdd(int i);
  int portIndex(int i) const { return sw_.ifindex("p" + std::to_string(i)); }
  int bridgeIndex() const { return sw_.ifindex("br0"); }

 private:
  NetNs sw_;
  NetNs hosts_;
  bool ok_ = false;
};

}  // namespace TestNet
