// Writing event logs to syslog.
#include "platform/SyslogLogSink.h"

#include <syslog.h>

namespace Platform {

int syslogPriority(Kiv::LogSeverity severity) {
  switch (severity) {
    case Kiv::logEmergency:
      return LOG_EMERG;
    case Kiv::logAlert:
      return LOG_ALERT;
    case Kiv::logCritical:
      return LOG_CRIT;
    case Kiv::logError:
      return LOG_ERR;
    case Kiv::logWarning:
      return LOG_WARNING;
    case Kiv::logNotice:
      return LOG_NOTICE;
    case Kiv::logInfo:
      return LOG_INFO;
    case Kiv::logDebug:
      return LOG_DEBUG;
  }
  return LOG_NOTICE;
}

void SyslogLogSink::logLine(const Kiv::LogHandle& handle, uint64_t key, std::string_view text) {
  ::syslog(LOG_DAEMON | syslogPriority(handle.severity()), "%%%s: %.*s", handle.name(),
           static_cast<int>(text.size()), text.data());
  Kiv::stderrLogSink().logLine(handle, key, text);
}

void installSyslogLogSink(const char* ident) {
  static SyslogLogSink sink;
  ::openlog(ident, LOG_PID, LOG_DAEMON);
  Kiv::logSinkIs(&sink);
}

}  // namespace Platform
