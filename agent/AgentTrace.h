// The trace handle of the agent shell.
#pragma once

#include "kernel/Trace.h"

namespace IgmpSnoopingAgent {

extern Kiv::TraceHandle agentTrace;  // "IgmpSnoopingAgent"

}  // namespace IgmpSnoopingAgent
