// Text traces by handle and level, and the statement macros that write a trace both to the ring
// trace (when one is open) and to the text trace (when its handle and level are switched on).
#pragma once

#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "kernel/RingTrace.h"

namespace Kiv {

// A facility that traces can be switched on for. Handles are statics of their units; each takes
// its level from IGMPSNOOP_TRACE, read once, e.g. "IgmpSnoopingCore/8,IgmpSnooping/6" or "*/9".
class TraceHandle {
 public:
  // onByDefault switches every level on when the environment does not name the handle.
  TraceHandle(const char* name, bool onByDefault);
  ~TraceHandle();
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  const std::string& name() const { return name_; }
  // Highest level switched on; -1 when the handle is off.
  int level() const { return level_; }
  bool isEnabled(int level) const { return level <= level_; }

 private:
  friend void traceSettingsIs(std::string_view text);
  void apply(std::string_view settings);

  std::string name_;
  bool onByDefault_;
  int level_ = -1;
  TraceHandle* next_ = nullptr;  // the list of live handles that traceSettingsIs walks
  TraceHandle* prev_ = nullptr;
};

// The level that `settings` gives the handle `name`, or nothing when no entry names it. Entries are
// "name/level" (level 0-9) or a bare "name" (all levels); "*" names every handle; the last entry
// that names a handle wins, so "*/9,IgmpSnoopingPacket/2" quiets one handle. Malformed entries are
// ignored: a typo in a developer's switch must not stop the agent.
std::optional<int> traceLevel(std::string_view settings, std::string_view name);

// Replaces the environment's switch text and applies it to every live handle.
void traceSettingsIs(std::string_view text);

// Where text trace lines go; standard error until another sink is installed.
class TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void traceLine(std::string_view line) = 0;
};
// nullptr restores standard error.
void traceSinkIs(TraceSink* sink);

// Builds one text trace line and hands it to the sink when it goes out of scope:
// "<time> <handle>/<level> <file>:<line> <function>: <text>".
class TraceHelper {
 public:
  TraceHelper(const TraceHandle& handle, int level, const char* file, int line, const char* func);
  ~TraceHelper();
  TraceHelper(const TraceHelper&) = delete;
  TraceHelper& operator=(const TraceHelper&) = delete;
  std::ostream& stream() { return os_; }

 private:
  std::ostringstream os_;
};

}  // namespace Kiv

// The ring half of a trace statement: the site registers its format once, later writes carry only
// the site id and binary arguments. A closed ring costs one null test.
#define KIV_RING(lvl, msg)                                                                        \
  do {                                                                                            \
    if (::Vellum::RingTrace* kivRing_ = ::Vellum::snoopVlHandle) {                                \
      static ::Vellum::MsgDesc kivRingDesc_(__FILE__, __LINE__);                                  \
      if (kivRingDesc_.generation == kivRing_->generation()) [[likely]]                           \
        ::Vellum::Writer(*kivRing_, kivRingDesc_, (lvl)) << msg;                                  \
      else                                                                                        \
        ::Vellum::Writer(*kivRing_, kivRingDesc_, (lvl), ::Vellum::Writer::Registering()) << msg; \
    }                                                                                             \
  } while (0)

// A trace statement: KIV_TRACE(handle, 6, "New querier " << src << " wins over " << cur);
// When the handle is off at that level the text half costs one compare and evaluates nothing.
#define KIV_TRACE(handle, lvl, msg)                                                      \
  do {                                                                                   \
    KIV_RING(lvl, msg);                                                                  \
    if ((handle).isEnabled(lvl)) [[unlikely]]                                            \
      ::Kiv::TraceHelper((handle), (lvl), __FILE__, __LINE__, __func__).stream() << msg; \
  } while (0)

// The level 8 trace of the enclosing function's signature that opens every handler.
#define KIV_TRACE_FUNC(handle) KIV_TRACE(handle, 8, __PRETTY_FUNCTION__)
