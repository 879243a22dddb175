// Threads of the real-time camera: the world thread moves the world when it
// has something to do by itself (world_timing.cpp), the bus thread delivers
// notifications from other processes to the daemon's listeners (beside the
// daemon's main loop, as the firmware's bus library does), and the socket
// threads serve slewctl.
#include "realtime/realtime.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

#include "bus/bus_extra.h"
#include "bus/bus_protocol.h"
#include "bus/bus_server.h"
#include "core/core.h"
#include "store/store_check.h"
#include "world/factory_defaults.h"

namespace sim {
namespace {

struct Realtime {
  bool running = false;            // between start and stop (main thread only)
  std::string store;               // the store's path
  std::atomic<bool> quit{false};   // asks the threads to end
  std::thread world;               // moves the world when it is due
  std::thread bus;                 // delivers notifications
  std::thread signals;             // hands SIGINT, SIGQUIT, SIGTERM to the daemon
  int lock_fd = -1;                // holds the state folder
};

Realtime& rt() {
  static Realtime* r = new Realtime;
  return *r;
}

// Moves the world whenever it has something to do, until quit.
void world_loop() { world_thread_run(rt().quit); }

// Delivers queued notifications as they come; sleeps for good in between
// (realtime_stop sets quit, then wakes it).
void bus_loop() {
  Realtime& r = rt();
  while (!r.quit) {
    if (bus_wait_pending(r.quit)) bus_deliver_pending();
  }
}

// The signals the daemon installs a handler for.
sigset_t daemon_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (int signo : {SIGINT, SIGQUIT, SIGTERM}) sigaddset(&set, signo);
  return set;
}

// Takes the daemon's signals and runs its handler on this thread, as the
// kernel may deliver a process signal to any thread. The daemon's handler
// prints and exits; run inside an interrupted daemon thread it could meet a
// lock that thread holds (the transcript's, the camera's).
void signal_loop() {
  sigset_t set = daemon_signals();
  for (;;) {
    int signo = 0;
    if (sigwait(&set, &signo) != 0) continue;
    if (rt().quit) return;
    SignalHandler handler = installed_signal_handler(signo);
    if (handler != nullptr) {
      DaemonCallback daemon;
      handler(signo);
      continue;
    }
    trace(Kind::Exit, "%d", 128 + signo);  // the default action: end
    fflush(stdout);
    _exit(128 + signo);
  }
}

// Starts the world, bus, signal and socket threads. The daemon's signals
// stay blocked in every thread, the caller's included, so that only the
// signal thread takes them. -1 with *error.
int start_threads(std::string* error) {
  sigset_t all, old, daemon = daemon_signals();
  pthread_sigmask(SIG_BLOCK, &daemon, nullptr);
  sigfillset(&all);
  for (int sync_signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) {
    sigdelset(&all, sync_signal);
  }
  pthread_sigmask(SIG_BLOCK, &all, &old);
  int result = bus_server_start(error);
  if (result == 0) {
    rt().quit = false;
    rt().world = std::thread(world_loop);
    rt().bus = std::thread(bus_loop);
    rt().signals = std::thread(signal_loop);
  }
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  if (result != 0) pthread_sigmask(SIG_UNBLOCK, &daemon, nullptr);
  return result;
}

// Creates the sandbox root with the camera folders the daemon uses, and an
// empty /dev/iav for it to open.
bool prepare_sandbox(const std::string& root, std::string* error) {
  sandbox_set_root(root.c_str());
  if (sandbox_make_camera_folders() != 0) {
    *error = "cannot create the sandbox " + root + ": " + strerror(errno);
    return false;
  }
  char host[4096];
  sandbox_path("/dev/iav", host, sizeof host);
  int fd = open(host, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd >= 0) close(fd);
  return true;
}

// Undoes a partial start.
void undo_start() {
  Realtime& r = rt();
  bus_server_stop();
  bus_close();
  transcript_close_file();
  if (r.lock_fd >= 0) close(r.lock_fd);
  r.lock_fd = -1;
}

// Refuses a state folder the camera cannot use, before anything in it
// changes.
bool state_usable(const std::string& state, std::string* error) {
  sockaddr_un address;
  if (!socket_address(socket_path(state), &address, error)) return false;
  struct stat st {};
  if (stat(state.c_str(), &st) != 0) return true;  // made by the lock
  if (!S_ISDIR(st.st_mode)) {
    *error = "the state folder " + state + " is not a folder";
    return false;
  }
  if (access(state.c_str(), W_OK | X_OK) != 0) {
    *error = "the state folder " + state + " is not writable";
    return false;
  }
  return true;
}

// Checks, repairs and opens the store, then fills in what a new or
// restored one lacks. -1 with *error.
int open_store(const std::string& state, StoreCheck* check, std::string* error) {
  std::string store = state + "/bus.db";
  rt().store = store;
  if (store_check(store, check, error) != 0) return -1;
  for (const std::string& line : check->said) fprintf(stderr, "slewd: %s\n", line.c_str());
  if (bus_open(store.c_str()) != 0) {
    *error = "cannot open the bus store " + store;
    return -1;
  }
  if (check->fresh) put_factory_defaults();
  for (const auto& [key, value] : check->rows) bus_put(key.c_str(), value.c_str());
  return 0;
}

}  // namespace

int realtime_lock_state(const std::string& state, std::string* error) {
  // The folder itself is locked: no file can be deleted to defeat it.
  if (sandbox_make_parents((state + "/bus.db").c_str()) != 0) {
    *error = "cannot create the state folder " + state + ": " + strerror(errno);
    return -1;
  }
  int fd = open(state.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) {
    *error = "cannot open " + state + ": " + strerror(errno);
    return -1;
  }
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    *error = errno == EWOULDBLOCK ? "another slewd is running on " + state
                                  : "cannot lock " + state + ": " + strerror(errno);
    close(fd);
    return -1;
  }
  return fd;
}

int realtime_start(const std::string& state, std::string* error) {
  Realtime& r = rt();
  if (r.running) {
    *error = "the camera is already running";
    return -1;
  }
  if (!state_usable(state, error)) return -1;
  // Lock, socket and store in hand before anything else in the folder
  // changes: a failed start leaves the last transcript as it was.
  r.lock_fd = realtime_lock_state(state, error);
  if (r.lock_fd < 0) return -1;
  clock_init(ClockMode::Real);
  StoreCheck check;
  if (bus_server_listen(socket_path(state), error) != 0 || open_store(state, &check, error) != 0) {
    undo_start();
    return -1;
  }
  bus_group_commits(true);
  if (!prepare_sandbox(state + "/root", error) ||
      !transcript_open_file((state + "/transcript.log").c_str(), error)) {
    undo_start();
    return -1;
  }
  for (const std::string& line : check.said) trace(Kind::Sim, "%s", line.c_str());
  {
    std::lock_guard<std::recursive_mutex> guard(big_lock());
    world_init();
  }
  bus_store_async();
  mark_daemon_start();
  if (start_threads(error) != 0) {
    undo_start();
    return -1;
  }
  r.running = true;
  return 0;
}

void realtime_stop() {
  Realtime& r = rt();
  if (!r.running) return;
  bus_server_stop();
  r.quit = true;
  world_thread_stop();
  bus_wake_waiters();
  r.world.join();
  r.bus.join();
  pthread_kill(r.signals.native_handle(), SIGTERM);  // wakes sigwait to see quit
  r.signals.join();
  sigset_t daemon = daemon_signals();
  pthread_sigmask(SIG_UNBLOCK, &daemon, nullptr);
  undo_start();
  // Closed in good order: the copy a later damage starts from.
  store_keep_copy(r.store);
  r.running = false;
}

void realtime_freeze() {
  if (!rt().running) return;
  big_lock().lock();
  bus_server_unlink();
}

}  // namespace sim
