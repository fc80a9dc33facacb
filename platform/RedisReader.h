// A read-only mount: a local replica of a tree that another process writes. It notes the head of
// the mount's stream, takes a snapshot of the hashes (SCAN with pipelined reads), then applies the
// stream from the noted entry, each change only if newer than what the record holds; a gap in the
// sequence or a new generation means a new snapshot. Changes reach the entities through their
// setters, so reactors fire as for local changes.
#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>

#include "kernel/Clock.h"
#include "platform/MountLayout.h"
#include "platform/RedisConnection.h"
#include "platform/StateDb.h"

namespace Platform {

class RedisReader {
 public:
  // Entries asked for per read; a full page is followed at once by the next read.
  static constexpr unsigned readCount = 1000;
  // How long a read waits for new entries before it asks again.
  static constexpr unsigned blockMs = 1000;

  RedisReader(const std::string& address, const std::string& path, const Kiv::Ptr<Kiv::Entity>& root,
              const MountOptions& options);

  // A snapshot has been applied.
  bool loaded() const { return loaded_; }
  uint64_t generation() const { return gen_; }
  // The last entry of the stream applied.
  uint64_t sequence() const { return lastSeq_; }

 private:
  void start();
  void snapshot(uint64_t cursor);
  void snapshotRead(const std::string& key);
  void snapshotDone();
  // Keeps the records the snapshot showed (seen_) and no other; the tree is loaded then.
  void recordsKeep();
  void follow(bool block);
  void entries(const redisReply* r);
  void entry(uint64_t seq, const redisReply* fields);
  void keyRead(const std::string& key);
  void resync(const std::string& why);

  RedisConnection conn_;
  MountLayout layout_;
  Kiv::Ptr<Kiv::Entity> root_;
  LoopTimer retry_{[this] { start(); }};
  uint64_t epoch_ = 0;
  uint64_t gen_ = 0, lastSeq_ = 0;
  size_t outstanding_ = 0;
  bool scanDone_ = false;
  bool loaded_ = false;
  std::unordered_map<std::string, uint64_t> seqOf_;
  std::unordered_set<std::string> seen_;
};

}  // namespace Platform
