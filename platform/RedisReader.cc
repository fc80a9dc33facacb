// A read-only mount's snapshot, stream following and resynchronisation.
#include "platform/RedisReader.h"

#include <hiredis/hiredis.h>

#include "kernel/ActivityManager.h"
#include "platform/RedisStateDb.h"
#include "platform/StateDbLogs.h"

namespace Platform {

namespace {

bool idParse(std::string_view id, uint64_t& gen, uint64_t& seq) {
  const size_t dash = id.find('-');
  unsigned long long g = 0, s = 0;
  if (dash == std::string_view::npos || !Kiv::detail::parseUnsigned(id.substr(0, dash), g) ||
      !Kiv::detail::parseUnsigned(id.substr(dash + 1), s))
    return false;
  gen = g, seq = s;
  return true;
}

constexpr Kiv::Seconds metaPoll = 0.5;

}  // namespace

RedisReader::RedisReader(const std::string& address, const std::string& path,
                         const Kiv::Ptr<Kiv::Entity>& root, const MountOptions& options)
    : conn_(address), layout_(path, options.folded), root_(root) {
  layout_.rootIs(root.ptr());
  conn_.onUpIs([this] { start(); });
  conn_.onDownIs([this](const std::string&) { ++epoch_; });
  if (conn_.connected()) start();
}

void RedisReader::resync(const std::string& why) {
  Kiv::log(STATEDB_RESYNC, layout_.path(), why);
  start();
}

// The generation, then the head of its stream, then the snapshot.
void RedisReader::start() {
  const uint64_t epoch = ++epoch_;
  if (!conn_.connected()) return;
  conn_.command({"HGETALL", layout_.metaKey()}, [this, epoch](const redisReply* r) {
    if (!r || epoch != epoch_) return;
    Fields meta;
    RedisReplies::hash(r, meta);
    std::string state, gen;
    for (const auto& [k, v] : meta) {
      if (k == "state") state = v;
      if (k == "gen") gen = v;
    }
    unsigned long long g = 0;
    if (meta.empty()) {
      // Nobody has written this tree yet: its snapshot is empty, and that is a loaded tree. A writer
      // that comes later is found by the next poll.
      seen_.clear();
      recordsKeep();
      retry_.timeMinIs(Kiv::System::currentTime() + metaPoll);
      return;
    }
    if (state != "ready" || !Kiv::detail::parseUnsigned(gen, g) || !g) {
      if (!meta.empty() && state == "ready")
        Kiv::log(STATEDB_BAD_DATA, layout_.path(), layout_.metaKey(), "no generation");
      retry_.timeMinIs(Kiv::System::currentTime() + metaPoll);
      return;
    }
    gen_ = g;
    conn_.command({"XREVRANGE", layout_.logKey(), "+", "-", "COUNT", "1"},
                  [this, epoch](const redisReply* r) {
                    if (!r || epoch != epoch_) return;
                    uint64_t g = gen_, s = 0;
                    if (r->type == REDIS_REPLY_ARRAY && r->elements == 1 &&
                        r->element[0]->type == REDIS_REPLY_ARRAY && r->element[0]->elements == 2) {
                      idParse(RedisReplies::text(r->element[0]->element[0]), g, s);
                    }
                    if (g != gen_) {
                      retry_.timeMinIs(Kiv::System::currentTime() + metaPoll);
                      return;
                    }
                    lastSeq_ = s;
                    seen_.clear();
                    seqOf_.clear();
                    outstanding_ = 0;
                    scanDone_ = false;
                    snapshotRead(layout_.path());
                    snapshot(0);
                  });
  });
}

void RedisReader::snapshot(uint64_t cursor) {
  const uint64_t epoch = epoch_;
  const std::string at = std::to_string(cursor), pattern = layout_.scanPattern();
  conn_.command({"SCAN", at, "MATCH", pattern, "COUNT", "1000"}, [this, epoch](const redisReply* r) {
    if (!r || epoch != epoch_) return;
    if (r->type != REDIS_REPLY_ARRAY || r->elements != 2 || r->element[1]->type != REDIS_REPLY_ARRAY) {
      Kiv::log(STATEDB_BAD_DATA, layout_.path(), "SCAN", RedisReplies::text(r));
      return;
    }
    const redisReply* keys = r->element[1];
    for (size_t i = 0; i < keys->elements; ++i) snapshotRead(RedisReplies::text(keys->element[i]));
    unsigned long long next = 0;
    Kiv::detail::parseUnsigned(RedisReplies::text(r->element[0]), next);
    if (next) {
      snapshot(next);
    } else {
      scanDone_ = true;
      if (!outstanding_) snapshotDone();
    }
  });
}

void RedisReader::snapshotRead(const std::string& key) {
  const uint64_t epoch = epoch_;
  ++outstanding_;
  conn_.command({"HGETALL", key}, [this, epoch, key](const redisReply* r) {
    if (!r || epoch != epoch_) return;
    --outstanding_;
    Fields f;
    std::string why;
    if (!RedisReplies::hash(r, f)) {
      Kiv::log(STATEDB_BAD_DATA, layout_.path(), key, RedisReplies::text(r));
    } else if (!f.empty()) {
      if (Kiv::Entity* record = layout_.recordAt(*root_, key, true, why)) {
        std::vector<std::string> problems;
        layout_.recordApply(*record, f, problems);
        if (!problems.empty()) Kiv::log(STATEDB_BAD_DATA, layout_.path(), key, problems.front());
        seen_.insert(key);
        unsigned long long s = 0;
        for (const auto& [field, value] : f) {
          if (field == "_seq") Kiv::detail::parseUnsigned(value, s);
        }
        seqOf_[key] = s;
      } else {
        Kiv::log(STATEDB_BAD_DATA, layout_.path(), key, why);
      }
    }
    if (scanDone_ && !outstanding_) snapshotDone();
  });
}

void RedisReader::snapshotDone() {
  recordsKeep();
  follow(false);
}

// Records the snapshot did not show are gone.
void RedisReader::recordsKeep() {
  std::vector<std::string> gone;
  layout_.forEachRecord(*root_, [&](const Kiv::Entity& record) {
    if (&record == root_.ptr()) return;
    std::string key = layout_.recordKey(record);
    if (!seen_.count(key)) gone.push_back(std::move(key));
  });
  for (const std::string& key : gone) layout_.recordDel(*root_, key);
  seen_.clear();
  loaded_ = true;
}

void RedisReader::follow(bool block) {
  const uint64_t epoch = epoch_;
  const std::string from = std::to_string(gen_) + "-" + std::to_string(lastSeq_);
  const std::string count = std::to_string(readCount), wait = std::to_string(blockMs);
  auto handler = [this, epoch](const redisReply* r) {
    if (!r || epoch != epoch_) return;
    entries(r);
  };
  if (block) {
    conn_.command({"XREAD", "COUNT", count, "BLOCK", wait, "STREAMS", layout_.logKey(), from}, handler,
                  blockMs);
  } else {
    conn_.command({"XREAD", "COUNT", count, "STREAMS", layout_.logKey(), from}, handler);
  }
}

void RedisReader::entries(const redisReply* r) {
  const uint64_t epoch = epoch_;
  size_t n = 0;
  if (r->type == REDIS_REPLY_ARRAY && r->elements == 1 && r->element[0]->type == REDIS_REPLY_ARRAY &&
      r->element[0]->elements == 2 && r->element[0]->element[1]->type == REDIS_REPLY_ARRAY) {
    const redisReply* list = r->element[0]->element[1];
    n = list->elements;
    for (size_t i = 0; i < list->elements && epoch == epoch_; ++i) {
      const redisReply* e = list->element[i];
      uint64_t g = 0, s = 0;
      if (e->type != REDIS_REPLY_ARRAY || e->elements != 2 ||
          !idParse(RedisReplies::text(e->element[0]), g, s)) {
        resync("an entry of the stream does not parse");
        return;
      }
      if (g != gen_) {
        resync("the writer started generation " + std::to_string(g));
        return;
      }
      if (s != lastSeq_ + 1) {
        resync("entries " + std::to_string(lastSeq_ + 1) + " to " + std::to_string(s - 1) + " were trimmed");
        return;
      }
      entry(s, e->element[1]);
      lastSeq_ = s;
    }
  } else if (r->type == REDIS_REPLY_ERROR) {
    Kiv::log(STATEDB_BAD_DATA, layout_.path(), layout_.logKey(), RedisReplies::text(r));
  }
  if (epoch == epoch_) follow(n < readCount);
}

void RedisReader::entry(uint64_t seq, const redisReply* fields) {
  Fields f;
  if (!RedisReplies::hash(fields, f)) return;
  std::string op, key, keys;
  for (const auto& [k, v] : f) {
    if (k == "_op") op = v;
    if (k == "_k") key = v;
    if (k == "_keys") keys = v;
  }
  if (op == "dirty") {
    for (size_t at = 0; at < keys.size();) {
      const size_t nl = std::min(keys.find('\n', at), keys.size());
      keyRead(keys.substr(at, nl - at));
      at = nl + 1;
    }
    return;
  }
  if ((op != "set" && op != "del") || seq <= seqOf_[key]) return;
  seqOf_[key] = seq;
  if (op == "del") {
    layout_.recordDel(*root_, key);
    return;
  }
  std::string why;
  if (Kiv::Entity* record = layout_.recordAt(*root_, key, true, why)) {
    std::vector<std::string> problems;
    layout_.recordApply(*record, f, problems);
    if (!problems.empty()) Kiv::log(STATEDB_BAD_DATA, layout_.path(), key, problems.front());
  } else {
    Kiv::log(STATEDB_BAD_DATA, layout_.path(), key, why);
  }
}

// A coalesced change names keys only: their latest state is read again.
void RedisReader::keyRead(const std::string& key) {
  const uint64_t epoch = epoch_;
  conn_.command({"HGETALL", key}, [this, epoch, key](const redisReply* r) {
    if (!r || epoch != epoch_) return;
    Fields f;
    std::string why;
    if (!RedisReplies::hash(r, f)) {
      Kiv::log(STATEDB_BAD_DATA, layout_.path(), key, RedisReplies::text(r));
    } else if (f.empty()) {
      layout_.recordDel(*root_, key);
    } else if (Kiv::Entity* record = layout_.recordAt(*root_, key, true, why)) {
      std::vector<std::string> problems;
      layout_.recordApply(*record, f, problems);
      if (!problems.empty()) Kiv::log(STATEDB_BAD_DATA, layout_.path(), key, problems.front());
    } else {
      Kiv::log(STATEDB_BAD_DATA, layout_.path(), key, why);
    }
  });
}

}  // namespace Platform
