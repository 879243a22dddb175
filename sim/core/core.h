// The simulated camera's internal contract. Its pieces, by folder:
//   core/      the clock (virtual or real), the one lock, the sleep hook,
//              the transcript, the sandbox
//   bus/       the parameter bus store, listeners and notification queue;
//              the socket protocol, server and client
//   world/     head, lens, controllers, camera state, knobs, shell, tracker
//   vendor/    the library calls the daemon makes
//   realtime/  threads and socket of the real-time camera
//   runner/    the scenario interpreter (virtual time only)
#pragma once

#include <cstddef>
#include <cstdint>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <string>

namespace sim {

// ---- clock and lock (clock.cpp) -------------------------------------------

enum class ClockMode { Real, Virtual };

// Chooses the mode; in virtual mode the clock starts at kVirtualBootNs.
void clock_init(ClockMode mode);
bool virtual_mode();
// Raw monotonic time of the simulated camera, in ns.
int64_t now_ns();
// Seconds since the daemon started, for transcript stamps.
double daemon_seconds();
// Marks the daemon's start (time 0 of the transcript).
void mark_daemon_start();
// Wall-clock seconds (UTC) matching now_ns(): virtual mode counts from the
// sim.clock knob, real mode is the host's time.
int64_t wall_seconds();
void set_wall_start(int64_t epoch_seconds);

constexpr int64_t kVirtualBootNs = 1000LL * 1000000000LL;  // 1000 s of uptime
constexpr int64_t kWorldStepNs = 10LL * 1000000LL;         // physics step

// The one lock of the simulated camera: every entry point from the daemon,
// the world thread and the socket takes it. Daemon listeners are never called
// while it is held.
std::recursive_mutex& big_lock();

// Virtual mode: advances the clock by ns in steps of at most kWorldStepNs,
// stepping the world, delivering bus notifications and running the scenario
// between steps. Real mode: sleeps.
void sleep_ns(int64_t ns);

// Called between virtual steps (after world and bus); the scenario runner
// installs it.
using StepHook = void (*)();
void set_step_hook(StepHook hook);
// The scenario's next moment to act (on the now_ns scale): sleep_ns never
// steps past it and, once it has come, calls the step hook before time
// passes. INT64_MAX (the start value): no wish.
void set_wake_ns(int64_t at_ns);
// Whether virtual sleeps hand bus notifications to the daemon's listeners;
// the runner turns it off once the daemon has ended. On after clock_init.
void set_delivery(bool on);

// ---- the daemon's side and the camera's (os_seam.cpp) ----------------------

// How deep this thread is inside the camera's library calls: 0 while it runs
// the daemon's own code. The heap test counts allocations made at depth 0.
extern thread_local int t_platform_depth;

// Marks one library call of the daemon for its length.
struct PlatformCall {
  PlatformCall() { ++t_platform_depth; }
  ~PlatformCall() { --t_platform_depth; }
  PlatformCall(const PlatformCall&) = delete;
  PlatformCall& operator=(const PlatformCall&) = delete;
};

// Marks a call back into the daemon (a listener, a signal handler) for its
// length: the daemon's own code again.
struct DaemonCallback {
  DaemonCallback() : saved_(t_platform_depth) { t_platform_depth = 0; }
  ~DaemonCallback() { t_platform_depth = saved_; }
  DaemonCallback(const DaemonCallback&) = delete;
  DaemonCallback& operator=(const DaemonCallback&) = delete;

 private:
  int saved_;
};

// ---- transcript (transcript.cpp) ------------------------------------------

enum class Kind { Out, Set, Ext, Call, Sh, Sim, Log, Exit, Bus, File, Reg };

void transcript_open(FILE* sink);  // nullptr: keep in memory only
// Real time: writes the transcript to the file at path. The file there is
// kept as path.1 first (path.1 as path.2, up to path.3), and the same shift
// happens whenever the file grows past transcript_rotate_at bytes.
// false with a one-line reason in *error.
bool transcript_open_file(const char* path, std::string* error);
// Closes the file of transcript_open_file.
void transcript_close_file();
// Size at which the transcript file rotates (16 MiB unless set).
void transcript_rotate_at(size_t bytes);
void set_verbose(bool verbose);
// Whether lines are kept in memory in virtual mode (the default); long
// fuzzing and benchmark runs turn it off.
void transcript_keep(bool keep);
// Whether getter calls are traced (set_verbose); read by every getter.
extern std::atomic<bool> g_verbose;
inline bool verbose() { return g_verbose.load(std::memory_order_relaxed); }
// Adds one line "TIME KIND TEXT". Safe from any thread.
void trace(Kind kind, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
// A vendor call: `call` line; getters appear only when verbose.
void trace_call(bool getter, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
// Console text of the daemon; split into `out` lines at line feeds.
void console_write(const char* text, size_t len);
// Adds a pending partial console line as its own `out` line (daemon ends).
void console_flush();
// Lines added so far, and line i without its time ("KIND TEXT").
size_t transcript_size();
const char* transcript_line(size_t i);
// Whether line i is there only because the run is verbose (a getter call,
// a bus write of the camera itself).
bool transcript_verbose_only(size_t i);
// Sends every line to this callback as it is added (the runner's await).
using LineHook = void (*)(const char* line_without_time);
void set_line_hook(LineHook hook);

// ---- OS seam (os_seam.cpp) -----------------------------------------------

// The handler the daemon gave os_signal for signo; nullptr when none.
using SignalHandler = void (*)(int);
SignalHandler installed_signal_handler(int signo);
// Whether the daemon holds its mutex now (os_mutex_lock without unlock).
bool daemon_holds_lock();
// Virtual mode: os_exit traces `exit N`, then calls this hook (the runner),
// which must not return. Without a hook os_exit ends the process.
using ExitHook = void (*)(int status);
void set_exit_hook(ExitHook hook);

// ---- bus (bus.cpp) --------------------------------------------------------

enum class Origin { Daemon, External, Sim };

constexpr int kValueMax = 127;

// Opens the store: a file path in real time, ":memory:" in virtual time.
// Returns 0, or -1 with a message on stderr.
int bus_open(const char* path);
void bus_close();
// Stores without notification or trace (scenario set-up, knob defaults).
int bus_put(const char* key, const char* value);
// The full write: store, trace (set/ext/sim by origin), tell the world, then
// notify. Daemon writes notify its listeners on the calling thread; others
// are queued for bus_deliver_pending. Returns 0, or -1 for a bad key/value
// or a sim.* value the camera refuses.
int bus_write(Origin origin, const char* key, const char* value);
// Copies the value; false when the key holds none.
bool bus_read(const char* key, char* out, size_t len);
// Calls the daemon's listeners for every queued notification, on this thread.
void bus_deliver_pending();
bool bus_has_pending();
// Every KEY=VALUE under the prefix, list entries in list order.
using BusVisitor = void (*)(const char* key, const char* value, void* ctx);
void bus_visit(const char* prefix, BusVisitor visit, void* ctx);
// A key is valid when it is 1..127 characters of [A-Za-z0-9_.-].
bool bus_key_valid(const char* key);

// ---- world (world.cpp and the device files) -------------------------------

// Reads every sim.* knob from the bus and powers the camera on.
void world_init();
// Advances head, lens and controllers by dt.
void world_step(int64_t dt_ns);
// The sooner of two waits in ns, -1 standing for none.
inline int64_t sooner_ns(int64_t a, int64_t b) {
  if (a < 0) return b;
  if (b < 0) return a;
  return a < b ? a : b;
}
// Real time: steps the world up to the clock, so that a library call sees
// it exact to the moment of the call. Virtual time steps the world with the
// clock, so there it has nothing to do. Caller holds big_lock.
void world_catch_up();
// Clock time (now_ns scale) of the next moment the world changes by itself
// (an axis arriving, a calibration ending, a lens publication falling due);
// INT64_MAX when nothing is due.
int64_t world_next_event_ns();
// Real time: wakes the world thread when the world's next event is no longer
// the one the thread sleeps for. Caller holds big_lock.
void world_wake_if_changed();
// The real-time world thread: sleeps until the world's next event or a wake,
// catches the world up, until quit is set and world_thread_stop called.
void world_thread_run(const std::atomic<bool>& quit);
void world_thread_stop();
// How many times the world thread has woken since the camera started, and
// the deadline it sleeps for (INT64_MAX: none; INT64_MIN: it is running).
int64_t world_thread_wakes();
int64_t world_thread_deadline();
// True for the sim. keys only the camera itself writes (sim.lens.*).
bool world_key_read_only(const char* key);
// A write to a sim.* key applies its knob before it is stored: false, with
// the knob's error in *why, leaves world and store as they were. Other keys
// pass.
bool world_take_knob(const char* key, const char* value, std::string* why);
// Every stored bus write passes here (lens commands, ...).
void world_on_bus_write(Origin origin, const char* key, const char* value);
// Emulates a shell line inside the sandbox; returns its exit status.
int shell_run(const char* line);

// ---- sandbox (sandbox.cpp) ------------------------------------------------

// Root folder that stands for the camera's file system.
void sandbox_set_root(const char* root);
const char* sandbox_root();
// Maps a camera path to the host path under the sandbox root.
void sandbox_path(const char* camera_path, char* out, size_t len);
// Creates the folders a camera has from power-on (/tmp, /mnt/nand, /dev);
// 0, or -1 when one cannot be made.
int sandbox_make_camera_folders();
// Creates the missing parent folders of a host path (before writing a file
// there); 0, or -1 when a folder cannot be made.
int sandbox_make_parents(const char* host_path);

}  // namespace sim
