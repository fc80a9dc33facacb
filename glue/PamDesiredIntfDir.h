// The interfaces on which the agent wants packet access; the platform opens a packet source for each.
#pragma once

#include "kernel/EntityDecl.h"
#include "net/IntfId.h"

namespace Interface {

#define PAM_DESIRED_INTF_DIR_ATTRS(X) X(values, intfDesired, IntfDesired, Lomax::IntfId, bool, false)

class PamDesiredIntfDir : public Kiv::NamedEntity {
  KIV_ENTITY_NAMED(PamDesiredIntfDir, PAM_DESIRED_INTF_DIR_ATTRS)
};

}  // namespace Interface
