// A writable mount: the change sink of its tree. It reads the tree back when it starts, then sends
// what changes, ordered (each loop turn one MULTI/EXEC that rewrites the changed hashes whole and
// appends their post-state to the mount's stream) or coalesced (the latest values of what changed,
// in chunks, on the database's flush timer). When the server lost anything it writes everything
// again under a new generation.
#pragma once

#include <string>
#include <vector>

#include "kernel/ChangeSink.h"
#include "platform/MountLayout.h"
#include "platform/StateDb.h"

struct redisReply;

namespace Platform {

class RedisStateDb;

class RedisWriter : public Kiv::ChangeSink {
 public:
  // Entries kept in the stream: at 100 ordered changes a second, about 17 minutes.
  static constexpr size_t streamLength = 100000;

  RedisWriter(RedisStateDb& db, const std::string& path, const Kiv::Ptr<Kiv::Entity>& root,
              const MountOptions& options);
  ~RedisWriter() override;

  const MountLayout& layout() const { return layout_; }
  bool ordered() const { return ordered_; }
  // Read back (or given up on) and tracking.
  bool loaded() const { return phase_ != Phase::loading; }
  bool hasPending() const;
  uint64_t generation() const { return gen_; }
  uint64_t sequence() const { return seq_; }

  // The connection came up (the server's run_id is read) or went.
  void handleUp();
  void handleDown();
  // Stop waiting for the read-back: what the tree holds now is the state to write.
  void loadAbandon();
  // Sends what is pending, when connected and not rewriting.
  void flush();
  // Every second: catches a database flushed under a live connection.
  void check();

  void onChange(Kiv::Entity& e, uint16_t id, const void* key) override;
  void onAttach(Kiv::Entity& e) override;
  void onDetach(Kiv::Entity& e) override;

 private:
  enum class Phase { loading, rewriting, live };
  // An ordered change: a record's post-state, or its deletion.
  struct Entry {
    std::string key;
    bool del;
    Fields fields;
  };
  struct Element {
    Kiv::Ptr<Kiv::Entity> entity;
    uint16_t attr;
    std::string key;
  };
  struct Removal {
    std::string key;
    std::string field;  // empty: the whole key
  };
  struct Meta {
    bool present = false;
    std::string state;
    uint64_t gen = 0, seq = 0;
    int schema = 0;
  };
  static Meta metaOf(const redisReply* r);

  void reload(uint64_t cursor);
  void reloadKeys(const redisReply* keys);
  void reloadDone();
  void track();
  void rewrite(const std::string& why);
  void rewriteUnlink(uint64_t cursor);
  void rewriteWrite();
  void pendingDrop();
  bool attached(const Kiv::Entity& e) const;
  void orderedRecord(const Kiv::Entity* record);
  void orderedClose();
  void flushOrdered();
  void flushCoalesced();
  void execHandle(const redisReply* r, bool coalesced);

  RedisStateDb& db_;
  MountLayout layout_;
  Kiv::Ptr<Kiv::Entity> root_;
  bool ordered_;
  Phase phase_ = Phase::loading;
  uint64_t gen_ = 0, seq_ = 0;
  std::string runId_;
  Meta loadedMeta_;
  size_t loadOutstanding_ = 0;
  bool loadScanDone_ = false;
  bool rewriteWanted_ = false;
  std::string rewriteWhy_;
  // Ordered: the record whose entry is still open (its later changes join it), and the entries.
  Kiv::Ptr<Kiv::Entity> open_;
  std::vector<Entry> entries_;
  // Coalesced: entities whose scalars are queued (trackQueued), entities to write whole
  // (trackSink1), elements of value collections, and what left the tree.
  std::vector<Kiv::Ptr<Kiv::Entity>> dirty_, whole_;
  std::vector<Element> elements_;
  std::vector<Removal> removals_;
};

}  // namespace Platform
