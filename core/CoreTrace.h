// The trace handles of the snooping core.
#pragma once

#include "kernel/Trace.h"

namespace Bridging::IgmpSnooping {

extern Kiv::TraceHandle coreTrace;        // "IgmpSnoopingCore"
extern Kiv::TraceHandle syncTrace;        // "IgmpSnoopingSync"
extern Kiv::TraceHandle packetTrace;      // "IgmpSnoopingPacket"
extern Kiv::TraceHandle groupTimerTrace;  // "IgmpSnoopingGroupTimer"
extern Kiv::TraceHandle restoreTrace;     // "IgmpSnoopingRestore"

}  // namespace Bridging::IgmpSnooping
