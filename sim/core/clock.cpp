// The clock of the simulated camera. Virtual mode: time is a counter that
// only sleeps advance, in world steps, with the scenario acting between them.
// Real mode: the host's raw monotonic clock and real sleeps.
#include <atomic>
#include <cerrno>
#include <climits>
#include <ctime>

#include "core/core.h"

namespace sim {

namespace {

// Wall-clock time at boot in virtual mode when the sim.clock knob is not set:
// 2026-01-05 00:00:00 UTC, a Monday, so that schedule tests start a week.
constexpr int64_t kDefaultWallStart = 1767571200;

std::atomic<bool> g_virtual{true};                // clock mode
std::atomic<int64_t> g_now{kVirtualBootNs};       // virtual time, ns
std::atomic<int64_t> g_daemon_start{-1};          // now_ns() at daemon start, -1 before
std::atomic<int64_t> g_wall_start{kDefaultWallStart};  // virtual wall seconds at boot
std::atomic<int64_t> g_wake{INT64_MAX};           // next moment the scenario acts
std::atomic<StepHook> g_step_hook{nullptr};       // the runner, between steps
std::atomic<bool> g_delivery{true};               // listeners get notifications

// Hands queued notifications to the daemon's listeners while it lives. Not
// while the daemon holds its mutex: the listeners would run on the thread
// that holds it, where a bus thread would wait for it to be released.
void deliver() {
  if (g_delivery.load() && !daemon_holds_lock()) bus_deliver_pending();
}

// The host's raw monotonic clock, in ns.
int64_t host_raw_ns() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC_RAW, &ts);
  return ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

// Real sleep of ns, resumed after interruptions.
void host_sleep(int64_t ns) {
  timespec req{static_cast<time_t>(ns / 1000000000LL), static_cast<long>(ns % 1000000000LL)};
  timespec rem;
  while (nanosleep(&req, &rem) != 0 && errno == EINTR) req = rem;
}

// Runs the scenario's hook and hands it the notifications it caused.
void run_step_hook() {
  StepHook hook = g_step_hook.load();
  if (!hook) return;
  hook();
  deliver();
}

// Advances virtual time by one step of at most max_ns, stopping at the wake.
void virtual_step(int64_t max_ns) {
  int64_t t = g_now.load();
  int64_t step = max_ns < kWorldStepNs ? max_ns : kWorldStepNs;
  int64_t wake = g_wake.load();
  if (wake > t && wake - t < step) step = wake - t;
  {
    std::lock_guard<std::recursive_mutex> guard(big_lock());
    g_now.store(t + step);
    world_step(step);
  }
  deliver();
  run_step_hook();
}

}  // namespace

void clock_init(ClockMode mode) {
  g_virtual.store(mode == ClockMode::Virtual);
  g_now.store(kVirtualBootNs);
  g_daemon_start.store(-1);
  g_wall_start.store(kDefaultWallStart);
  g_wake.store(INT64_MAX);
  g_step_hook.store(nullptr);
  g_delivery.store(true);
}

bool virtual_mode() { return g_virtual.load(); }

int64_t now_ns() { return g_virtual.load() ? g_now.load() : host_raw_ns(); }

double daemon_seconds() {
  int64_t start = g_daemon_start.load();
  if (start < 0) return 0.0;
  return static_cast<double>(now_ns() - start) / 1e9;
}

void mark_daemon_start() { g_daemon_start.store(now_ns()); }

int64_t wall_seconds() {
  if (!g_virtual.load()) return static_cast<int64_t>(time(nullptr));
  return g_wall_start.load() + (g_now.load() - kVirtualBootNs) / 1000000000LL;
}

void set_wall_start(int64_t epoch_seconds) { g_wall_start.store(epoch_seconds); }

std::recursive_mutex& big_lock() {
  static std::recursive_mutex lock;
  return lock;
}

void sleep_ns(int64_t ns) {
  if (!g_virtual.load()) {
    if (ns > 0) host_sleep(ns);
    return;
  }
  int64_t end = g_now.load() + (ns > 0 ? ns : 0);
  for (;;) {
    // The scenario acts first when its moment has come (a line it awaited).
    if (g_wake.load() <= g_now.load()) run_step_hook();
    int64_t left = end - g_now.load();
    if (left <= 0) return;
    virtual_step(left);
  }
}

void set_step_hook(StepHook hook) { g_step_hook.store(hook); }

void set_wake_ns(int64_t at_ns) { g_wake.store(at_ns); }

void set_delivery(bool on) { g_delivery.store(on); }

}  // namespace sim
