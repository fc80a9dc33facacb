// A writer of the state database in a process of its own, for readers under test: forked before the
// test's loop takes any descriptor, it runs a script on its own loop, one step per token the test
// sends, and reports by its exit status.
#pragma once

#include <functional>
#include <string>

#include "platform/StateDb.h"

namespace TestSupport {

class ProcessWriter {
 public:
  // script(db, step) runs in the child; step() waits for the test's next token and is false when the
  // test has closed its end. The child exits 0 when the script returns true.
  using Script = std::function<bool(Platform::StateDb& db, const std::function<bool()>& step)>;
  ProcessWriter(const std::string& address, const Script& script);
  ~ProcessWriter();
  ProcessWriter(const ProcessWriter&) = delete;
  ProcessWriter& operator=(const ProcessWriter&) = delete;

  // Lets the script take n more steps.
  void go(int n = 1);
  // Closes the test's end of the token pipe and waits for the child; its exit status.
  int wait();

 private:
  int pid_ = -1;
  int go_ = -1;
};

}  // namespace TestSupport
