// The process-wide switch for atomic reference counts.
#include "kernel/Ptr.h"

namespace Kiv {
bool enableThreadSafePointers = false;
}
