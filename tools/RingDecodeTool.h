// Printing a ring trace file as text: the whole of `ringdecode` and of `snoopctl trace decode`.
#pragma once

#include <ostream>
#include <string>

namespace Tools {

// Prints every message of the ring trace file at path, all levels merged in write order. Returns the
// exit status: 0, or 1 with the reason on err (prefixed with prog) when the file cannot be read.
int ringDecodeFile(const char* prog, const std::string& path, std::ostream& out, std::ostream& err);

}  // namespace Tools
