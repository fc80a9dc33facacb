// One of every entity type of the model, every attribute set away from its default: the population
// that round-trip tests (reflection, state database) write out and read back.
#pragma once

#include <vector>

#include "kernel/Entity.h"

namespace TestSupport {

// The model's root entities, empty, in the order modelSample gives them.
std::vector<Kiv::Ptr<Kiv::Entity>> modelRoots();
// The same roots, each with a tree beneath it; times are near `now`.
std::vector<Kiv::Ptr<Kiv::Entity>> modelSample(Kiv::Seconds now = 1732350000.1234567);

}  // namespace TestSupport
