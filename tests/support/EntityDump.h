// A whole entity tree as "path attr" -> text lines, read through the reflection table alone: two
// trees are equal when their dumps are.
#pragma once

#include <map>
#include <string>

#include "kernel/Entity.h"

namespace TestSupport {

using EntityDump = std::map<std::string, std::string>;

// Scalars as "path.attr", elements as "path.attr[key]"; a child entity's own lines follow its line.
EntityDump entityDump(const Kiv::Entity& root);

}  // namespace TestSupport
