// The fault-injection VFS: every file the store opens is wrapped; xWrite and
// xSync count down to the fault the knobs ask for and, once there, fail,
// stall or kill instead of (or, for a stall, before) the real call. Every
// other method goes straight to the default VFS.
#include "store/fault_vfs.h"

#include <sqlite3.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace sim {
namespace {

enum class Fault { None, Full, Io, ReadOnly, Stall, Kill };

struct Faults {
  std::mutex mutex;
  Fault fault = Fault::None;
  long at = 1;          // the fault strikes at this call, counted from the knob write
  long count = 0;       // calls it strikes; 0: until sim.store.fault is none
  long seen = 0;        // calls since the knob write
  long struck = 0;      // calls struck so far
  long stall_ms = 10000;
  std::atomic<long> calls{0};
};

Faults& faults() {
  static Faults* f = new Faults;
  return *f;
}

thread_local int t_injected_errno = 0;

struct ShimFile {
  sqlite3_file base;    // our methods
  sqlite3_file* real;   // the default VFS's file, right behind this struct
};

sqlite3_vfs* g_root = nullptr;

sqlite3_file* real(sqlite3_file* f) { return reinterpret_cast<ShimFile*>(f)->real; }

// What the next write or sync meets: None to go ahead.
Fault next_fault(long* stall_ms) {
  Faults& f = faults();
  f.calls.fetch_add(1, std::memory_order_relaxed);
  std::lock_guard<std::mutex> guard(f.mutex);
  if (f.fault == Fault::None) return Fault::None;
  ++f.seen;
  if (f.seen < f.at || (f.count > 0 && f.struck >= f.count)) return Fault::None;
  ++f.struck;
  *stall_ms = f.stall_ms;
  return f.fault;
}

// Carries out a fault for a call that would return failure code io_code;
// SQLITE_OK when the real call is to go ahead.
int strike(int io_code) {
  long stall_ms = 0;
  t_injected_errno = 0;
  switch (next_fault(&stall_ms)) {
    case Fault::None:
      return SQLITE_OK;
    case Fault::Stall:
      std::this_thread::sleep_for(std::chrono::milliseconds(stall_ms));
      return SQLITE_OK;
    case Fault::Kill:
      kill(getpid(), SIGKILL);  // as a kill -9 at this very point
      return SQLITE_IOERR;
    case Fault::Full:
      t_injected_errno = ENOSPC;
      return io_code == SQLITE_IOERR_WRITE ? SQLITE_FULL : io_code;
    case Fault::Io:
      t_injected_errno = EIO;
      return io_code;
    case Fault::ReadOnly:
      t_injected_errno = EROFS;
      return io_code;
  }
  return SQLITE_OK;
}

int shim_close(sqlite3_file* f) { return real(f)->pMethods->xClose(real(f)); }
int shim_read(sqlite3_file* f, void* buf, int n, sqlite3_int64 at) {
  return real(f)->pMethods->xRead(real(f), buf, n, at);
}
int shim_write(sqlite3_file* f, const void* buf, int n, sqlite3_int64 at) {
  int rc = strike(SQLITE_IOERR_WRITE);
  return rc != SQLITE_OK ? rc : real(f)->pMethods->xWrite(real(f), buf, n, at);
}
int shim_truncate(sqlite3_file* f, sqlite3_int64 size) {
  return real(f)->pMethods->xTruncate(real(f), size);
}
int shim_sync(sqlite3_file* f, int flags) {
  int rc = strike(SQLITE_IOERR_FSYNC);
  return rc != SQLITE_OK ? rc : real(f)->pMethods->xSync(real(f), flags);
}
int shim_size(sqlite3_file* f, sqlite3_int64* size) {
  return real(f)->pMethods->xFileSize(real(f), size);
}
int shim_lock(sqlite3_file* f, int level) { return real(f)->pMethods->xLock(real(f), level); }
int shim_unlock(sqlite3_file* f, int level) { return real(f)->pMethods->xUnlock(real(f), level); }
int shim_check(sqlite3_file* f, int* out) {
  return real(f)->pMethods->xCheckReservedLock(real(f), out);
}
int shim_control(sqlite3_file* f, int op, void* arg) {
  return real(f)->pMethods->xFileControl(real(f), op, arg);
}
int shim_sector(sqlite3_file* f) { return real(f)->pMethods->xSectorSize(real(f)); }
int shim_device(sqlite3_file* f) { return real(f)->pMethods->xDeviceCharacteristics(real(f)); }
int shim_shm_map(sqlite3_file* f, int page, int size, int extend, void volatile** out) {
  return real(f)->pMethods->xShmMap(real(f), page, size, extend, out);
}
int shim_shm_lock(sqlite3_file* f, int offset, int n, int flags) {
  return real(f)->pMethods->xShmLock(real(f), offset, n, flags);
}
void shim_shm_barrier(sqlite3_file* f) { real(f)->pMethods->xShmBarrier(real(f)); }
int shim_shm_unmap(sqlite3_file* f, int remove) {
  return real(f)->pMethods->xShmUnmap(real(f), remove);
}
int shim_fetch(sqlite3_file* f, sqlite3_int64 at, int n, void** out) {
  return real(f)->pMethods->xFetch(real(f), at, n, out);
}
int shim_unfetch(sqlite3_file* f, sqlite3_int64 at, void* page) {
  return real(f)->pMethods->xUnfetch(real(f), at, page);
}

const sqlite3_io_methods kShimMethods = {
    3,           shim_close,   shim_read,     shim_write,     shim_truncate,  shim_sync,
    shim_size,   shim_lock,    shim_unlock,   shim_check,     shim_control,   shim_sector,
    shim_device, shim_shm_map, shim_shm_lock, shim_shm_barrier, shim_shm_unmap, shim_fetch,
    shim_unfetch,
};

// Opens the real file behind the wrapper.
int shim_open(sqlite3_vfs*, sqlite3_filename name, sqlite3_file* f, int flags, int* out_flags) {
  auto* shim = reinterpret_cast<ShimFile*>(f);
  shim->real = reinterpret_cast<sqlite3_file*>(shim + 1);
  int rc = g_root->xOpen(g_root, name, shim->real, flags, out_flags);
  // A real file without methods needs no close: nor does the wrapper.
  shim->base.pMethods = shim->real->pMethods != nullptr ? &kShimMethods : nullptr;
  return rc;
}

int shim_delete(sqlite3_vfs*, const char* name, int sync) {
  return g_root->xDelete(g_root, name, sync);
}
int shim_access(sqlite3_vfs*, const char* name, int flags, int* out) {
  return g_root->xAccess(g_root, name, flags, out);
}
int shim_full_path(sqlite3_vfs*, const char* name, int n, char* out) {
  return g_root->xFullPathname(g_root, name, n, out);
}
void* shim_dl_open(sqlite3_vfs*, const char* name) { return g_root->xDlOpen(g_root, name); }
void shim_dl_error(sqlite3_vfs*, int n, char* out) { g_root->xDlError(g_root, n, out); }
void (*shim_dl_sym(sqlite3_vfs*, void* handle, const char* name))(void) {
  return g_root->xDlSym(g_root, handle, name);
}
void shim_dl_close(sqlite3_vfs*, void* handle) { g_root->xDlClose(g_root, handle); }
int shim_random(sqlite3_vfs*, int n, char* out) { return g_root->xRandomness(g_root, n, out); }
int shim_sleep(sqlite3_vfs*, int us) { return g_root->xSleep(g_root, us); }
int shim_time(sqlite3_vfs*, double* out) { return g_root->xCurrentTime(g_root, out); }
// The injected errno first, so that the store names the fault as it would a
// real one.
int shim_last_error(sqlite3_vfs*, int n, char* out) {
  if (t_injected_errno != 0) return t_injected_errno;
  return g_root->xGetLastError(g_root, n, out);
}
int shim_time64(sqlite3_vfs*, sqlite3_int64* out) {
  return g_root->xCurrentTimeInt64(g_root, out);
}

// Registers the VFS once; false when there is no default to wrap.
bool register_once() {
  static sqlite3_vfs vfs;
  g_root = sqlite3_vfs_find(nullptr);
  if (g_root == nullptr || g_root->iVersion < 2) return false;
  vfs = sqlite3_vfs{2,
                    static_cast<int>(sizeof(ShimFile)) + g_root->szOsFile,
                    g_root->mxPathname,
                    nullptr,
                    "slewfault",
                    nullptr,
                    shim_open,
                    shim_delete,
                    shim_access,
                    shim_full_path,
                    shim_dl_open,
                    shim_dl_error,
                    shim_dl_sym,
                    shim_dl_close,
                    shim_random,
                    shim_sleep,
                    shim_time,
                    shim_last_error,
                    shim_time64,
                    nullptr,
                    nullptr,
                    nullptr};
  return sqlite3_vfs_register(&vfs, 0) == SQLITE_OK;
}

// A whole number of at least min; false otherwise.
bool whole(const char* text, long min, long* out) {
  char* end = nullptr;
  errno = 0;
  long n = strtol(text, &end, 10);
  if (end == text || *end != '\0' || errno != 0 || n < min) return false;
  *out = n;
  return true;
}

// The fault a sim.store.fault value names; false when it names none.
bool fault_named(const char* value, Fault* out) {
  static const std::pair<const char*, Fault> kNames[] = {
      {"none", Fault::None}, {"", Fault::None},       {"full", Fault::Full},
      {"io", Fault::Io},     {"read-only", Fault::ReadOnly}, {"stall", Fault::Stall},
      {"kill", Fault::Kill},
  };
  for (const auto& [name, fault] : kNames) {
    if (strcmp(value, name) == 0) {
      *out = fault;
      return true;
    }
  }
  return false;
}

}  // namespace

const char* fault_vfs_name() {
  static const bool registered = register_once();
  return registered ? "slewfault" : nullptr;
}

int fault_vfs_knob(const char* key, const char* value, std::string* why) {
  if (strncmp(key, "sim.store.", 10) != 0) return 0;
  const char* knob = key + 10;
  Faults& f = faults();
  std::lock_guard<std::mutex> guard(f.mutex);
  Fault fault;
  long n = 0;
  bool good;
  if (strcmp(knob, "fault") == 0) {
    good = fault_named(value, &fault);
    if (good) f.fault = fault;
  } else if (strcmp(knob, "fault_at") == 0) {
    good = whole(value, 1, &n);
    if (good) f.at = n;
  } else if (strcmp(knob, "fault_count") == 0) {
    good = whole(value, 0, &n);
    if (good) f.count = n;
  } else if (strcmp(knob, "stall_ms") == 0) {
    good = whole(value, 0, &n);
    if (good) f.stall_ms = n;
  } else {
    *why = std::string("no such knob: ") + key;
    return -1;
  }
  if (!good) {
    *why = std::string("bad value for ") + key + ": " + value;
    return -1;
  }
  // Each knob write starts the countdown afresh.
  f.seen = f.struck = 0;
  return 1;
}

long fault_vfs_calls() { return faults().calls.load(std::memory_order_relaxed); }

int fault_vfs_errno() { return t_injected_errno; }

}  // namespace sim
