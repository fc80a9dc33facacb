// The event-log limiter, the format renderer and the standard-error sink.
#include "kernel/Log.h"

#include <cstdio>
#include <cstring>

#include "kernel/TimeSource.h"

namespace Kiv {

const char* const NoActionRequired = "No action is required.";

namespace {

class StderrLogSink : public LogSink {
 public:
  void logLine(const LogHandle& handle, uint64_t, std::string_view text) override {
    std::fprintf(stderr, "%%%s: %.*s\n", handle.name(), static_cast<int>(text.size()), text.data());
  }
};

StderrLogSink stderrSink;
LogSink* sink = &stderrSink;

// Table sizes at which the limiter drops keys whose window has ended.
constexpr size_t pruneAt = 1024;

}  // namespace

void logSinkIs(LogSink* s) { sink = s ? s : &stderrSink; }

LogSink& stderrLogSink() { return stderrSink; }

uint64_t logArgsHash(const std::string* strings, size_t count) {
  uint64_t h = 0;
  for (size_t i = 0; i < count; ++i) h = mixHash(h + hashBytes(strings[i].data(), strings[i].size()) + i);
  return h;
}

LogHandle::LogHandle(const char* name, LogSeverity severity, const char* format, const char* explanation,
                     const char* recommendedAction, double rateLimitInterval, double rateLimitBurst,
                     unsigned char rateLimitFlags)
    : name_(name),
      severity_(severity),
      format_(format),
      explanation_(explanation),
      recommendedAction_(recommendedAction),
      rateLimitInterval_(rateLimitInterval),
      rateLimitBurst_(rateLimitBurst),
      rateLimitFlags_(rateLimitFlags),
      idHash_(hashBytes(name, std::strlen(name))) {}

bool LogHandle::okToLog(uint64_t key) {
  Seconds now = timeSourceNow();
  Seconds window = rateLimitInterval_ > 0.0 ? rateLimitInterval_ : defaultLogWindow;
  if (windows_.size() >= pruneAt) forgetEndedWindows(now, window);
  auto [it, isNew] = windows_.try_emplace(key, Window{now, 0.0});
  Window& w = it->second;
  // A clock set back (a new virtual time) starts a new window rather than silencing the log.
  if (!isNew && (now - w.start >= window || now < w.start)) w = Window{now, 0.0};
  if (w.sent > 0.0 && w.sent >= rateLimitBurst_) return false;
  w.sent += 1.0;
  return true;
}

void LogHandle::forgetEndedWindows(Seconds now, Seconds window) {
  std::erase_if(windows_, [&](const auto& kv) { return now - kv.second.start >= window; });
}

void LogHandle::log(uint64_t key, const std::string* strings, size_t count) {
  sink->logLine(*this, key, text(strings, count));
}

std::string LogHandle::text(const std::string* strings, size_t count) const {
  std::string out;
  size_t next = 0;
  for (const char* p = format_; *p; ++p) {
    if (*p != '%') {
      out += *p;
      continue;
    }
    if (p[1] == '%' || p[1] == '\0') {
      out += '%';
      p += p[1] == '%';
      continue;
    }
    ++p;
    while (*p && std::strchr("-+ #0123456789.*hlLqjzt", *p)) ++p;
    if (next < count) out += strings[next++];
    if (!*p) break;
  }
  return out;
}

}  // namespace Kiv
