// The trace handles of the VLAN and agent-wide glue.
#pragma once

#include "kernel/Trace.h"

namespace IgmpShim {

extern Kiv::TraceHandle glueTrace;       // "IgmpSnooping"
extern Kiv::TraceHandle linkLocalTrace;  // "LinkLocalTrace"

}  // namespace IgmpShim
