// Event logs: operator-facing messages from a fixed catalogue, each passed through a rate limiter
// keyed by the log and (optionally) its arguments, then written as "%NAME: text" to the log sink.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>

#include "kernel/Value.h"

namespace Kiv {

// The syslog severities, by the same numbers.
enum LogSeverity : uint8_t {
  logEmergency = 0,
  logAlert = 1,
  logCritical = 2,
  logError = 3,
  logWarning = 4,
  logNotice = 5,
  logInfo = 6,
  logDebug = 7,
};

extern const char* const NoActionRequired;

// Bits of a handle's rate-limit flags.
inline constexpr unsigned char logIgnoreArgs = 1;  // one limiter key for the log whatever its arguments

// A window of this many seconds of Kiv time applies when a log's interval is 0.0: the same log with
// the same arguments gets through `rateLimitBurst` times per five minutes.
inline constexpr Seconds defaultLogWindow = 300.0;

class LogHandle;

// Where logs go once the limiter lets them through; standard error until another is installed.
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void logLine(const LogHandle& handle, uint64_t key, std::string_view text) = 0;
};
// nullptr restores standard error.
void logSinkIs(LogSink* sink);
// The default sink, for sinks that write elsewhere as well: "%NAME: text" on standard error.
LogSink& stderrLogSink();

class LogHandle {
 public:
  // rateLimitInterval: the limiter's window in seconds (0.0: defaultLogWindow); rateLimitBurst: logs
  // with one key let through per window (below 1: one); rateLimitFlags: logIgnoreArgs.
  LogHandle(const char* name, LogSeverity severity, const char* format, const char* explanation,
            const char* recommendedAction, double rateLimitInterval, double rateLimitBurst,
            unsigned char rateLimitFlags);
  LogHandle(const LogHandle&) = delete;
  LogHandle& operator=(const LogHandle&) = delete;

  const char* name() const { return name_; }
  LogSeverity severity() const { return severity_; }
  const char* format() const { return format_; }
  const char* explanation() const { return explanation_; }
  const char* recommendedAction() const { return recommendedAction_; }
  double rateLimitInterval() const { return rateLimitInterval_; }
  double rateLimitBurst() const { return rateLimitBurst_; }
  unsigned char rateLimitFlags() const { return rateLimitFlags_; }

  bool rateLimitArgs() const { return !(rateLimitFlags_ & logIgnoreArgs); }
  uint64_t idHash() const { return idHash_; }
  // Counts the event against its key's window at the time source's now; true if it may be sent.
  bool okToLog(uint64_t key);
  void log(uint64_t key, const std::string* strings, size_t count);
  // The format with every conversion replaced by the next argument's text, whatever its letter.
  std::string text(const std::string* strings, size_t count) const;

 private:
  struct Window {
    Seconds start;
    double sent;
  };
  void forgetEndedWindows(Seconds now, Seconds window);

  const char* name_;
  LogSeverity severity_;
  const char* format_;
  const char* explanation_;
  const char* recommendedAction_;
  double rateLimitInterval_;
  double rateLimitBurst_;
  unsigned char rateLimitFlags_;
  uint64_t idHash_;
  std::unordered_map<uint64_t, Window> windows_;  // by key; pruned of ended windows as it grows
};

uint64_t logArgsHash(const std::string* strings, size_t count);

template <class T>
std::string logArgText(const T& v) {
  std::ostringstream os;
  os << std::boolalpha << v;
  return os.str();
}

// Emits an event of `handle`: rate-limited, then rendered and sent to the sink.
template <class... Args>
void log(LogHandle& handle, const Args&... args) {
  std::string strings[sizeof...(Args) + 1];  // one spare keeps a log without arguments legal
  bool rendered = false;
  auto render = [&] {
    size_t i = 0;
    ((strings[i++] = logArgText(args)), ...);
    rendered = true;
  };
  uint64_t argsHash = 0;
  if (handle.rateLimitArgs()) {
    render();
    argsHash = logArgsHash(strings, sizeof...(Args));
  }
  uint64_t key = handle.idHash() ^ argsHash;
  if (!handle.okToLog(key)) return;
  if (!rendered) render();
  handle.log(key, strings, sizeof...(Args));
}

}  // namespace Kiv
