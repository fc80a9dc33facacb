// The wanted interfaces of this switch, without the peer's.
#include "glue/LocalIntfFilter.h"

#include <vector>

#include "glue/GlueTrace.h"

namespace IgmpShim {

LocalIntfFilter::LocalIntfFilter(Kiv::Ptr<Interface::PamDesiredIntfDir const> inputIntfDir,
                                 Kiv::Ptr<Interface::PamDesiredIntfDir> localIntfDir)
    : inputIntfDir_(std::move(inputIntfDir)), localIntfDir_(std::move(localIntfDir)), kivInputIntfDir_(this) {
  kivInputIntfDir_.notifierIs(inputIntfDir_);
}

void LocalIntfFilter::handleIntf(Lomax::IntfId intf) {
  const bool wanted =
      inputIntfDir_ && inputIntfDir_->intfDesired(intf) && !intf.stringValue().view().starts_with("Peer");
  KIV_TRACE(glueTrace, 8,
            "LocalIntfFilter::"
                << "handleIntf" << (wanted ? " added" : " deleted") << " " << intf);
  if (wanted) {
    localIntfDir_->intfDesiredIs(intf, true);
  } else {
    localIntfDir_->intfDesiredDel(intf);
  }
}

void LocalIntfFilter::handleIntf() {
  std::vector<Lomax::IntfId> all;
  if (inputIntfDir_) {
    for (auto& i : inputIntfDir_->intfDesiredIter()) all.push_back(i.key());
  }
  for (auto& i : localIntfDir_->intfDesiredIter()) all.push_back(i.key());
  for (Lomax::IntfId intf : all) handleIntf(intf);
}

}  // namespace IgmpShim
