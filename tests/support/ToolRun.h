// Runs one of the built programs as an operator would, while the test's own loop keeps turning (so
// that an agent in the test can answer it), and gives its exit status and output.
#pragma once

#include <string>
#include <vector>

namespace TestSupport {

struct ToolResult {
  int status = -1;  // the exit status, or -1 when it did not exit normally within the limit
  std::string out;
  std::string err;
};

// program: the name under build/<tree>/tools; args without the program's name.
ToolResult toolRun(const std::string& program, const std::vector<std::string>& args,
                   double limitSeconds = 30);
// The path of a built program.
std::string toolPath(const std::string& program);

}  // namespace TestSupport
