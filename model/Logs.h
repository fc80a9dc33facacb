// The catalogue of event logs, the only reports the agent makes to the operator.
#pragma once

#include "kernel/Log.h"

namespace Bridging::IgmpSnooping {

// Arguments: the limit, the VLAN.
extern Kiv::LogHandle IGMPSNOOPING_GROUP_LIMIT_EXCEEDED;
// Arguments: the limit, the VLAN.
extern Kiv::LogHandle IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED;
// Argument: the VLAN.
extern Kiv::LogHandle IGMPSNOOPING_GROUP_LIMIT_NO_LONGER_EXCEEDED_NO_LIMIT;
// Arguments: the VLAN, the reporter, the interface, the group.
extern Kiv::LogHandle IGMPSNOOPING_NO_IGMP_QUERIER;
// Argument: the VLAN.
extern Kiv::LogHandle IGMPSNOOPING_NOT_EXPECT_ROUTER;

}  // namespace Bridging::IgmpSnooping
