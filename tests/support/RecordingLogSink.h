// A log sink that keeps what was logged, for tests; installs itself for its lifetime.
#pragma once

#include <string>
#include <vector>

#include "kernel/Log.h"

namespace TestSupport {

class RecordingLogSink : public Kiv::LogSink {
 public:
  struct Entry {
    std::string name;
    uint64_t key;
    std::string text;
  };
  RecordingLogSink();
  ~RecordingLogSink() override;
  void logLine(const Kiv::LogHandle& handle, uint64_t key, std::string_view text) override;
  // "%NAME: text" of each entry, in order.
  std::vector<std::string> lines() const;

  std::vector<Entry> entries;
};

}  // namespace TestSupport
