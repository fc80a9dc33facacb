// The filter profile of an interface reaches the core's configuration.
#include "glue/GlueIntfSm.h"

#include "glue/GlueTrace.h"

namespace IgmpShim {

GlueIntfSm::GlueIntfSm(Lomax::IntfId intf, Kiv::Ptr<Bridging::IgmpSnooping::IntfConfig const> configIntf,
                       Kiv::Ptr<Bridging::IgmpSnooping::IntfConfig> coreIntf)
    : intf_(intf), configIntf_(std::move(configIntf)), coreIntf_(std::move(coreIntf)), kivConfigIntf_(this) {
  kivConfigIntf_.notifierIs(configIntf_);
  handleProfileName();
}

void GlueIntfSm::handleProfileName() {
  KIV_TRACE_FUNC(glueTrace);
  if (configIntf_ && coreIntf_) coreIntf_->profileNameIs(configIntf_->profileName());
}

}  // namespace IgmpShim
