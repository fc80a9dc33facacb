// A writable mount: read-back, change capture, ordered and coalesced batches, full rewrite.
#include "platform/RedisWriter.h"

#include <hiredis/hiredis.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <unordered_map>

#include "kernel/ActivityManager.h"
#include "platform/RedisStateDb.h"
#include "platform/StateDbLogs.h"

namespace Platform {

using Kiv::AttrInfo;
using Kiv::AttrKind;
using Kiv::Entity;

namespace {

constexpr uint8_t whole = Entity::trackSink1;
// Commands per MULTI of a coalesced flush: no EXEC holds the server for long.
constexpr size_t chunkCommands = 1000;
// Ordered changes kept while the server is away; past this a rewrite replaces them.
constexpr size_t entriesWhileAway = 100000;

std::string idOf(uint64_t gen, uint64_t seq) { return std::to_string(gen) + "-" + std::to_string(seq); }

void problemsLog(const std::string& mount, const std::string& key, const std::vector<std::string>& problems) {
  if (problems.empty()) return;
  std::string why = problems.front();
  if (problems.size() > 1) why += " (and " + std::to_string(problems.size() - 1) + " more)";
  Kiv::log(STATEDB_BAD_DATA, mount, key, why);
}

}  // namespace

RedisWriter::RedisWriter(RedisStateDb& db, const std::string& path, const Kiv::Ptr<Entity>& root,
                         const MountOptions& options)
    : db_(db), layout_(path, options.folded), root_(root), ordered_(options.ordered) {
  layout_.rootIs(root.ptr());
}

RedisWriter::~RedisWriter() {
  if (phase_ != Phase::loading) Kiv::changeSinkIs(*root_, nullptr);
}

bool RedisWriter::hasPending() const {
  return open_ || !entries_.empty() || !dirty_.empty() || !whole_.empty() || !elements_.empty() ||
         !removals_.empty();
}

RedisWriter::Meta RedisWriter::metaOf(const redisReply* r) {
  Meta m;
  Fields f;
  if (!RedisReplies::hash(r, f) || f.empty()) return m;
  m.present = true;
  for (const auto& [k, v] : f) {
    unsigned long long n = 0;
    const bool num = Kiv::detail::parseUnsigned(v, n);
    if (k == "state") m.state = v;
    if (k == "gen" && num) m.gen = n;
    if (k == "seq" && num) m.seq = n;
    if (k == "schema" && num) m.schema = static_cast<int>(n);
  }
  return m;
}

void RedisWriter::handleUp() {
  RedisConnection& c = db_.connection();
  const std::string meta = layout_.metaKey();
  if (phase_ == Phase::loading) {
    c.command({"HGETALL", meta}, [this](const redisReply* r) {
      if (!r || phase_ != Phase::loading) return;
      const Meta m = metaOf(r);
      if (m.present && m.state == "ready" && m.schema == MountLayout::version && m.gen) {
        loadedMeta_ = m;
        loadOutstanding_ = 0;
        loadScanDone_ = false;
        reload(0);
        return;
      }
      track();
      phase_ = Phase::live;
      rewrite(m.present ? "its record of generation and sequence is missing or unfinished" : "");
    });
    return;
  }
  if (phase_ == Phase::rewriting) {
    rewrite("the connection went during a rewrite");
    return;
  }
  c.command({"HGETALL", meta}, [this](const redisReply* r) {
    if (!r || phase_ != Phase::live) return;
    const Meta m = metaOf(r);
    if (rewriteWanted_) {
      rewrite(rewriteWhy_);
    } else if (!m.present) {
      rewrite("the database lost the mount (server " + db_.runId() + ")");
    } else if (m.gen != gen_ || m.seq != seq_) {
      rewrite("the database holds generation " + std::to_string(m.gen) + " sequence " +
              std::to_string(m.seq) + ", the agent wrote " + std::to_string(gen_) + " sequence " +
              std::to_string(seq_));
    } else {
      flush();
    }
  });
}

void RedisWriter::handleDown() {
  if (phase_ == Phase::loading) {
    loadOutstanding_ = 0;
    loadScanDone_ = false;
  }
}

void RedisWriter::loadAbandon() {
  if (phase_ != Phase::loading) return;
  track();
  phase_ = Phase::live;
  rewriteWanted_ = true;
  rewriteWhy_ = "the agent started before the database could be read";
  if (db_.connection().connected()) rewrite(rewriteWhy_);
}

// Pages of keys, each followed at once by a read of every key on it: the server works on one page
// while the next is on its way.
void RedisWriter::reload(uint64_t cursor) {
  RedisConnection& c = db_.connection();
  if (cursor == 0) {
    ++loadOutstanding_;
    c.command({"HGETALL", layout_.path()}, [this, key = layout_.path()](const redisReply* r) {
      if (!r || phase_ != Phase::loading) return;
      --loadOutstanding_;
      Fields f;
      if (RedisReplies::hash(r, f)) {
        std::vector<std::string> problems;
        layout_.recordApply(*root_, f, problems);
        problemsLog(layout_.path(), key, problems);
      }
      if (loadScanDone_ && !loadOutstanding_) reloadDone();
    });
  }
  const std::string at = std::to_string(cursor), pattern = layout_.scanPattern();
  c.command({"SCAN", at, "MATCH", pattern, "COUNT", "1000"}, [this](const redisReply* r) {
    if (!r || phase_ != Phase::loading) return;
    if (r->type != REDIS_REPLY_ARRAY || r->elements != 2 || r->element[1]->type != REDIS_REPLY_ARRAY) {
      Kiv::log(STATEDB_BAD_DATA, layout_.path(), "SCAN", RedisReplies::text(r));
      loadAbandon();
      return;
    }
    unsigned long long next = 0;
    Kiv::detail::parseUnsigned(RedisReplies::text(r->element[0]), next);
    reloadKeys(r->element[1]);
    if (next) {
      reload(next);
    } else {
      loadScanDone_ = true;
      if (!loadOutstanding_) reloadDone();
    }
  });
}

void RedisWriter::reloadKeys(const redisReply* keys) {
  RedisConnection& c = db_.connection();
  for (size_t i = 0; i < keys->elements; ++i) {
    std::string key = RedisReplies::text(keys->element[i]);
    ++loadOutstanding_;
    c.command({"HGETALL", key}, [this, key](const redisReply* r) {
      if (!r || phase_ != Phase::loading) return;
      --loadOutstanding_;
      Fields f;
      std::string why;
      if (!RedisReplies::hash(r, f)) {
        Kiv::log(STATEDB_BAD_DATA, layout_.path(), key, RedisReplies::text(r));
      } else if (Entity* record = layout_.recordAt(*root_, key, true, why)) {
        std::vector<std::string> problems;
        layout_.recordApply(*record, f, problems);
        problemsLog(layout_.path(), key, problems);
      } else {
        Kiv::log(STATEDB_BAD_DATA, layout_.path(), key, why);
      }
      if (loadScanDone_ && !loadOutstanding_) reloadDone();
    });
  }
}

void RedisWriter::reloadDone() {
  gen_ = loadedMeta_.gen;
  seq_ = loadedMeta_.seq;
  track();
  phase_ = Phase::live;
  flush();
}

void RedisWriter::track() { Kiv::changeSinkIs(*root_, this); }

void RedisWriter::pendingDrop() {
  for (auto& e : dirty_) e->kivTrackIs(e->kivTrack() & ~(Entity::trackQueued | whole));
  for (auto& e : whole_) e->kivTrackIs(e->kivTrack() & ~(Entity::trackQueued | whole));
  dirty_.clear();
  whole_.clear();
  elements_.clear();
  removals_.clear();
  entries_.clear();
  open_ = nullptr;
}

// A new generation: the old keys go, then the whole tree is written, then the generation is marked
// ready. Changes made meanwhile are in the tree when it is written.
void RedisWriter::rewrite(const std::string& why) {
  phase_ = Phase::rewriting;
  rewriteWanted_ = false;
  const auto nowSeconds = static_cast<uint64_t>(std::max(0.0, std::floor(Kiv::System::currentTime())));
  gen_ = std::max(nowSeconds, gen_ + 1);
  seq_ = 0;
  if (!why.empty()) Kiv::log(STATEDB_REWRITE, layout_.path(), std::to_string(gen_), why);
  RedisConnection& c = db_.connection();
  if (!c.connected()) return;
  c.command({"HSET", layout_.metaKey(), "state", "rewriting", "gen", std::to_string(gen_)});
  rewriteUnlink(0);
}

void RedisWriter::rewriteUnlink(uint64_t cursor) {
  const std::string at = std::to_string(cursor), pattern = layout_.scanPattern();
  db_.connection().command({"SCAN", at, "MATCH", pattern, "COUNT", "1000"}, [this](const redisReply* r) {
    if (!r || phase_ != Phase::rewriting) return;
    if (r->type != REDIS_REPLY_ARRAY || r->elements != 2 || r->element[1]->type != REDIS_REPLY_ARRAY) {
      rewriteWrite();
      return;
    }
    const redisReply* keys = r->element[1];
    if (keys->elements) {
      RedisConnection& c = db_.connection();
      c.begin(keys->elements + 1);
      c.arg("UNLINK");
      for (size_t i = 0; i < keys->elements; ++i) c.arg(RedisReplies::text(keys->element[i]));
      c.end();
    }
    unsigned long long next = 0;
    Kiv::detail::parseUnsigned(RedisReplies::text(r->element[0]), next);
    next ? rewriteUnlink(next) : rewriteWrite();
  });
}

void RedisWriter::rewriteWrite() {
  pendingDrop();
  RedisConnection& c = db_.connection();
  c.command({"UNLINK", layout_.path(), layout_.logKey()});
  seq_ = 1;
  Fields fields;
  layout_.forEachRecord(*root_, [&](const Entity& record) {
    fields.clear();
    layout_.encodeRecord(record, fields);
    c.begin(2 + 2 * fields.size() + 2);
    c.arg("HSET");
    c.arg(layout_.recordKey(record));
    for (const auto& [f, v] : fields) c.arg(f), c.arg(v);
    c.arg("_seq");
    c.arg(seq_);
    c.end();
  });
  c.command({"XADD", layout_.logKey(), "MAXLEN", "~", std::to_string(streamLength), idOf(gen_, seq_), "_op",
             "reset"});
  c.command({"HSET", layout_.metaKey(), "state", "ready", "gen", std::to_string(gen_), "seq", "1", "schema",
             std::to_string(MountLayout::version), "writer_pid", std::to_string(getpid()), "run_id",
             db_.runId()});
  phase_ = Phase::live;
}

void RedisWriter::check() {
  if (phase_ != Phase::live || !db_.connection().connected()) return;
  if (rewriteWanted_) {
    rewrite(rewriteWhy_);
    return;
  }
  db_.connection().command({"HGET", layout_.metaKey(), "gen"}, [this](const redisReply* r) {
    if (!r || phase_ != Phase::live) return;
    if (r->type != REDIS_REPLY_STRING || RedisReplies::text(r) != std::to_string(gen_))
      rewrite("the mount's generation is gone from the database (flushed?)");
  });
}

bool RedisWriter::attached(const Entity& e) const { return Kiv::changeSinkOf(e) == this; }

// --- change capture ---------------------------------------------------------------------------------

void RedisWriter::orderedRecord(const Entity* record) {
  if (open_.ptr() != record) {
    orderedClose();
    open_ = Kiv::Ptr<Entity>(const_cast<Entity*>(record));
  }
  db_.orderedPending();
}

void RedisWriter::orderedClose() {
  if (!open_) return;
  Kiv::Ptr<Entity> record = std::move(open_);
  if (!attached(*record)) return;
  Entry entry{layout_.recordKey(*record), false, {}};
  layout_.encodeRecord(*record, entry.fields);
  entries_.push_back(std::move(entry));
  if (entries_.size() > entriesWhileAway && !db_.connection().connected()) {
    entries_.clear();
    rewriteWanted_ = true;
    rewriteWhy_ = "too many changes were made while the database was away";
  }
}

void RedisWriter::onChange(Entity& e, uint16_t id, const void* key) {
  const AttrInfo& a = e.typeInfo().attrs[id];
  if (a.kind == AttrKind::entities || a.kind == AttrKind::child) return;  // links tell of these
  if (ordered_) {
    orderedRecord(layout_.recordOf(e));
    return;
  }
  if (a.kind != AttrKind::values) {
    e.kivTrackIs(e.kivTrack() | Entity::trackQueued);
    dirty_.emplace_back(&e);
  } else if (key) {
    elements_.push_back(Element{Kiv::Ptr<Entity>(&e), id, a.keyText(key)});
  } else {
    // A collection emptied at once: its fields are no longer known, so the record is written whole.
    auto* record = const_cast<Entity*>(layout_.recordOf(e));
    if (!(record->kivTrack() & whole)) {
      record->kivTrackIs(record->kivTrack() | whole | Entity::trackQueued);
      whole_.emplace_back(record);
    }
  }
  db_.coalescedPending();
}

void RedisWriter::onAttach(Entity& e) {
  if (ordered_) {
    if (layout_.folded(e)) {
      orderedRecord(layout_.recordOf(e));
      return;
    }
    orderedClose();
    std::vector<const Entity*> records;
    layout_.forEachRecord(e, [&](const Entity& r) { records.push_back(&r); });
    if (records.size() == 1) {
      open_ = Kiv::Ptr<Entity>(&e);
    } else {
      for (const Entity* r : records) {
        Entry entry{layout_.recordKey(*r), false, {}};
        layout_.encodeRecord(*r, entry.fields);
        entries_.push_back(std::move(entry));
      }
    }
    db_.orderedPending();
    return;
  }
  auto mark = [this](const Entity& x) {
    if (x.kivTrack() & whole) return;
    x.kivTrackIs(x.kivTrack() | whole | Entity::trackQueued);
    whole_.emplace_back(const_cast<Entity*>(&x));
  };
  if (layout_.folded(e)) {
    mark(e);
  } else {
    layout_.forEachRecord(e, mark);
  }
  db_.coalescedPending();
}

void RedisWriter::onDetach(Entity& e) {
  const bool folded = layout_.folded(e);
  if (ordered_) {
    if (folded) {
      orderedRecord(layout_.recordOf(e));
      return;
    }
    orderedClose();
    layout_.forEachRecord(e, [&](const Entity& r) {
      entries_.push_back(Entry{layout_.recordKey(r), true, {}});
    });
    db_.orderedPending();
    return;
  }
  if (folded) {
    const std::string key = layout_.recordKey(*layout_.recordOf(e));
    std::vector<std::string> fields;
    layout_.foldedFields(e, fields);
    for (auto& f : fields) removals_.push_back(Removal{key, std::move(f)});
  } else {
    layout_.forEachRecord(e, [&](const Entity& r) {
      removals_.push_back(Removal{layout_.recordKey(r), ""});
    });
  }
  db_.coalescedPending();
}

// --- batches ------------------------------------------------------------------------------------------

void RedisWriter::flush() {
  if (phase_ != Phase::live || !db_.connection().connected() || rewriteWanted_) return;
  ordered_ ? flushOrdered() : flushCoalesced();
}

// A failed batch leaves the server's state unknown: the next check (within a second, so that a
// server that keeps failing is not rewritten in a loop) writes everything again.
void RedisWriter::execHandle(const redisReply* r, bool coalesced) {
  if (coalesced) db_.coalescedInFlightInc(-1);
  if (!r || phase_ != Phase::live) return;
  bool failed = r->type != REDIS_REPLY_ARRAY;
  for (size_t i = 0; !failed && i < r->elements; ++i) failed = RedisReplies::isError(r->element[i]);
  if (failed && !rewriteWanted_) {
    rewriteWanted_ = true;
    rewriteWhy_ = "a batch failed: " + RedisReplies::text(r);
  }
}

// One MULTI: each changed hash replaced whole by its last state, every entry appended to the stream
// in the order the changes were made, and the mount's last sequence.
void RedisWriter::flushOrdered() {
  orderedClose();
  if (entries_.empty()) return;
  RedisConnection& c = db_.connection();
  std::unordered_map<std::string_view, size_t> last;
  for (size_t i = 0; i < entries_.size(); ++i) last[entries_[i].key] = i;
  c.command({"MULTI"});
  for (size_t i = 0; i < entries_.size(); ++i) {
    const Entry& e = entries_[i];
    if (last[e.key] != i) continue;
    c.command({"DEL", e.key});
    if (e.del) continue;
    c.begin(2 + 2 * e.fields.size() + 2);
    c.arg("HSET");
    c.arg(e.key);
    for (const auto& [f, v] : e.fields) c.arg(f), c.arg(v);
    c.arg("_seq");
    c.arg(seq_ + i + 1);
    c.end();
  }
  const std::string length = std::to_string(streamLength);
  for (size_t i = 0; i < entries_.size(); ++i) {
    const Entry& e = entries_[i];
    c.begin(10 + 2 * e.fields.size());
    c.arg("XADD");
    c.arg(layout_.logKey());
    c.arg("MAXLEN");
    c.arg("~");
    c.arg(length);
    c.arg(idOf(gen_, seq_ + i + 1));
    c.arg("_op");
    c.arg(e.del ? "del" : "set");
    c.arg("_k");
    c.arg(e.key);
    for (const auto& [f, v] : e.fields) c.arg(f), c.arg(v);
    c.end();
  }
  seq_ += entries_.size();
  entries_.clear();
  c.command({"HSET", layout_.metaKey(), "seq", std::to_string(seq_)});
  c.command({"EXEC"}, [this](const redisReply* r) { execHandle(r, false); });
}

// The latest values of what changed, per key: what left the tree first, then whole writes, then
// single fields, in MULTIs of bounded size, each noted in the stream with the keys it touched.
void RedisWriter::flushCoalesced() {
  if (!hasPending()) return;
  struct KeyWork {
    bool del = false;
    bool whole = false;
    const Entity* record = nullptr;
    std::vector<std::string> hdels;
    Fields sets;
  };
  std::map<std::string, KeyWork> work;
  std::unordered_map<const Entity*, std::string> keys;
  auto keyOf = [&](const Entity& record) -> const std::string& {
    auto [it, added] = keys.try_emplace(&record);
    if (added) it->second = layout_.recordKey(record);
    return it->second;
  };
  for (Removal& r : removals_) {
    KeyWork& w = work[r.key];
    if (r.field.empty()) {
      w = KeyWork{};
      w.del = true;
    } else {
      w.hdels.push_back(std::move(r.field));
    }
  }
  for (auto& e : whole_) {
    e->kivTrackIs(e->kivTrack() & ~(whole | Entity::trackQueued));
    if (!attached(*e)) continue;
    if (layout_.folded(*e)) {
      layout_.encodeFolded(*e, work[keyOf(*layout_.recordOf(*e))].sets);
    } else {
      KeyWork& w = work[keyOf(*e)];
      w.whole = true;
      w.record = e.ptr();
    }
  }
  for (auto& e : dirty_) {
    const uint8_t bits = e->kivTrack();
    if (!(bits & Entity::trackQueued)) continue;  // written whole above
    e->kivTrackIs(bits & ~Entity::trackQueued);
    if (!attached(*e)) continue;
    if (layout_.folded(*e)) {
      work[keyOf(*layout_.recordOf(*e))].sets.emplace_back(layout_.fieldOf(*e), layout_.compactValue(*e));
    } else {
      Fields& sets = work[keyOf(*e)].sets;
      for (const AttrInfo& a : e->typeInfo().attrs) {
        if (a.text) sets.emplace_back(a.name, a.text(*e));
      }
    }
  }
  for (Element& el : elements_) {
    if (!attached(*el.entity)) continue;
    const AttrInfo& a = el.entity->typeInfo().attrs[el.attr];
    KeyWork& w = work[keyOf(*layout_.recordOf(*el.entity))];
    std::string value, field = layout_.elementField(*el.entity, a, el.key);
    if (a.elementText(*el.entity, el.key, value)) {
      w.sets.emplace_back(std::move(field), std::move(value));
    } else {
      w.hdels.push_back(std::move(field));
    }
  }
  dirty_.clear();
  whole_.clear();
  elements_.clear();
  removals_.clear();

  RedisConnection& c = db_.connection();
  size_t commands = 0;
  std::string touched;
  auto close = [&] {
    ++seq_;
    c.command({"XADD", layout_.logKey(), "MAXLEN", "~", std::to_string(streamLength), idOf(gen_, seq_), "_op",
               "dirty", "_keys", touched});
    c.command({"HSET", layout_.metaKey(), "seq", std::to_string(seq_)});
    db_.coalescedInFlightInc(1);
    c.command({"EXEC"}, [this](const redisReply* r) { execHandle(r, true); });
    commands = 0;
    touched.clear();
  };
  Fields all;
  for (auto& [key, w] : work) {
    if (!commands) c.command({"MULTI"});
    touched += (touched.empty() ? "" : "\n") + key;
    if (w.del || w.whole) c.command({"DEL", key}), ++commands;
    if (!w.whole && !w.hdels.empty()) {
      c.begin(2 + w.hdels.size());
      c.arg("HDEL");
      c.arg(key);
      for (const std::string& f : w.hdels) c.arg(f);
      c.end();
      ++commands;
    }
    all.clear();
    if (w.whole) layout_.encodeRecord(*w.record, all);
    if (!w.whole && w.del && w.sets.empty()) continue;
    c.begin(2 + 2 * (all.size() + w.sets.size()) + 2);
    c.arg("HSET");
    c.arg(key);
    for (const auto& [f, v] : all) c.arg(f), c.arg(v);
    for (const auto& [f, v] : w.sets) c.arg(f), c.arg(v);
    c.arg("_seq");
    c.arg(seq_ + 1);
    c.end();
    if (++commands >= chunkCommands) close();
  }
  if (commands) close();
}

}  // namespace Platform
