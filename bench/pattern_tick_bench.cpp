// CPU cost of a main-loop tick while a pattern plays and while one is
// recorded, and of one view-move computation, each beside the idle tick
// measured in the same run as reference.
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "control/control.h"
#include "control/listeners.h"
#include "core/core.h"
#include "motion/view_move.h"
#include "slewd/loop.h"
#include "slewd/startup.h"
#include "tours/pattern.h"

namespace {

double CpuSeconds() {
  struct timespec ts;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return ts.tv_sec + ts.tv_nsec * 1e-9;
}

// CPU ns per tick over n ticks.
double TickCost(int n) {
  double start = CpuSeconds();
  for (int i = 0; i < n; i++) LoopTick(&gLoop);
  return (CpuSeconds() - start) * 1e9 / n;
}

// A stored pattern 1 at the head's position: 100 "stop" events a second apart.
void StorePattern(const std::string& root) {
  std::ofstream file(root + "/mnt/nand/pattern1.path");
  file << "0,0,0\n0\n";
  for (int i = 0; i < 100; i++) file << "stop\n1000\n";
}

}  // namespace

int main() {
  char root[] = "/tmp/pattern_tick_bench.XXXXXX";
  if (mkdtemp(root) == nullptr) return 1;
  sim::clock_init(sim::ClockMode::Virtual);
  sim::transcript_keep(false);
  sim::sandbox_set_root(root);
  sim::sandbox_make_camera_folders();
  sim::bus_open(":memory:");
  sim::bus_put("sim.pan.cali_s", "0");
  sim::bus_put("sim.tilt.cali_s", "0");
  sim::bus_put("sim.lens_type", "0");
  sim::world_init();
  sim::mark_daemon_start();
  pthread_mutex_init(&gPanLimitMutex, nullptr);
  RegisterListeners();
  StorePattern(root);
  constexpr int kTicks = 30000;  // five minutes: inside the recording limit
  for (int i = 0; i < 1000; i++) LoopTick(&gLoop);  // past the first publications
  double idle = TickCost(kTicks);
  printf("idle tick (reference): %.0f ns of CPU per tick\n", idle);

  giPatternTarget = 1;
  giNewMode = kModePattern;
  for (int i = 0; i < 10; i++) LoopTick(&gLoop);
  double playing = TickCost(kTicks);
  printf("tick while a pattern plays (an event a second): %.0f ns, %.2f x idle\n", playing,
         playing / idle);
  giPatternRun = 0;
  for (int i = 0; i < 10; i++) LoopTick(&gLoop);

  char key[] = "ptz.pattern.action", rec[] = "rec2", stop[] = "stop";
  OnPatternAction(key, rec);
  double recording = TickCost(kTicks);
  printf("tick while recording at rest: %.0f ns, %.2f x idle\n", recording, recording / idle);
  OnPatternAction(key, stop);

  constexpr int kMoves = 100000;
  int32_t pan = 0, tilt = 0;
  double start = CpuSeconds();
  for (int i = 0; i < kMoves; i++) ComputeViewMove(7500, 2500 + i % 100, &pan, &tilt);
  double view = (CpuSeconds() - start) * 1e9 / kMoves;
  printf("view-move computation: %.0f ns per request, %.2f x an idle tick\n", view, view / idle);
  std::filesystem::remove_all(root);
  return 0;
}
