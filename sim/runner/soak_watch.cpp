// The soak's invariants, checked on every transcript line and between every
// two virtual steps: the loop keeps ticking, published values stay in their
// ranges, and after a stop the head comes back to rest.
#include <cstdlib>
#include <cstring>

#include "runner/soak.h"

namespace sim {

namespace {

constexpr int64_t kSecond = 1000000000;

// The longest blocking wait of a tick, by the run mode it runs, in seconds.
// GoPreset: 330 ms of freeze, 1 s to stop a moving axis, and its wait for
// arrival, which gives up after 120 s.
constexpr double kGoPreset = 0.33 + 1 + 120;
const double kModeBound[12] = {
    3 + kGoPreset + 5,        // idle: taking ois_test (3 s, a move, 5 s of focus) or scan
    3 + kGoPreset + 3,        // manual: an auto flip
    kGoPreset,                // preset
    kGoPreset,                // patrol: the move to the next stop
    kGoPreset,                // pattern: the move to the first position
    0.5 + kGoPreset + 3,      // scan: a new target (pan stop, tilt travel, fixed focus)
    kGoPreset,                // abs
    kGoPreset,                // relative
    kGoPreset,                // spddry: the exercise
    kGoPreset,                // track
    kGoPreset,                // track_position
    3 + kGoPreset + 5,        // ois_test
};
// A health pass that resets a controller: 80 s of calibration, 1 s, a move.
constexpr double kHealthPass = 0.2 + 80 + 1 + kGoPreset;
// A listener that moves (set_track_run:) holds the loop for a move.
constexpr double kListenerMove = kGoPreset;
// Pan limit changes, a rest save while recording, the tick's own sleep.
constexpr double kTickSlack = 0.2 + 0.5 + 0.5;
// After a stop, the head is at rest within the longest wait of any tick.
constexpr double kRestBound = 3 + kGoPreset + 5 + kHealthPass + kListenerMove + kTickSlack;

const int kStatusCodes[] = {0, 1, 2, 3, 4, 5, 14, 21, 24, 31, 34, 44};
const char* const kModeTexts[] = {"manual", "sequence", "curise", "autopan", "track"};
const char* const kCompassWords[] = {"East", "North-East", "North", "North-West",
                                     "West", "South-West", "South", "South-East"};

// A published number and its range.
struct RangeRow {
  const char* key;
  long lo, hi;
};
const RangeRow kRanges[] = {
    {"ptz.pan_pos", 0, 65535},   {"ptz.tilt_pos", 0, 37681},
    {"ptz.angle.pan", 0, 360},   {"ptz.angle.tilt", -27, 180},
};

struct Watch {
  DaemonProbes probes{};
  const SoakCounts* counts = nullptr;
  bool ticking = false;          // the loop has made its first tick
  int32_t last_tick = 0;
  int64_t last_tick_ns = 0;
  int32_t tick_mode = 0;         // run mode of the tick under way
  bool listener_move = false;    // a moving listener ran since the last tick
  int status = 0;                // ptz.status as last published
  bool rest_pending = false;     // a stop waits for the head to rest
  int64_t rest_deadline = -1;    // virtual time, or -1 until the next step
  long checks = 0;
  long ticks = 0;
  long rests = 0;
  double longest_gap = 0;
  int longest_gap_mode = 0;
};

Watch g_watch;

// The value after "KEY=" when the line (kind and text) is a daemon write of
// key, else null.
const char* daemon_write(const char* line, const char* key) {
  if (strncmp(line, "set ", 4) != 0) return nullptr;
  const char* at = line + 4;
  size_t n = strlen(key);
  if (strncmp(at, key, n) != 0 || at[n] != '=') return nullptr;
  return at + n + 1;
}

// Whether text is one of the table's words.
template <size_t N>
bool one_of(const char* text, const char* const (&words)[N]) {
  for (const char* w : words)
    if (!strcmp(text, w)) return true;
  return false;
}

// Checks a daemon write against the ranges; "" or what is wrong.
std::string check_write(const char* line) {
  for (const RangeRow& row : kRanges) {
    const char* v = daemon_write(line, row.key);
    if (!v) continue;
    ++g_watch.checks;
    long n = strtol(v, nullptr, 10);
    if (n < row.lo || n > row.hi) return std::string(row.key) + " out of range: " + line;
  }
  if (const char* v = daemon_write(line, "ptz.status")) {
    ++g_watch.checks;
    g_watch.status = atoi(v);
    bool known = false;
    for (int code : kStatusCodes) known |= code == g_watch.status;
    if (!known) return std::string("unknown status code: ") + line;
  }
  if (const char* v = daemon_write(line, "ptz.mode_status")) {
    ++g_watch.checks;
    if (!one_of(v, kModeTexts)) return std::string("unknown mode text: ") + line;
  }
  if (const char* v = daemon_write(line, "system.cam1.osd.direction")) {
    ++g_watch.checks;
    if (!one_of(v, kCompassWords)) return std::string("unknown compass word: ") + line;
  }
  return "";
}

// A command of the soak: a stop starts the wait for rest, any other command
// may move the head again and lifts it.
void note_command(const char* line) {
  const char* const kPrefix = "ext ptz.run_mode=";
  if (strncmp(line, kPrefix, strlen(kPrefix)) != 0) return;
  const char* command = line + strlen(kPrefix);
  if (strstr(command, "set_track_run:")) g_watch.listener_move = true;
  g_watch.rest_pending = !strcmp(command, "stop");
  g_watch.rest_deadline = -1;  // the next step sets it
}

std::string on_line(const char* line) {
  if (strncmp(line, "exit ", 5) == 0) return std::string("the daemon ended: ") + line;
  note_command(line);
  return check_write(line);
}

// The bound of the tick under way, with or without a health pass in it.
double tick_bound(bool health) {
  return kModeBound[g_watch.tick_mode] + kTickSlack + (health ? kHealthPass : 0) +
         (g_watch.listener_move ? kListenerMove : 0);
}

// Gaps between ticks; "" or what is wrong.
std::string check_ticks(int64_t now) {
  int32_t tick = g_watch.probes.tick();
  int32_t mode = g_watch.probes.run_mode();
  ++g_watch.checks;
  if (mode < 0 || mode > 11) return "run mode out of range: " + std::to_string(mode);
  if (!g_watch.ticking) {
    if (tick == g_watch.last_tick) return "";
    g_watch.ticking = true;
  } else if (tick != g_watch.last_tick) {
    double gap = static_cast<double>(now - g_watch.last_tick_ns) / kSecond;
    bool health = tick < g_watch.last_tick;  // the tick ran a health pass
    if (gap > tick_bound(health))
      return "no tick for " + std::to_string(gap) + " s in run mode " + std::to_string(g_watch.tick_mode);
    if (gap > g_watch.longest_gap) {
      g_watch.longest_gap = gap;
      g_watch.longest_gap_mode = g_watch.tick_mode;
    }
    ++g_watch.ticks;
  } else {
    double gap = static_cast<double>(now - g_watch.last_tick_ns) / kSecond;
    if (gap > tick_bound(true))
      return "the loop has not ticked for " + std::to_string(gap) + " s in run mode " + std::to_string(g_watch.tick_mode);
    return "";
  }
  g_watch.last_tick = tick;
  g_watch.last_tick_ns = now;
  g_watch.tick_mode = mode;
  g_watch.listener_move = false;
  return "";
}

// After a stop: status 0 with the loop idle, in time; "" or what is wrong.
std::string check_rest(int64_t now) {
  if (!g_watch.rest_pending) return "";
  ++g_watch.checks;
  if (g_watch.rest_deadline < 0) g_watch.rest_deadline = now + static_cast<int64_t>(kRestBound * kSecond);
  if (g_watch.status == 0 && g_watch.probes.run_mode() == 0 && g_watch.probes.new_mode() == 0) {
    g_watch.rest_pending = false;
    ++g_watch.rests;
    return "";
  }
  if (now > g_watch.rest_deadline) return "ptz.status is not back to rest after a stop";
  return "";
}

std::string on_step(int64_t now) {
  std::string why = check_ticks(now);
  return why.empty() ? check_rest(now) : why;
}

std::string summary() {
  const SoakCounts& c = *g_watch.counts;
  return std::to_string(c.commands) + " commands, " + std::to_string(c.settings) + " settings, " +
         std::to_string(c.faults) + " faults, " + std::to_string(c.preset_checks) + " preset checks, " +
         std::to_string(g_watch.rests) + " returns to rest, " + std::to_string(g_watch.ticks) + " ticks, " +
         std::to_string(g_watch.checks) + " invariant checks, longest tick gap " +
         std::to_string(g_watch.longest_gap) + " s in run mode " + std::to_string(g_watch.longest_gap_mode);
}

const RunWatch kWatch = {on_line, on_step, summary};

}  // namespace

const RunWatch* soak_watch(const DaemonProbes& probes, const SoakCounts& counts) {
  g_watch = Watch();
  g_watch.probes = probes;
  g_watch.counts = &counts;
  return &kWatch;
}

}  // namespace sim
