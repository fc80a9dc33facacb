// The group listing as the agent's "showGroups" command prints it, read back into a table: how
// snoopctl and igmpsnoop-replay show groups.
#pragma once

#include <string>

#include "tools/OutputTable.h"

namespace Tools {

// An empty table with the listing's columns.
OutputTable groupTable();
// Adds a row per group line of text (regular lines, ports wrapped on lines that start with blanks).
void groupLinesParse(const std::string& text, OutputTable& table);

}  // namespace Tools
