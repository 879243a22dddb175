// The writer thread and its watch. Batches are committed in the order they
// were queued, as many as are waiting in one transaction; a batch that
// cannot be committed is refused whole and undone in memory, so the bus
// shows what a restart will show. While the store is unhealthy the writer
// probes it every second, so that it writes again by itself once space or
// the file system returns.
#include "store/store_writer.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "store/fault_vfs.h"

namespace sim {
namespace {

using Clock = std::chrono::steady_clock;

// Most writes queued and not yet stored; past it a write is refused.
constexpr size_t kQueuedOpsMax = 1 << 16;
// Refused batches remembered for their waiters.
constexpr size_t kRefusedKept = 256;
// A commit that has not returned after this long is a stalled store.
constexpr auto kStallAfter = std::chrono::milliseconds(1000);
constexpr auto kWatchPeriod = std::chrono::milliseconds(200);
constexpr auto kProbePeriod = std::chrono::milliseconds(1000);

struct Writer {
  std::mutex mutex;                      // guards everything below but db
  std::condition_variable work;          // a batch queued, or stop
  std::condition_variable resolved;      // done grew
  std::deque<std::pair<uint64_t, StoreBatch>> queue;
  size_t queued_ops = 0;
  uint64_t last = 0;                     // number of the last batch queued
  uint64_t done = 0;                     // every batch up to it is resolved
  std::deque<std::pair<uint64_t, StoreHealth>> refused;  // number, why
  StoreHealth failure = StoreHealth::Ok; // outcome of the last commit
  bool busy = false;                     // a commit is under way
  Clock::time_point busy_since;
  bool stop = false;
  std::atomic<bool> running{false};     // read without the mutex by the bus
  std::thread thread, watch;
  std::mutex announce_mutex;             // keeps announcements in order
  StoreHealth announced = StoreHealth::Ok;
  sqlite3* db = nullptr;                 // the writer thread's alone
  StoreUndo undo = nullptr;
  StoreAnnounce announce = nullptr;
};

Writer& writer() {
  static Writer* w = new Writer;
  return *w;
}

// The health a failed SQLite call tells.
StoreHealth classify(sqlite3* db) {
  int code = sqlite3_extended_errcode(db) & 0xff;
  // The errno of an injected fault first: SQLite does not keep every one.
  int sys = fault_vfs_errno() != 0 ? fault_vfs_errno() : sqlite3_system_errno(db);
  if (code == SQLITE_FULL || sys == ENOSPC || sys == EDQUOT) return StoreHealth::Full;
  if (code == SQLITE_READONLY || sys == EROFS || sys == EACCES || sys == EPERM) {
    return StoreHealth::ReadOnly;
  }
  return StoreHealth::Failing;
}

// Runs one statement of SQL text.
bool exec(sqlite3* db, const char* sql) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

// Runs one write or erase.
bool apply(sqlite3* db, const StoreOp& op) {
  const char* sql = op.erase ? "DELETE FROM kv WHERE key = ?1"
                             : "INSERT INTO kv(key, value) VALUES(?1, ?2)"
                               " ON CONFLICT(key) DO UPDATE SET value = ?2";
  sqlite3_stmt* statement = nullptr;
  // Prepared per write: microseconds, against the milliseconds of the sync.
  if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) return false;
  sqlite3_bind_text(statement, 1, op.key.data(), static_cast<int>(op.key.size()), SQLITE_STATIC);
  if (!op.erase) {
    sqlite3_bind_text(statement, 2, op.value.data(), static_cast<int>(op.value.size()),
                      SQLITE_STATIC);
  }
  int rc = sqlite3_step(statement);
  sqlite3_finalize(statement);
  return rc == SQLITE_DONE;
}

// Ends a failed transaction, if SQLite has not ended it itself.
void roll_back(sqlite3* db) {
  if (!sqlite3_get_autocommit(db)) exec(db, "ROLLBACK");
}

// Commits the batches as one transaction; Ok, else what went wrong.
StoreHealth commit(sqlite3* db, const std::deque<std::pair<uint64_t, StoreBatch>>& batches) {
  bool ok = exec(db, "BEGIN IMMEDIATE");
  for (const auto& batch : batches) {
    for (const StoreOp& op : batch.second) ok = ok && apply(db, op);
  }
  ok = ok && exec(db, "COMMIT");
  if (ok) return StoreHealth::Ok;
  StoreHealth why = classify(db);
  roll_back(db);
  return why;
}

// Tries a small write while the store is unhealthy; Ok once it works.
StoreHealth probe(sqlite3* db) {
  bool ok = exec(db, "BEGIN IMMEDIATE") &&
            exec(db, "INSERT INTO probe(id) VALUES(1) ON CONFLICT(id) DO NOTHING") &&
            exec(db, "DELETE FROM probe") && exec(db, "COMMIT");
  if (ok) return StoreHealth::Ok;
  StoreHealth why = classify(db);
  roll_back(db);
  return why;
}

// Says a change of health, once.
void report(StoreHealth health) {
  Writer& w = writer();
  std::lock_guard<std::mutex> order(w.announce_mutex);
  if (health == w.announced) return;
  w.announced = health;
  if (w.announce != nullptr) w.announce(health);
}

// Marks the batches resolved (refused with why unless Ok) and wakes waiters.
void resolve(const std::deque<std::pair<uint64_t, StoreBatch>>& batches, StoreHealth why) {
  Writer& w = writer();
  std::lock_guard<std::mutex> guard(w.mutex);
  for (const auto& batch : batches) {
    if (why != StoreHealth::Ok) w.refused.emplace_back(batch.first, why);
    w.done = std::max(w.done, batch.first);
  }
  while (w.refused.size() > kRefusedKept) w.refused.pop_front();
  w.failure = why;
  w.resolved.notify_all();
}

// The writer thread: commits what is queued, probes while unhealthy.
void write_loop() {
  Writer& w = writer();
  for (;;) {
    std::deque<std::pair<uint64_t, StoreBatch>> taken;
    {
      std::unique_lock<std::mutex> lock(w.mutex);
      w.work.wait_for(lock, kProbePeriod, [&] { return w.stop || !w.queue.empty(); });
      if (w.queue.empty() && w.stop) return;
      if (w.queue.empty() && w.failure == StoreHealth::Ok) continue;
      taken.swap(w.queue);
      w.queued_ops = 0;
      w.busy = true;
      w.busy_since = Clock::now();
    }
    StoreHealth outcome = taken.empty() ? probe(w.db) : commit(w.db, taken);
    // Undone in memory before a waiter hears of the refusal.
    if (outcome != StoreHealth::Ok && w.undo != nullptr) {
      for (auto it = taken.rbegin(); it != taken.rend(); ++it) w.undo(it->second);
    }
    {
      std::lock_guard<std::mutex> guard(w.mutex);
      w.busy = false;
    }
    // Said before a waiter hears of the refusal, so that sim.store agrees.
    report(outcome);
    if (taken.empty()) {
      std::lock_guard<std::mutex> guard(w.mutex);
      w.failure = outcome;
    } else {
      resolve(taken, outcome);
    }
  }
}

// The watch: a commit that does not return is a stalled store.
void watch_loop() {
  Writer& w = writer();
  std::unique_lock<std::mutex> lock(w.mutex);
  while (!w.stop) {
    w.resolved.wait_for(lock, kWatchPeriod);
    bool stalled = w.busy && Clock::now() - w.busy_since > kStallAfter;
    if (!stalled) continue;
    lock.unlock();
    report(StoreHealth::Stalled);
    lock.lock();
  }
}

// The reason given to a client for a batch refused because of health.
std::string refusal(StoreHealth health) {
  switch (health) {
    case StoreHealth::Full: return "store full: not saved";
    case StoreHealth::ReadOnly: return "store read-only: not saved";
    case StoreHealth::Stalled:
      return "store not responding: not saved yet, it may still be";
    default: return "store failing: not saved";
  }
}

}  // namespace

const char* store_health_word(StoreHealth health) {
  switch (health) {
    case StoreHealth::Ok: return "ok";
    case StoreHealth::Full: return "full";
    case StoreHealth::ReadOnly: return "read-only";
    case StoreHealth::Failing: return "failing";
    case StoreHealth::Stalled: return "stalled";
  }
  return "failing";
}

void store_writer_start(sqlite3* db, StoreUndo undo, StoreAnnounce announce) {
  Writer& w = writer();
  w.db = db;
  w.undo = undo;
  w.announce = announce;
  w.stop = false;
  w.failure = w.announced = StoreHealth::Ok;
  w.running = true;
  // Process signals belong to the camera's signal thread, not these.
  sigset_t all, old;
  sigfillset(&all);
  for (int sync_signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) sigdelset(&all, sync_signal);
  pthread_sigmask(SIG_BLOCK, &all, &old);
  w.thread = std::thread(write_loop);
  w.watch = std::thread(watch_loop);
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

void store_writer_stop() {
  Writer& w = writer();
  if (!w.running) return;
  {
    std::lock_guard<std::mutex> guard(w.mutex);
    w.stop = true;
    w.work.notify_all();
    w.resolved.notify_all();
  }
  w.thread.join();
  w.watch.join();
  std::lock_guard<std::mutex> guard(w.mutex);
  w.running = false;
  // Whoever still waits is told at once.
  w.done = w.last;
  w.resolved.notify_all();
  w.db = nullptr;
}

bool store_writer_running() { return writer().running; }

bool store_writer_submit(StoreBatch batch, uint64_t* number) {
  Writer& w = writer();
  std::lock_guard<std::mutex> guard(w.mutex);
  if (w.queued_ops + batch.size() > kQueuedOpsMax) return false;
  w.queued_ops += batch.size();
  *number = ++w.last;
  w.queue.emplace_back(*number, std::move(batch));
  w.work.notify_one();
  return true;
}

uint64_t store_writer_last() {
  Writer& w = writer();
  std::lock_guard<std::mutex> guard(w.mutex);
  return w.last;
}

bool store_writer_wait(uint64_t after, uint64_t upto, std::chrono::milliseconds limit,
                       std::string* why) {
  Writer& w = writer();
  std::unique_lock<std::mutex> lock(w.mutex);
  if (!w.resolved.wait_for(lock, limit, [&] { return w.done >= upto; })) {
    *why = refusal(StoreHealth::Stalled);
    return false;
  }
  for (const auto& [number, health] : w.refused) {
    if (number > after && number <= upto) {
      *why = refusal(health);
      return false;
    }
  }
  return true;
}

}  // namespace sim
