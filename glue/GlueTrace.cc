// The glue's trace handles, live from load time.
#include "glue/GlueTrace.h"

namespace IgmpShim {

Kiv::TraceHandle glueTrace("IgmpSnooping", false);
Kiv::TraceHandle linkLocalTrace("LinkLocalTrace", false);

}  // namespace IgmpShim
