// CPU cost of an idle tick of the main loop, the simulated camera's share
// included (its clock step, the driver calls, the bus lookups), against the
// reference loop.
#include <pthread.h>

#include <cstdio>
#include <ctime>

#include "control/listeners.h"
#include "core/core.h"
#include "reference_loop.h"
#include "slewd/loop.h"
#include "slewd/startup.h"

namespace {

double CpuSeconds() {
  struct timespec ts;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return ts.tv_sec + ts.tv_nsec * 1e-9;
}

}  // namespace

int main() {
  sim::clock_init(sim::ClockMode::Virtual);
  sim::transcript_keep(false);
  sim::bus_open(":memory:");
  sim::bus_put("sim.pan.cali_s", "0");
  sim::bus_put("sim.tilt.cali_s", "0");
  sim::world_init();
  sim::mark_daemon_start();
  pthread_mutex_init(&gPanLimitMutex, nullptr);
  RegisterListeners();
  constexpr int kTicks = 360000;  // one hour
  for (int i = 0; i < 1000; i++) LoopTick(&gLoop);  // past the first publications
  double start = CpuSeconds();
  for (int i = 0; i < kTicks; i++) LoopTick(&gLoop);
  double cpu = CpuSeconds() - start;
  printf("idle tick: %.0f ns of CPU per tick (%d ticks, %.3f s)\n", cpu * 1e9 / kTicks, kTicks, cpu);
  double reference = TimeReferenceLoop().cpu;
  printf("reference loop: %.3f s of CPU; %.0f idle ticks per reference loop\n", reference,
         reference / (cpu / kTicks));
  return 0;
}
