// Once started, the daemon's own code allocates nothing through an idle minute and a minute of commands.
#include <gtest/gtest.h>
#include <malloc.h>
#include <stdlib.h>

#include <atomic>
#include <string>

#include "control/control.h"
#include "core/core.h"
#include "slewd/slewd.h"
#include "slewd/startup.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* p, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

std::atomic<bool> g_counting{false};  // the measured window is open
std::atomic<long> g_allocations{0};
std::atomic<void*> g_first_caller{nullptr};

void Note(void* caller) {
  if (!g_counting.load(std::memory_order_relaxed) || sim::t_platform_depth != 0) return;
  if (g_allocations.fetch_add(1) == 0) g_first_caller.store(caller);
}

#define COUNTED(call) (Note(__builtin_return_address(0)), call)
extern "C" {
void* malloc(size_t size) noexcept { return COUNTED(__libc_malloc(size)); }
void* calloc(size_t count, size_t size) noexcept { return COUNTED(__libc_calloc(count, size)); }
void* realloc(void* p, size_t size) noexcept { return COUNTED(__libc_realloc(p, size)); }
void* memalign(size_t alignment, size_t size) noexcept { return COUNTED(__libc_memalign(alignment, size)); }
void* aligned_alloc(size_t alignment, size_t size) noexcept { return memalign(alignment, size); }
int posix_memalign(void** out, size_t alignment, size_t size) noexcept { return (*out = memalign(alignment, size)) ? 0 : ENOMEM; }
}

constexpr double kStartCountingS = 30, kIdleS = 60, kCommandsS = 60;  // a command every 2 s in the last

const char* const kCommands[] = {"manual:100,0,0", "stop", "abs:30000,5000,4000", "manual:-50,30,0", "relative:1000,-500",
    "set_preset:1", "go_preset:1", "manual:0,0,1", "stop", "scan:1", "stop", "patrol:1", "stop"};

// Between virtual steps (in a daemon's sleep, not counted): the window, the commands, the end.
void Outside() {
  static int sent = 0;
  double t = sim::daemon_seconds();
  g_counting = t >= kStartCountingS;
  double into_commands = t - kStartCountingS - kIdleS;
  if (into_commands >= kCommandsS) g_counting = false, giExitFlag = 1;
  else if (into_commands >= 2.0 * sent) sim::bus_write(sim::Origin::External, "ptz.run_mode", kCommands[sent++ % std::size(kCommands)]);
}

void AllocateOnce() { void* volatile block = malloc(16); free(block); }  // volatile: not optimised away

TEST(DaemonHeap, OnlyTheDaemonsOwnAllocationsCount) {
  g_allocations = 0;
  g_counting = true;
  {
    sim::PlatformCall in;
    AllocateOnce();  // the camera's, inside a library call
    sim::DaemonCallback back;
    AllocateOnce();  // a listener of the daemon, called from there
  }
  AllocateOnce(), g_counting = false;  // the daemon's own
  AllocateOnce();  // outside the window
  EXPECT_EQ(g_allocations.load(), 2);
}

TEST(DaemonHeap, NoAllocationAfterStartUpIdleOrCommanded) {
  g_allocations = 0;
  char root[] = "/tmp/slewd-heap-XXXXXX";
  ASSERT_NE(mkdtemp(root), nullptr);
  sim::clock_init(sim::ClockMode::Virtual), sim::transcript_keep(false), sim::sandbox_set_root(root);
  ASSERT_EQ(sim::bus_open(":memory:"), 0);
  for (auto [key, value] : {std::pair{"ptz.system.max_speed", "720"}, {"ptz.manual.pan_speed", "90"}, {"ptz.manual.tilt_speed", "90"}})
    sim::bus_put(key, value);
  sim::world_init(), sim::mark_daemon_start(), sim::set_step_hook(Outside);
  char name[] = "slewd", *argv[] = {name, nullptr};
  slewd_main(1, argv), sim::set_step_hook(nullptr);
  EXPECT_GE(sim::daemon_seconds(), kStartCountingS + kIdleS + kCommandsS);
  EXPECT_EQ(g_allocations.load(), 0) << "first from the code at " << g_first_caller.load()
                                     << " (addr2line -e daemon_heap_test)";
  EXPECT_EQ(system((std::string("rm -rf ") + root).c_str()), 0);
}
