// The operating system as the daemon sees it on the simulated camera: the
// clock, sleeps, shell lines, files in the sandbox, console and signals.
#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "bus/bus_extra.h"
#include "bus/bus_server.h"
#include "core/core.h"
#include "platform/os.h"

namespace sim {

namespace {

constexpr int kSignalCount = 65;  // signal numbers 1..64
std::atomic<SignalHandler> g_handlers[kSignalCount];
std::atomic<ExitHook> g_exit_hook{nullptr};

// Host path of a camera path; with make_parents, its folders are created.
std::string host_path(const char* camera_path, bool make_parents) {
  char out[4096];
  sandbox_path(camera_path, out, sizeof out);
  if (make_parents) sandbox_make_parents(out);
  return out;
}

// Console text goes to the transcript, and in real time to the real stdout.
void console_out(const char* text, size_t len) {
  console_write(text, len);
  if (virtual_mode()) return;
  fwrite(text, 1, len, stdout);
  fflush(stdout);
}

}  // namespace

thread_local int t_platform_depth = 0;

SignalHandler installed_signal_handler(int signo) {
  if (signo <= 0 || signo >= kSignalCount) return nullptr;
  return g_handlers[signo].load();
}

void set_exit_hook(ExitHook hook) { g_exit_hook.store(hook); }

}  // namespace sim

namespace sim {

namespace {

std::atomic<int> g_daemon_locks{0};  // mutexes the daemon holds now

}  // namespace

bool daemon_holds_lock() { return g_daemon_locks.load() > 0; }

}  // namespace sim

extern "C" {

int os_mutex_lock(pthread_mutex_t* mutex) {
  int result = pthread_mutex_lock(mutex);
  if (result == 0) sim::g_daemon_locks.fetch_add(1);
  return result;
}

int os_mutex_unlock(pthread_mutex_t* mutex) {
  sim::g_daemon_locks.fetch_sub(1);
  return pthread_mutex_unlock(mutex);
}

// A sleep of the daemon ends its stretch of writes (see bus.cpp).
int os_usleep(unsigned int usec) {
  sim::PlatformCall in;
  sim::bus_stretch_end();
  sim::sleep_ns(static_cast<int64_t>(usec) * 1000);
  return 0;
}

unsigned int os_sleep(unsigned int sec) {
  sim::PlatformCall in;
  sim::bus_stretch_end();
  sim::sleep_ns(static_cast<int64_t>(sec) * 1000000000LL);
  return 0;
}

int os_clock_raw(struct timespec* ts) {
  sim::PlatformCall in;
  int64_t ns = sim::now_ns();
  ts->tv_sec = static_cast<time_t>(ns / 1000000000LL);
  ts->tv_nsec = static_cast<long>(ns % 1000000000LL);
  return 0;
}

time_t os_time(void) {
  sim::PlatformCall in;
  return static_cast<time_t>(sim::wall_seconds());
}

// Virtual time is UTC (the sim.clock knob); real time is the host's zone.
struct tm* os_localtime(const time_t* t, struct tm* out) {
  sim::PlatformCall in;
  return sim::virtual_mode() ? gmtime_r(t, out) : localtime_r(t, out);
}

int os_system(const char* line) {
  sim::PlatformCall in;
  sim::trace(sim::Kind::Sh, "%s", line);
  std::lock_guard<std::recursive_mutex> guard(sim::big_lock());
  return sim::shell_run(line);
}

FILE* os_fopen(const char* path, const char* mode) {
  sim::PlatformCall in;
  bool writes = strchr(mode, 'w') || strchr(mode, 'a');
  return fopen(sim::host_path(path, writes).c_str(), mode);
}

int os_open(const char* path, int flags) {
  sim::PlatformCall in;
  bool creates = (flags & O_CREAT) != 0;
  return open(sim::host_path(path, creates).c_str(), flags, 0644);
}

int os_printf(const char* fmt, ...) {
  sim::PlatformCall in;
  char small[1024];
  va_list args;
  va_start(args, fmt);
  va_list again;
  va_copy(again, args);
  int n = vsnprintf(small, sizeof small, fmt, args);
  va_end(args);
  if (n >= 0 && static_cast<size_t>(n) < sizeof small) {
    sim::console_out(small, n);
  } else if (n >= 0) {
    std::string text(n, '\0');
    vsnprintf(text.data(), n + 1, fmt, again);
    sim::console_out(text.data(), n);
  }
  va_end(again);
  return n;
}

int os_puts(const char* text) {
  sim::PlatformCall in;
  std::string line = std::string(text) + '\n';
  sim::console_out(line.data(), line.size());
  return 1;
}

void os_signal(int signo, OsSignalHandler handler) {
  sim::PlatformCall in;
  if (signo <= 0 || signo >= sim::kSignalCount) return;
  sim::g_handlers[signo].store(handler);
}

void os_exit(int status) {
  sim::PlatformCall in;
  sim::console_flush();
  sim::trace(sim::Kind::Exit, "%d", status);
  if (!sim::virtual_mode()) {
    // Other camera threads may be mid-call: end without running their
    // destructors or atexit work. The store commits unless another daemon
    // thread is part-way through its writes, which are then dropped whole.
    sim::bus_stretch_end();
    sim::bus_server_unlink();
    fflush(stdout);
    _exit(status);
  }
  sim::ExitHook hook = sim::g_exit_hook.load();
  if (hook) hook(status);
  exit(status);
}

}  // extern "C"
