// Checking and repairing the store before it is opened. Every look at a
// store under suspicion is through a read-only connection, and never at one
// whose main file is empty: SQLite would then discard the log beside it.
#include "store/store_check.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <set>

namespace sim {
namespace {

constexpr char kMagic[] = "SQLite format 3";  // with its NUL: the first 16 bytes
constexpr size_t kNamesShown = 5;             // lost keys named in a line

// Size of a file: -1 when absent; *regular tells whether it is a plain file.
long long size_of(const std::string& path, bool* regular = nullptr) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) return -1;
  if (regular != nullptr) *regular = S_ISREG(st.st_mode);
  return static_cast<long long>(st.st_size);
}

// A store opened read-only, closed when it goes out of scope.
struct ReadOnly {
  sqlite3* db = nullptr;
  explicit ReadOnly(const std::string& path) {
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
      sqlite3_close(db);
      db = nullptr;
    }
  }
  ~ReadOnly() { sqlite3_close(db); }
};

// The first text of a one-row query; "" on any failure.
std::string first_text(sqlite3* db, const char* sql) {
  sqlite3_stmt* st = nullptr;
  std::string text;
  if (db != nullptr && sqlite3_prepare_v2(db, sql, -1, &st, nullptr) == SQLITE_OK &&
      sqlite3_step(st) == SQLITE_ROW && sqlite3_column_text(st, 0) != nullptr) {
    text = reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
  }
  sqlite3_finalize(st);
  return text;
}

// Reads the first bytes of a file into out; how many were read.
size_t head_of(const std::string& path, unsigned char* out, size_t n) {
  FILE* f = fopen(path.c_str(), "rb");
  if (f == nullptr) return 0;
  size_t got = fread(out, 1, n, f);
  fclose(f);
  return got;
}

// Big-endian number of bytes at p.
unsigned long be(const unsigned char* p, int n) {
  unsigned long v = 0;
  for (int i = 0; i < n; ++i) v = v << 8 | p[i];
  return v;
}

enum class Verdict { Good, Damaged, Foreign };

// What the file at path is; *detail says what is wrong with it.
Verdict judge(const std::string& path, long long size, long long wal, std::string* detail) {
  if (size == 0 || size < 0) {
    *detail = "main file " + std::string(size == 0 ? "empty" : "missing") + " beside a log of " +
              std::to_string(wal) + " bytes";
    return Verdict::Damaged;
  }
  unsigned char head[100] = {};
  size_t got = head_of(path, head, sizeof head);
  size_t compare = std::min(got, sizeof kMagic);
  if (compare == 0 || memcmp(head, kMagic, compare) != 0) {
    *detail = "not an SQLite file";
    return Verdict::Foreign;
  }
  unsigned long page = be(head + 16, 2);
  if (page == 1) page = 65536;
  // The page count in the header holds when its change counter matches.
  bool count_valid = be(head + 24, 4) == be(head + 92, 4);
  if (got < sizeof head || page < 512 || size % static_cast<long long>(page) != 0 ||
      (count_valid && be(head + 28, 4) * page > static_cast<unsigned long long>(size))) {
    *detail = "file truncated at " + std::to_string(size) + " bytes";
    return Verdict::Damaged;
  }
  ReadOnly store(path);
  std::string verdict = first_text(store.db, "PRAGMA quick_check");
  if (verdict != "ok") {
    std::replace(verdict.begin(), verdict.end(), '\n', ' ');
    *detail = verdict.empty() ? std::string("unreadable: ") + sqlite3_errmsg(store.db)
                              : "check failed: " + verdict;
    return Verdict::Damaged;
  }
  if (first_text(store.db, "SELECT name FROM sqlite_master WHERE name = 'kv'") != "kv") {
    *detail = "an SQLite file without the bus's table";
    return Verdict::Foreign;
  }
  return Verdict::Good;
}

// A scan stops at the first damaged page; each preset list entry looked up
// by its key may still be reached through pages that are sound.
void lookup_entries(sqlite3* db, const std::string& list, std::map<int, std::string>* entries) {
  sqlite3_stmt* st = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT value FROM kv WHERE key = ?1", -1, &st, nullptr) != SQLITE_OK) {
    return;
  }
  for (int index = 0; index < 999; ++index) {
    std::string key = list + std::to_string(index);
    sqlite3_bind_text(st, 1, key.c_str(), -1, SQLITE_TRANSIENT);
    auto value = sqlite3_step(st) == SQLITE_ROW ? sqlite3_column_text(st, 0) : nullptr;
    if (value != nullptr && strlen(reinterpret_cast<const char*>(value)) <= 127) {
      (*entries)[index] = reinterpret_cast<const char*>(value);
    }
    sqlite3_reset(st);
  }
  sqlite3_finalize(st);
}

// The rows that can still be read; list entries renumbered without gaps so
// that none hides behind a lost one. *whole tells whether every row was.
std::map<std::string, std::string> salvage(const std::string& path, bool* whole) {
  std::map<std::string, std::string> rows;
  *whole = false;
  if (size_of(path) <= 0) return rows;
  std::map<int, std::string> entries;
  const std::string list = "ptz.preset.position.";
  ReadOnly store(path);
  sqlite3_stmt* st = nullptr;
  if (store.db == nullptr ||
      sqlite3_prepare_v2(store.db, "SELECT key, value FROM kv", -1, &st, nullptr) != SQLITE_OK) {
    sqlite3_finalize(st);
    return rows;
  }
  int rc;
  while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
    auto key = reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
    auto value = reinterpret_cast<const char*>(sqlite3_column_text(st, 1));
    if (key == nullptr || value == nullptr || strlen(key) > 127 || strlen(value) > 127) continue;
    std::string k = key;
    if (k.compare(0, list.size(), list) == 0 && k.size() > list.size() &&
        k.size() <= list.size() + 3 &&
        k.find_first_not_of("0123456789", list.size()) == std::string::npos) {
      entries[atoi(k.c_str() + list.size())] = value;
    } else {
      rows[k] = value;
    }
  }
  *whole = rc == SQLITE_DONE;
  sqlite3_finalize(st);
  if (!*whole) lookup_entries(store.db, list, &entries);
  int n = 0;
  for (const auto& [index, value] : entries) rows[list + std::to_string(n++)] = value;
  return rows;
}

// Every row of a good store.
std::map<std::string, std::string> all_rows(const std::string& path) {
  bool whole;
  return salvage(path, &whole);
}

// A time for names, the time now by default: 20260102T030405.
std::string stamp(time_t now = time(nullptr)) {
  char text[32];
  tm utc{};
  gmtime_r(&now, &utc);
  strftime(text, sizeof text, "%Y%m%dT%H%M%S", &utc);
  return text;
}

// Moves the store's files aside with the time in their names; the name of
// the main one, "" when it could not be moved.
std::string move_aside(const std::string& path) {
  std::string when = stamp();
  std::string main_name;
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::string from = path + suffix;
    if (size_of(from) < 0) continue;
    std::string to = path + ".damaged-" + when + suffix;
    if (rename(from.c_str(), to.c_str()) != 0) return "";
    if (*suffix == '\0') main_name = to;
  }
  return main_name.empty() ? path + "-wal.damaged-" + when : main_name;
}

// Copies the store at from to a new file at to, through SQLite's backup API
// and a temporary name, so that to is whole or absent.
bool copy_store(const std::string& from, const std::string& to) {
  ReadOnly source(from);
  std::string temporary = to + ".part";
  unlink(temporary.c_str());
  sqlite3* target = nullptr;
  bool ok = source.db != nullptr &&
            sqlite3_open_v2(temporary.c_str(), &target, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                            nullptr) == SQLITE_OK;
  if (ok) {
    sqlite3_backup* backup = sqlite3_backup_init(target, "main", source.db, "main");
    ok = backup != nullptr && sqlite3_backup_step(backup, -1) == SQLITE_DONE;
    ok = sqlite3_backup_finish(backup) == SQLITE_OK && ok;
  }
  // A copy without a log beside it: one file to keep.
  ok = ok && sqlite3_exec(target, "PRAGMA journal_mode=DELETE", nullptr, nullptr, nullptr) == SQLITE_OK;
  ok = sqlite3_close(target) == SQLITE_OK && ok;
  unlink((temporary + "-journal").c_str());
  if (ok && rename(temporary.c_str(), to.c_str()) == 0) return true;
  unlink(temporary.c_str());
  return false;
}

// "N keys (a, b, c, ...)" for the keys named.
std::string named(const std::vector<std::string>& keys) {
  std::string text = std::to_string(keys.size()) + (keys.size() == 1 ? " key (" : " keys (");
  for (size_t i = 0; i < keys.size() && i < kNamesShown; ++i) text += (i ? ", " : "") + keys[i];
  return text + (keys.size() > kNamesShown ? ", ...)" : ")");
}

// Starts from the last good copy when there is a sound one; names what the
// damaged store held that the copy does not.
bool restore_copy(const std::string& path, const std::map<std::string, std::string>& read,
                  bool whole, StoreCheck* check) {
  std::string good = path + ".good";
  std::string ignored;
  if (size_of(good) <= 0 || judge(good, size_of(good), -1, &ignored) != Verdict::Good ||
      !copy_store(good, path)) {
    return false;
  }
  std::map<std::string, std::string> kept = all_rows(path);
  // Presets are compared by their records: the read ones were renumbered.
  const std::string list = "ptz.preset.position.";
  std::set<std::string> kept_records;
  for (const auto& [key, value] : kept) {
    if (key.compare(0, list.size(), list) == 0) kept_records.insert(value);
  }
  std::vector<std::string> lost;
  for (const auto& [key, value] : read) {
    if (key.compare(0, list.size(), list) == 0) {
      if (!kept_records.count(value)) lost.push_back("preset " + value.substr(0, value.find(',')));
      continue;
    }
    auto it = kept.find(key);
    if (it == kept.end() || it->second != value) lost.push_back(key);
  }
  check->said.push_back("store restored from its last good copy: " + std::to_string(kept.size()) +
                        " keys");
  struct stat st {};
  stat(good.c_str(), &st);
  std::string copy = "the copy of " + stamp(st.st_mtime) + " UTC";
  if (!lost.empty()) check->said.push_back("store: lost since " + copy + ": " + named(lost));
  if (!whole) {
    check->said.push_back("store: only " + std::to_string(read.size()) +
                          " keys of the damaged store could be read; what else changed since " +
                          copy + " is lost");
  } else if (lost.empty()) {
    check->said.push_back("store: nothing the damaged store held was lost");
  }
  return true;
}

}  // namespace

void store_keep_copy(const std::string& path) {
  std::string ignored;
  long long size = size_of(path);
  if (size > 0 && judge(path, size, -1, &ignored) == Verdict::Good) copy_store(path, path + ".good");
}

int store_check(const std::string& path, StoreCheck* check, std::string* error) {
  bool regular = true;
  long long size = size_of(path, &regular);
  long long wal = size_of(path + "-wal");
  if (size >= 0 && !regular) {
    *error = path + " is not a file";
    return -1;
  }
  if (size < 0 && wal <= 0) {
    check->fresh = true;
    return 0;
  }
  if (size == 0 && wal <= 0) {
    check->fresh = true;
    check->said.push_back("store empty: starting from the factory settings");
    return 0;
  }
  std::string detail;
  Verdict verdict = judge(path, size, wal, &detail);
  if (verdict == Verdict::Foreign) {
    *error = path + " is not a bus store (" + detail + ")";
    return -1;
  }
  if (verdict == Verdict::Good) {
    // Known good now: the copy a later damage starts from.
    if (!copy_store(path, path + ".good")) check->said.push_back("store: cannot keep a good copy");
    return 0;
  }
  bool whole = false;
  std::map<std::string, std::string> read = salvage(path, &whole);
  std::string aside = move_aside(path);
  if (aside.empty()) {
    *error = "store damaged (" + detail + ") and cannot be moved aside";
    return -1;
  }
  check->said.push_back("store damaged (" + detail + "): kept as " + aside);
  if (restore_copy(path, read, whole, check)) return 0;
  check->fresh = true;
  check->rows = read;
  check->said.push_back("store restarted from the factory settings and the " +
                        std::to_string(read.size()) +
                        " keys still readable; anything else it held is lost");
  return 0;
}

}  // namespace sim
