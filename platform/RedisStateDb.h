// The state database on a Redis server. One connection carries every writable mount, so that all
// their writes keep one total order: coalesced flushes always go before an ordered batch. Each
// read-only mount follows its stream on a connection of its own. Design and key layout:
// docs/state-database.md.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kernel/Clock.h"
#include "platform/MountLayout.h"
#include "platform/RedisConnection.h"
#include "platform/StateDb.h"

namespace Platform {

class RedisWriter;
class RedisReader;

class RedisStateDb : public StateDb {
 public:
  explicit RedisStateDb(std::string address);
  ~RedisStateDb() override;

  Kiv::Ptr<Kiv::Entity> mount(const std::string& path, const Kiv::Ptr<Kiv::Entity>& root,
                              const MountOptions& options) override;
  bool loaded() const override;
  bool waitLoaded(Kiv::Seconds timeout) override;

  const std::string& address() const { return address_; }
  RedisConnection& connection() { return conn_; }
  // The server's run_id, as last read on connecting.
  const std::string& runId() const { return runId_; }
  // A writer has ordered changes: they go out at the end of this turn.
  void orderedPending();
  // A writer has coalesced changes: they go out within the flush interval.
  void coalescedPending();
  // Coalesced batches sent and not yet answered; more than one stretches the interval.
  void coalescedInFlightInc(int d) { coalescedInFlight_ += d; }
  // Sends everything pending now, coalesced first.
  void flushNow();
  // Nothing pending to send and no reply outstanding on the writers' connection.
  bool idle() const;
  // The coalesced flush interval in force: 50 ms, doubled while Redis lags, up to 1 s.
  Kiv::Seconds flushInterval() const { return interval_; }

 private:
  void handleUp();
  void handleFlushTimer();
  void handleCheckTimer();

  std::string address_;
  RedisConnection conn_;
  std::vector<std::unique_ptr<RedisWriter>> writers_;
  std::vector<std::unique_ptr<RedisReader>> readers_;
  std::string runId_;
  LoopTimer flushTimer_{[this] { handleFlushTimer(); }};
  LoopTimer checkTimer_{[this] { handleCheckTimer(); }};
  Kiv::Seconds interval_ = 0.05;
  int coalescedInFlight_ = 0;
  bool flushDeferred_ = false;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// Reply helpers shared by the writers and readers.
namespace RedisReplies {
bool isError(const redisReply* r);
// A hash as HGETALL gives it; false for a reply of another type.
bool hash(const redisReply* r, Fields& out);
// The field of a HGETALL reply, or "" when absent.
std::string hashField(const redisReply* r, std::string_view field);
std::string text(const redisReply* r);
}  // namespace RedisReplies

}  // namespace Platform
