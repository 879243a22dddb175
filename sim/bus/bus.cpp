// The parameter bus of the simulated camera: a SQLite store with an in-memory
// copy for fast reads, the preset list, the daemon's listeners, and the queue
// of notifications from the camera's other processes.
//
// Decisions: every write notifies, also when it repeats the stored text (the
// daemon writes the same command to ptz.run_mode twice on purpose). Daemon
// writes notify on the writer's thread before kvlink_set returns; other writes
// are queued and delivered one at a time, as by one bus thread: a listener
// that sleeps holds back the next notification.
//
// Commits in real time: what the daemon writes between two of its sleeps (or
// within one notification) is one transaction, committed once no daemon
// thread is part-way through such a stretch. A kill -9 then never leaves a
// half-rewritten preset list behind. Writes of other processes join an open
// transaction and wait for its commit before they are answered.
//
// The flash: in real time the store is written by a thread of its own
// (store/store_writer.h); the copy in memory changes at once and the bus
// never waits for the disk. A socket client's write is answered once the
// daemon has taken it and what it stored is committed. Only the keys a
// camera keeps across a restart are stored (key_kept below).
//
// Fairness: a socket client has at most kQueuedPerClient notifications
// queued or being delivered; its next write waits for them, so a flooding
// client waits for its own writes and another client's command is at most
// that many deliveries behind each other client.
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "bus/bus_extra.h"
#include "core/core.h"
#include "store/fault_vfs.h"
#include "store/store_writer.h"

namespace sim {
namespace {

constexpr int kMaxListeners = 128;
// Longest wait of a socket write for its client's previous notification or
// for the commit of the transaction it joined.
// Below slewctl's default time limit, so that it hears the reason.
constexpr auto kWriterWait = std::chrono::seconds(4);
constexpr int kQueuedPerClient = 2;
constexpr size_t kTextBuf = kValueMax + 1;  // a key or value with its NUL

struct Listener {
  std::string prefix;       // matches every key that begins with it
  KvlinkCallback callback;  // the daemon's function
};

struct Notification {
  std::string key;    // stored key
  std::string value;  // value as written
  int source = 0;     // socket client that wrote it, 0: none
  uint64_t ticket = 0;  // its place in the order of notifications
};

// Everything of the bus; guarded by big_lock().
struct BusState {
  std::string path;                // where the store is, for messages
  sqlite3* db = nullptr;           // the store
  sqlite3_stmt* upsert = nullptr;  // writes one key
  sqlite3_stmt* erase = nullptr;   // removes one key
  bool in_memory = false;          // a virtual run's store: the copy is the whole store
  std::map<std::string, std::string, std::less<>> values;  // copy of the store
  int list_entries = 0;                 // entries 0..n-1 of kPresetList
  std::vector<Listener> listeners;      // in registration order
  std::deque<Notification> pending;     // queued for bus_deliver_pending
  bool delivering = false;              // a delivery is under way
  BusChangeHook change_hook = nullptr;  // real-time watchers
  std::condition_variable_any queued;   // signalled when pending grows
  std::map<int, int> queued_from;       // queued notifications per source
  std::condition_variable_any delivered;  // signalled when one leaves pending
  uint64_t session = 0;                 // counts bus_open calls
  bool grouped = false;                 // daemon writes commit per stretch
  bool in_transaction = false;          // a transaction is open
  int dirty_threads = 0;                // daemon threads with uncommitted writes
  std::condition_variable_any committed;  // signalled at each commit
  StoreBatch open_batch;                // writer mode: the open stretch's changes
  uint64_t last_op_batch = 0;           // writer mode: batch of the latest change
  uint64_t next_ticket = 0;             // tickets given to notifications
  uint64_t delivered_ticket = 0;        // the last notification delivered
  uint64_t handed_ticket = 0;           // the last one handed to the listeners
};

// The session in which this thread wrote for the daemon since its last
// sleep; 0 when it has not.
thread_local uint64_t t_dirty_in = 0;

// Never destroyed: other threads may still use it while the process exits.
BusState& bus() {
  static BusState* state = new BusState;
  return *state;
}

using Lock = std::unique_lock<std::recursive_mutex>;

// Index n of a list entry key "<list>.<n>" (0..999, 999 appends), else -1.
int list_index(std::string_view key) {
  std::string_view list = kPresetList;
  if (key.size() <= list.size() + 1 || key.substr(0, list.size()) != list ||
      key[list.size()] != '.') {
    return -1;
  }
  std::string_view digits = key.substr(list.size() + 1);
  if (digits.size() > 3 || (digits.size() > 1 && digits[0] == '0')) return -1;
  int n = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') return -1;
    n = n * 10 + (c - '0');
  }
  return n;
}

// Whether a key is kept across a restart: not commands, nor live state the
// daemon and the camera publish again, nor the store's own report.
bool key_kept(std::string_view key) {
  static constexpr std::string_view kExact[] = {
      "ptz.run_mode",   "ptz.status",      "ptz.pan_pos",     "ptz.tilt_pos",
      "ptz.angle.pan",  "ptz.angle.tilt",  "ptz.mode_status", "ptz.spddry_status",
      "ptz.lens.one_push", "ptz.pattern.action", "sim.store",
  };
  static constexpr std::string_view kPrefixes[] = {"ptz.lens.get_pos.", "ptz.lens.manual.",
                                                   "sim.store."};
  for (std::string_view k : kExact) {
    if (key == k) return false;
  }
  for (std::string_view p : kPrefixes) {
    if (key.substr(0, p.size()) == p) return false;
  }
  return true;
}

// Writer mode: hands one change to the writer, in the open stretch when
// there is one (caller holds lock); false when the writer's queue is full.
bool journal(std::string_view key, const char* value, bool erase) {
  BusState& b = bus();
  StoreOp op{std::string(key), erase ? "" : value, erase, false, ""};
  auto it = b.values.find(key);
  if (it != b.values.end()) {
    op.had_before = true;
    op.before = it->second;
  }
  if (b.in_transaction) {
    b.open_batch.push_back(std::move(op));
    b.last_op_batch = store_writer_last() + 1;  // nothing else is queued while it is open
    return true;
  }
  return store_writer_submit({std::move(op)}, &b.last_op_batch);
}

// Reports a failed SQLite call on stderr, in one line.
void report(const char* what) {
  fprintf(stderr, "bus store %s: %s: %s\n", bus().path.c_str(), what, sqlite3_errmsg(bus().db));
}

// Runs one SQL statement without results; false on failure.
bool exec(const char* sql) {
  if (sqlite3_exec(bus().db, sql, nullptr, nullptr, nullptr) == SQLITE_OK) return true;
  report(sql);
  return false;
}

// Counts the entries of the list: consecutive keys from <list>.0.
void recount_list() {
  BusState& b = bus();
  char key[kTextBuf];
  b.list_entries = 0;
  for (;;) {
    snprintf(key, sizeof key, "%s.%d", kPresetList, b.list_entries);
    if (b.values.find(std::string_view(key)) == b.values.end()) return;
    ++b.list_entries;
  }
}

// Loads every row of the store into the in-memory copy.
bool load_values() {
  BusState& b = bus();
  sqlite3_stmt* select = nullptr;
  if (sqlite3_prepare_v2(b.db, "SELECT key, value FROM kv", -1, &select, nullptr) != SQLITE_OK) {
    report("reading the store");
    return false;
  }
  while (sqlite3_step(select) == SQLITE_ROW) {
    const char* key = reinterpret_cast<const char*>(sqlite3_column_text(select, 0));
    const char* value = reinterpret_cast<const char*>(sqlite3_column_text(select, 1));
    if (key != nullptr) b.values[key] = value != nullptr ? value : "";
  }
  sqlite3_finalize(select);
  recount_list();
  return true;
}

// Prepares the schema and statements of a freshly opened store.
bool prepare_store(bool file) {
  BusState& b = bus();
  sqlite3_busy_timeout(b.db, 2000);
  // WAL with synchronous=FULL: a commit is synced before it is
  // acknowledged, so neither a kill nor a power cut loses an acknowledged
  // write; the sync costs the writer thread, never a caller.
  if (file && !(exec("PRAGMA journal_mode=WAL") && exec("PRAGMA synchronous=FULL"))) return false;
  if (!exec("CREATE TABLE IF NOT EXISTS kv(key TEXT PRIMARY KEY NOT NULL, value TEXT NOT NULL)"
            " WITHOUT ROWID") ||
      !exec("CREATE TABLE IF NOT EXISTS probe(id INTEGER PRIMARY KEY)")) {
    return false;
  }
  const char* upsert =
      "INSERT INTO kv(key, value) VALUES(?1, ?2) ON CONFLICT(key) DO UPDATE SET value = ?2";
  if (sqlite3_prepare_v2(b.db, upsert, -1, &b.upsert, nullptr) != SQLITE_OK ||
      sqlite3_prepare_v2(b.db, "DELETE FROM kv WHERE key = ?1", -1, &b.erase, nullptr) !=
          SQLITE_OK) {
    report("preparing statements");
    return false;
  }
  return load_values();
}

// Closes the store and forgets everything of the session (caller holds lock).
void close_locked() {
  BusState& b = bus();
  // The daemon has ended: its last stretch is whole.
  if (b.in_transaction && b.db != nullptr && !sqlite3_get_autocommit(b.db)) exec("COMMIT");
  b.open_batch.clear();
  b.delivered_ticket = b.handed_ticket = b.next_ticket;
  b.in_transaction = b.grouped = false;
  b.dirty_threads = 0;
  b.queued_from.clear();
  b.committed.notify_all();
  b.delivered.notify_all();
  sqlite3_finalize(b.upsert);
  sqlite3_finalize(b.erase);
  if (b.db != nullptr) sqlite3_close(b.db);
  b.db = nullptr;
  b.upsert = b.erase = nullptr;
  b.values.clear();
  b.list_entries = 0;
  b.listeners.clear();
  b.pending.clear();
  b.delivering = false;
}

// Opens an in-memory store when nobody opened one (caller holds lock).
bool ensure_open() { return bus().db != nullptr || bus_open(":memory:") == 0; }

// Counts this thread's daemon write into the open stretch, opening the
// transaction when none is (caller holds lock).
void join_daemon_stretch() {
  BusState& b = bus();
  if (!b.grouped) return;
  if (!b.in_transaction) b.in_transaction = store_writer_running() || exec("BEGIN");
  if (t_dirty_in != b.session) {
    t_dirty_in = b.session;
    ++b.dirty_threads;
  }
}

// Waits until the transaction a write joined is committed, within a bound
// (caller holds lock).
void await_commit(Lock& lock) {
  BusState& b = bus();
  b.committed.wait_for(lock, kWriterWait, [&] { return !b.in_transaction; });
}

// Answers a socket client's write once the daemon has taken it and what
// the write and the daemon's handling of it stored is committed, within
// bounds; -1 with *why otherwise (caller holds lock).
int await_taken(Lock& lock, uint64_t ticket, uint64_t mark, std::string* why) {
  BusState& b = bus();
  if (!b.delivered.wait_for(lock, kWriterWait, [&] { return b.delivered_ticket >= ticket; })) {
    *why = b.handed_ticket >= ticket ? "the daemon is still handling the write"
                                     : "the daemon has not taken the write yet; it may still be applied";
    return -1;
  }
  if (!store_writer_running()) {
    await_commit(lock);
    return 0;
  }
  uint64_t upto = b.last_op_batch;
  if (upto <= mark) return 0;
  lock.unlock();
  bool stored = store_writer_wait(mark, upto, kWriterWait, why);
  lock.lock();
  return stored ? 0 : -1;
}

// The camera's knobs: the store's own (sim.store.*), else the world's.
// false with *why on a bad value.
bool take_knob(Origin origin, const char* key, const char* value, std::string* why) {
  if (strncmp(key, "sim.store", 9) != 0) return world_take_knob(key, value, why);
  return origin == Origin::Sim || fault_vfs_knob(key, value, why) >= 0;
}

// Waits until source has room in the queue, within a bound; false on timeout.
bool await_own_queue(Lock& lock, int source) {
  BusState& b = bus();
  if (source == 0) return true;
  return b.delivered.wait_for(lock, kWriterWait,
                              [&] { return b.queued_from[source] < kQueuedPerClient; });
}

// Runs a prepared statement bound to key (and value); false on failure.
bool run_statement(sqlite3_stmt* statement, std::string_view key, const char* value) {
  sqlite3_bind_text(statement, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
  if (value != nullptr) sqlite3_bind_text(statement, 2, value, -1, SQLITE_STATIC);
  int rc = sqlite3_step(statement);
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  if (rc == SQLITE_DONE) return true;
  report("writing");
  return false;
}

// Stores one key in SQLite and in the copy (caller holds lock). An
// in-memory store lives and dies with the process and nobody else reads it:
// the copy alone holds it, sparing SQLite's work on every position written.
bool store(std::string_view key, const char* value) {
  BusState& b = bus();
  if (!b.in_memory && key_kept(key)) {
    if (store_writer_running() ? !journal(key, value, false) : !run_statement(b.upsert, key, value)) {
      return false;
    }
  }
  auto it = b.values.find(key);
  if (it == b.values.end()) {
    b.values.emplace(std::string(key), value);
  } else {
    it->second = value;
  }
  if (list_index(key) >= 0) recount_list();
  return true;
}

// Removes one key from SQLite and the copy (caller holds lock).
bool erase(std::string_view key) {
  BusState& b = bus();
  if (!b.in_memory && key_kept(key)) {
    if (store_writer_running() ? !journal(key, nullptr, true) : !run_statement(b.erase, key, nullptr)) {
      return false;
    }
  }
  auto it = b.values.find(key);
  if (it != b.values.end()) b.values.erase(it);
  return true;
}

// True when the value fits the bus.
bool value_valid(const char* value) {
  return value != nullptr && strnlen(value, kTextBuf) <= static_cast<size_t>(kValueMax);
}

// Stores a checked write; an append to the list lands on its next entry.
// out_key receives the key stored. Caller holds lock.
bool store_write(const char* key, const char* value, char (&out_key)[kTextBuf]) {
  if (!ensure_open()) return false;
  snprintf(out_key, sizeof out_key, "%s", key);
  if (list_index(key) == kListAppendIndex) {
    if (bus().list_entries >= kListAppendIndex) return false;
    snprintf(out_key, sizeof out_key, "%s.%d", kPresetList, bus().list_entries);
  }
  return store(out_key, value);
}

// Writes the transcript line of a write by its origin.
void trace_write(Origin origin, const char* key, const char* value) {
  switch (origin) {
    case Origin::Daemon:
      trace(Kind::Set, "%s=%s", key, value);
      break;
    case Origin::External:
      trace(Kind::Ext, "%s=%s", key, value);
      break;
    case Origin::Sim:
      if (verbose()) trace(Kind::Sim, "%s=%s", key, value);
      break;
  }
}

// Calls every listener matching key, in order, with the lock released and
// fresh writable copies of key and value for each call.
void notify_listeners(Lock& lock, const char* key, const char* value) {
  KvlinkCallback matched[kMaxListeners];
  int count = 0;
  size_t key_len = strnlen(key, kTextBuf);
  for (const Listener& l : bus().listeners) {
    size_t n = l.prefix.size();
    // Most prefixes share "ptz." with the key: the last character tells first.
    if (n > key_len || (n > 0 && key[n - 1] != l.prefix[n - 1])) continue;
    if (memcmp(key, l.prefix.data(), n) == 0) matched[count++] = l.callback;
  }
  if (count == 0) return;
  char key_copy[kTextBuf];
  char value_copy[kTextBuf];
  lock.unlock();
  for (int i = 0; i < count; ++i) {
    snprintf(key_copy, sizeof key_copy, "%s", key);
    snprintf(value_copy, sizeof value_copy, "%s", value);
    DaemonCallback daemon;
    matched[i](key_copy, value_copy);
  }
  lock.lock();
}

// Sort key of bus_visit: plain keys in key order, list entries after their
// list key in list order ('#' cannot occur in a key).
std::string visit_order(const std::string& key) {
  int index = list_index(key);
  if (index < 0 || index == kListAppendIndex) return key;
  char order[kTextBuf + 8];
  snprintf(order, sizeof order, "%s#%03d", kPresetList, index);
  return order;
}

// The full write of bus_write and bus_write_from; -1 with *why on refusal.
int write_locked(Lock& lock, Origin origin, int source, const char* key, const char* value,
                 std::string* why) {
  if (!bus_key_valid(key) || !value_valid(value)) {
    *why = "the store refused the write";
    return -1;
  }
  if (origin != Origin::Sim && world_key_read_only(key)) {
    *why = std::string("read-only key: ") + key;
    return -1;
  }
  if (!await_own_queue(lock, source)) {
    *why = "the daemon has not taken the previous write yet";
    return -1;
  }
  if (!take_knob(origin, key, value, why)) return -1;
  if (origin == Origin::Daemon) join_daemon_stretch();
  uint64_t mark = bus().last_op_batch;
  char stored[kTextBuf];
  if (!store_write(key, value, stored)) {
    *why = store_writer_running() ? "store not responding: not saved" : "the store refused the write";
    return -1;
  }
  trace_write(origin, key, value);
  BusState& b = bus();
  if (b.change_hook != nullptr) b.change_hook(stored, value);
  world_on_bus_write(origin, stored, value);
  if (origin == Origin::Daemon) {
    notify_listeners(lock, stored, value);
    return 0;
  }
  uint64_t ticket = ++b.next_ticket;
  b.pending.push_back({stored, value, source, ticket});
  if (source != 0) ++b.queued_from[source];
  b.queued.notify_all();
  return source != 0 ? await_taken(lock, ticket, mark, why) : 0;
}

// Takes a batch that was not stored back out of the copy: each change whose
// value is still the one the bus shows (caller holds lock).
void undo_locked(const StoreBatch& batch) {
  BusState& b = bus();
  for (auto op = batch.rbegin(); op != batch.rend(); ++op) {
    auto it = b.values.find(op->key);
    bool current = op->erase ? it == b.values.end() : it != b.values.end() && it->second == op->value;
    if (!current) continue;
    if (op->had_before) {
      b.values[op->key] = op->before;
      if (b.change_hook != nullptr) b.change_hook(op->key.c_str(), op->before.c_str());
    } else {
      b.values.erase(it);
    }
  }
  recount_list();
}

// Writer mode: queues the changes of the stretch that ends; undone in memory
// at once when the writer's queue is full (caller holds lock).
void submit_open_batch() {
  BusState& b = bus();
  if (b.open_batch.empty()) return;
  StoreBatch batch;
  batch.swap(b.open_batch);
  uint64_t number = 0;
  if (store_writer_submit(batch, &number)) return;
  undo_locked(batch);
}

// The writer's report of a batch it could not store.
void undo_batch(const StoreBatch& batch) {
  Lock lock(big_lock());
  undo_locked(batch);
}

// What a change of the store's health says, on stderr and in the transcript.
const char* health_line(StoreHealth health) {
  switch (health) {
    case StoreHealth::Ok: return "store writing again";
    case StoreHealth::Full: return "store full: settings are not being saved";
    case StoreHealth::ReadOnly: return "store read-only: settings are not being saved";
    case StoreHealth::Failing: return "store failing: settings are not being saved";
    case StoreHealth::Stalled: return "store not responding: settings are not saved yet";
  }
  return "";
}

// The writer's report: a change of health is said once and shown in sim.store.
void announce_health(StoreHealth health) {
  fprintf(stderr, "slewd: %s\n", health_line(health));
  trace(Kind::Sim, "%s", health_line(health));
  bus_write(Origin::Sim, "sim.store", store_health_word(health));
}

}  // namespace

void bus_store_async() {
  {
    Lock lock(big_lock());
    BusState& b = bus();
    if (b.db == nullptr || b.in_memory || store_writer_running()) return;
    if (b.in_transaction) exec("COMMIT");
    b.in_transaction = false;
    store_writer_start(b.db, undo_batch, announce_health);
  }
  bus_write(Origin::Sim, "sim.store", "ok");
}

int bus_open(const char* path) {
  store_writer_stop();
  Lock lock(big_lock());
  close_locked();
  BusState& b = bus();
  ++b.session;
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  b.path = path;
  b.in_memory = strcmp(path, ":memory:") == 0;
  const char* vfs = b.in_memory ? nullptr : fault_vfs_name();
  if (sqlite3_open_v2(path, &b.db, flags, vfs) != SQLITE_OK) {
    report("cannot open");
    close_locked();
    return -1;
  }
  if (!prepare_store(!b.in_memory)) {
    close_locked();
    return -1;
  }
  return 0;
}

void bus_close() {
  {
    Lock lock(big_lock());
    bus().in_transaction = false;
    if (store_writer_running()) submit_open_batch();
  }
  // Outside the lock: the writer may be undoing a batch, which takes it.
  store_writer_stop();
  Lock lock(big_lock());
  close_locked();
}

int bus_put(const char* key, const char* value) {
  if (!bus_key_valid(key) || !value_valid(value)) return -1;
  Lock lock(big_lock());
  char stored[kTextBuf];
  return store_write(key, value, stored) ? 0 : -1;
}

int bus_write(Origin origin, const char* key, const char* value) {
  Lock lock(big_lock());
  std::string why;
  return write_locked(lock, origin, 0, key, value, &why);
}

int bus_write_from(int source, const char* key, const char* value, std::string* why) {
  Lock lock(big_lock());
  return write_locked(lock, Origin::External, source, key, value, why);
}

void bus_forget_source(int source) {
  Lock lock(big_lock());
  bus().queued_from.erase(source);
}

void bus_group_commits(bool on) {
  Lock lock(big_lock());
  bus().grouped = on;
}

void bus_stretch_end() {
  // A thread that wrote nothing since its last stretch is in no transaction:
  // the one that opened it commits it. Most sleeps end here, without the lock.
  if (t_dirty_in == 0) return;
  Lock lock(big_lock());
  BusState& b = bus();
  if (t_dirty_in == b.session) --b.dirty_threads;
  t_dirty_in = 0;
  if (b.dirty_threads > 0 || !b.in_transaction) return;
  b.in_transaction = false;
  if (store_writer_running()) {
    submit_open_batch();
  } else if (!exec("COMMIT") && !sqlite3_get_autocommit(b.db)) {
    exec("ROLLBACK");
  }
  b.committed.notify_all();
}

bool bus_read(const char* key, char* out, size_t len) {
  if (key == nullptr) return false;
  if (strcmp(key, "sim.store.calls") == 0) {
    if (len > 0) snprintf(out, len, "%ld", fault_vfs_calls());
    return true;
  }
  Lock lock(big_lock());
  const auto& values = bus().values;
  auto it = values.find(std::string_view(key));
  if (it == values.end()) return false;
  if (len > 0) snprintf(out, len, "%s", it->second.c_str());
  return true;
}

void bus_deliver_pending() {
  Lock lock(big_lock());
  BusState& b = bus();
  if (b.delivering) return;
  b.delivering = true;
  while (!b.pending.empty()) {
    Notification next = std::move(b.pending.front());
    b.pending.pop_front();
    b.handed_ticket = next.ticket;
    notify_listeners(lock, next.key.c_str(), next.value.c_str());
    // Counted until handled, so that its writer's next write waits for it.
    if (next.source != 0 && b.queued_from[next.source] > 0) --b.queued_from[next.source];
    bus_stretch_end();
    b.delivered_ticket = next.ticket;
    b.delivered.notify_all();
  }
  b.delivering = false;
}

bool bus_has_pending() {
  Lock lock(big_lock());
  return !bus().pending.empty();
}

void bus_visit(const char* prefix, BusVisitor visit, void* ctx) {
  std::string_view start = prefix != nullptr ? prefix : "";
  Lock lock(big_lock());
  std::vector<std::pair<std::string, const std::pair<const std::string, std::string>*>> rows;
  const auto& values = bus().values;
  for (auto it = values.lower_bound(start); it != values.end(); ++it) {
    if (it->first.compare(0, start.size(), start) != 0) break;
    rows.emplace_back(visit_order(it->first), &*it);
  }
  std::sort(rows.begin(), rows.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& row : rows) visit(row.second->first.c_str(), row.second->second.c_str(), ctx);
}

int bus_listen(const char* prefix, KvlinkCallback callback) {
  if (prefix == nullptr || callback == nullptr) return -1;
  Lock lock(big_lock());
  if (bus().listeners.size() >= static_cast<size_t>(kMaxListeners)) return -1;
  bus().listeners.push_back({prefix, callback});
  return 0;
}

bool bus_list_name(const char* list, int index, char* out, size_t len) {
  if (list == nullptr || strcmp(list, kPresetList) != 0 || index < 0) return false;
  Lock lock(big_lock());
  if (index >= bus().list_entries) return false;
  if (len > 0) snprintf(out, len, "%s.%d", kPresetList, index);
  return true;
}

int bus_restore_default(const char* key) {
  if (!bus_key_valid(key)) return -1;
  Lock lock(big_lock());
  if (!ensure_open()) return -1;
  if (strcmp(key, kPresetList) != 0) return erase(key) ? 0 : -1;
  std::vector<std::string> entries;
  for (const auto& [k, v] : bus().values) {
    int index = list_index(k);
    if (index >= 0 && index != kListAppendIndex) entries.push_back(k);
  }
  // Called by the daemon: part of its stretch. A savepoint nests in it.
  join_daemon_stretch();
  if (store_writer_running()) {
    bool queued = true;
    for (const std::string& k : entries) queued = erase(k) && queued;
    recount_list();
    return queued ? 0 : -1;
  }
  bool ok = exec("SAVEPOINT restore");
  for (const std::string& k : entries) ok = erase(k) && ok;
  if (ok && exec("RELEASE restore")) {
    recount_list();
    return 0;
  }
  // The store kept the entries: take the copy back from it.
  exec("ROLLBACK TO restore");
  exec("RELEASE restore");
  bus().values.clear();
  load_values();
  return -1;
}

bool bus_wait_pending(const std::atomic<bool>& quit) {
  Lock lock(big_lock());
  BusState& b = bus();
  b.queued.wait(lock, [&] { return !b.pending.empty() || quit.load(); });
  return !b.pending.empty();
}

void bus_wake_waiters() {
  Lock lock(big_lock());
  bus().queued.notify_all();
}

void bus_set_change_hook(BusChangeHook hook) {
  Lock lock(big_lock());
  bus().change_hook = hook;
}

}  // namespace sim
