// Event logs to syslog (facility daemon) and, as before, to standard error. Severities keep their
// numbers, which are syslog's: 4 is LOG_WARNING, 6 is LOG_INFO.
#pragma once

#include "kernel/Log.h"

namespace Platform {

class SyslogLogSink : public Kiv::LogSink {
 public:
  void logLine(const Kiv::LogHandle& handle, uint64_t key, std::string_view text) override;
};

int syslogPriority(Kiv::LogSeverity severity);

// Opens syslog under `ident` and sends every event log there from now on.
void installSyslogLogSink(const char* ident);

}  // namespace Platform
