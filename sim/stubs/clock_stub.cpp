// TEMPORARY stub of the clock and transcript pieces; deleted when clock.cpp
// and transcript.cpp land.
#include "core.h"
#include <cstdarg>
namespace sim {
static int64_t g_now = kVirtualBootNs;
void clock_init(ClockMode) {}
bool virtual_mode() { return true; }
int64_t now_ns() { return g_now; }
double daemon_seconds() { return 0; }
void mark_daemon_start() {}
int64_t wall_seconds() { return 0; }
void set_wall_start(int64_t) {}
std::recursive_mutex& big_lock() { static std::recursive_mutex m; return m; }
void sleep_ns(int64_t ns) { g_now += ns; }
void set_step_hook(StepHook) {}
void transcript_open(FILE*) {}
void set_verbose(bool) {}
bool verbose() { return false; }
void trace(Kind, const char*, ...) {}
void trace_call(bool, const char*, ...) {}
void console_write(const char*, size_t) {}
size_t transcript_size() { return 0; }
const char* transcript_line(size_t) { return ""; }
void set_line_hook(LineHook) {}
}
