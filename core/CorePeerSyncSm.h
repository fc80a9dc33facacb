// The core's link to an MLAG peer. While a VLAN runs without a peer the core holds none, and every
// step that would tell the peer something is skipped.
#pragma once

#include "kernel/Ptr.h"
#include "net/IntfId.h"

namespace IgmpSnooping {

// The view of the MLAG pair, given from outside.
class MlagInfo : public Kiv::PtrInterface {
 public:
  virtual bool isMlagIntf(Lomax::IntfId intf) const = 0;
  virtual Lomax::IntfId peerLinkIntf() const = 0;
};

}  // namespace IgmpSnooping

namespace Bridging::IgmpSnooping {

class CorePeerSyncSm : public Kiv::PtrInterface {
 public:
  const Kiv::Ptr<::IgmpSnooping::MlagInfo const>& mlagInfo() const { return mlagInfo_; }
  void mlagInfoIs(const Kiv::Ptr<::IgmpSnooping::MlagInfo const>& m) { mlagInfo_ = m; }

 private:
  Kiv::Ptr<::IgmpSnooping::MlagInfo const> mlagInfo_;
};

}  // namespace Bridging::IgmpSnooping
