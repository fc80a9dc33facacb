// Text trace handles, the switch text that sets their levels, and the line sink.
#include "kernel/Trace.h"

#include <cstdio>
#include <cstdlib>

#include "kernel/RingDecoder.h"
#include "kernel/TimeSource.h"

namespace Kiv {

namespace {

TraceHandle* liveHandles = nullptr;

std::string& settings() {
  static std::string text = [] {
    const char* env = std::getenv("IGMPSNOOP_TRACE");
    return std::string(env ? env : "");
  }();
  return text;
}

std::string_view trim(std::string_view s) {
  size_t b = s.find_first_not_of(" \t");
  if (b == std::string_view::npos) return {};
  return s.substr(b, s.find_last_not_of(" \t") - b + 1);
}

class StderrTraceSink : public TraceSink {
 public:
  void traceLine(std::string_view line) override {
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fputc('\n', stderr);
  }
};

StderrTraceSink stderrSink;
TraceSink* sink = &stderrSink;

const char* baseName(const char* path) {
  std::string_view p(path);
  return path + (p.find_last_of('/') + 1);  // npos + 1 is 0
}

}  // namespace

std::optional<int> traceLevel(std::string_view text, std::string_view name) {
  std::optional<int> level;
  while (!text.empty()) {
    size_t comma = text.find(',');
    std::string_view entry = trim(text.substr(0, comma));
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    size_t slash = entry.rfind('/');
    std::string_view entryName = trim(entry.substr(0, slash));
    int entryLevel = 9;
    if (slash != std::string_view::npos) {
      std::string_view digits = trim(entry.substr(slash + 1));
      if (digits.size() != 1 || digits[0] < '0' || digits[0] > '9') continue;
      entryLevel = digits[0] - '0';
    }
    if (entryName == "*" || entryName == name) level = entryLevel;
  }
  return level;
}

TraceHandle::TraceHandle(const char* name, bool onByDefault) : name_(name), onByDefault_(onByDefault) {
  apply(settings());
  next_ = liveHandles;
  if (next_) next_->prev_ = this;
  liveHandles = this;
}

TraceHandle::~TraceHandle() {
  if (prev_) {
    prev_->next_ = next_;
  } else {
    liveHandles = next_;
  }
  if (next_) next_->prev_ = prev_;
}

void TraceHandle::apply(std::string_view text) {
  level_ = traceLevel(text, name_).value_or(onByDefault_ ? 9 : -1);
}

void traceSettingsIs(std::string_view text) {
  settings() = std::string(text);
  for (TraceHandle* h = liveHandles; h; h = h->next_) h->apply(settings());
}

void traceSinkIs(TraceSink* s) { sink = s ? s : &stderrSink; }

TraceHelper::TraceHelper(const TraceHandle& handle, int level, const char* file, int line, const char* func) {
  os_ << std::boolalpha << Vellum::timeText(timeSourceNow()) << ' ' << handle.name() << '/' << level << ' '
      << baseName(file) << ':' << line << ' ' << func << ": ";
}

TraceHelper::~TraceHelper() { sink->traceLine(os_.view()); }

}  // namespace Kiv
