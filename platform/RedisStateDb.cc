// The database's connection life, mounts, and the flush schedule that keeps one total order.
#include "platform/RedisStateDb.h"

#include <hiredis/hiredis.h>

#include <algorithm>
#include <chrono>

#include "kernel/ActivityManager.h"
#include "platform/RedisReader.h"
#include "platform/RedisWriter.h"
#include "platform/StateDbLogs.h"

namespace Platform {

namespace RedisReplies {

bool isError(const redisReply* r) { return !r || r->type == REDIS_REPLY_ERROR; }

bool hash(const redisReply* r, Fields& out) {
  out.clear();
  if (!r || r->type != REDIS_REPLY_ARRAY || r->elements % 2) return false;
  out.reserve(r->elements / 2);
  for (size_t i = 0; i + 1 < r->elements; i += 2)
    out.emplace_back(text(r->element[i]), text(r->element[i + 1]));
  return true;
}

std::string hashField(const redisReply* r, std::string_view field) {
  if (!r || r->type != REDIS_REPLY_ARRAY) return "";
  for (size_t i = 0; i + 1 < r->elements; i += 2) {
    if (text(r->element[i]) == field) return text(r->element[i + 1]);
  }
  return "";
}

std::string text(const redisReply* r) {
  if (r && (r->type == REDIS_REPLY_STRING || r->type == REDIS_REPLY_STATUS))
    return std::string(r->str, r->len);
  return replyText(r);
}

}  // namespace RedisReplies

namespace {
constexpr Kiv::Seconds minInterval = 0.05, maxInterval = 1.0;
}

RedisStateDb::RedisStateDb(std::string address) : address_(address), conn_(std::move(address)) {
  conn_.onUpIs([this] { handleUp(); });
  conn_.onDownIs([this](const std::string&) {
    coalescedInFlight_ = 0;
    for (auto& w : writers_) w->handleDown();
  });
}

RedisStateDb::~RedisStateDb() { *alive_ = false; }

Kiv::Ptr<Kiv::Entity> RedisStateDb::mount(const std::string& path, const Kiv::Ptr<Kiv::Entity>& root,
                                          const MountOptions& options) {
  if (!MountLayout::pathValid(path))
    Kiv::throwRangeException("state database mount path " + path + " not allowed");
  entityAtPathIs(path, root);
  if (options.writable) {
    writers_.push_back(std::make_unique<RedisWriter>(*this, path, root, options));
    if (conn_.connected()) writers_.back()->handleUp();
  } else {
    readers_.push_back(std::make_unique<RedisReader>(address_, path, root, options));
  }
  return root;
}

bool RedisStateDb::loaded() const {
  return std::all_of(writers_.begin(), writers_.end(), [](const auto& w) { return w->loaded(); }) &&
         std::all_of(readers_.begin(), readers_.end(), [](const auto& r) { return r->loaded(); });
}

bool RedisStateDb::waitLoaded(Kiv::Seconds timeout) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeout);
  // Each turn waits at most until the deadline.
  Kiv::Clock::NotifieeConst deadline;
  deadline.notifierIs(Kiv::ActivityManagerConfig::clock());
  deadline.timeMinIs(Kiv::System::currentTime() + timeout);
  while (!loaded() && std::chrono::steady_clock::now() < end) Kiv::activityManager()->runOnce();
  if (loaded()) return true;
  for (auto& w : writers_) w->loadAbandon();
  return false;
}

// Before any mount uses the connection: which server this is, and whether it may evict our keys.
void RedisStateDb::handleUp() {
  conn_.command({"INFO", "server"}, [this](const redisReply* r) {
    const std::string info = RedisReplies::text(r);
    const size_t at = info.find("run_id:");
    if (at != std::string::npos) runId_ = info.substr(at + 7, info.find_first_of("\r\n", at) - at - 7);
  });
  conn_.command({"CONFIG", "GET", "maxmemory-policy"}, [this](const redisReply* r) {
    const std::string policy = RedisReplies::hashField(r, "maxmemory-policy");
    if (r && policy != "noeviction") Kiv::log(STATEDB_EVICTION_POLICY, address_, policy);
  });
  for (auto& w : writers_) w->handleUp();
  if (checkTimer_.timeMin() == Kiv::infinity) checkTimer_.timeMinIs(Kiv::System::currentTime() + 1.0);
}

void RedisStateDb::orderedPending() {
  if (flushDeferred_) return;
  flushDeferred_ = true;
  Kiv::activityManager()->deferIs([this, alive = alive_] {
    if (!*alive) return;
    flushDeferred_ = false;
    flushNow();
  });
}

void RedisStateDb::coalescedPending() {
  if (flushTimer_.timeMin() == Kiv::infinity) flushTimer_.timeMinIs(Kiv::System::currentTime() + interval_);
}

void RedisStateDb::flushNow() {
  for (auto& w : writers_) {
    if (!w->ordered()) w->flush();
  }
  for (auto& w : writers_) {
    if (w->ordered()) w->flush();
  }
}

// A flush may not take more than a tenth of the loop, nor go out while the server is still on more
// than one earlier flush: under either load the interval doubles, up to a second, and coalescing
// absorbs the difference.
void RedisStateDb::handleFlushTimer() {
  const Kiv::Seconds now = Kiv::System::currentTime();
  if (coalescedInFlight_ > 1) {
    interval_ = std::min(interval_ * 2, maxInterval);
    flushTimer_.timeMinIs(now + interval_);
    return;
  }
  const auto t0 = std::chrono::steady_clock::now();
  for (auto& w : writers_) {
    if (!w->ordered()) w->flush();
  }
  const double spent = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  interval_ = std::clamp(std::max(spent * 10, interval_ / 2), minInterval, maxInterval);
  const bool more = std::any_of(writers_.begin(), writers_.end(),
                                [](const auto& w) { return !w->ordered() && w->hasPending(); });
  if (more) flushTimer_.timeMinIs(now + interval_);
}

void RedisStateDb::handleCheckTimer() {
  if (!conn_.connected()) return;
  for (auto& w : writers_) w->check();
  checkTimer_.timeMinIs(Kiv::System::currentTime() + 1.0);
}

bool RedisStateDb::idle() const {
  return !conn_.pendingReplies() && !conn_.pendingBytes() && !flushDeferred_ &&
         std::none_of(writers_.begin(), writers_.end(), [](const auto& w) { return w->hasPending(); });
}

}  // namespace Platform
