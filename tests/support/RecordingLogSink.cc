// The recording log sink.
#include "tests/support/RecordingLogSink.h"

namespace TestSupport {

RecordingLogSink::RecordingLogSink() { Kiv::logSinkIs(this); }

RecordingLogSink::~RecordingLogSink() { Kiv::logSinkIs(nullptr); }

void RecordingLogSink::logLine(const Kiv::LogHandle& handle, uint64_t key, std::string_view text) {
  entries.push_back(Entry{handle.name(), key, std::string(text)});
}

std::vector<std::string> RecordingLogSink::lines() const {
  std::vector<std::string> out;
  for (const Entry& e : entries) out.push_back("%" + e.name + ": " + e.text);
  return out;
}

}  // namespace TestSupport
