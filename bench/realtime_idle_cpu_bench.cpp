// CPU share of an idle real-time slewd against its floor: a process started
// by the benchmark that does nothing but sleep 10 ms in a loop, as the
// daemon's main loop does. Both are measured over the same windows, after
// slewd's bring-up; the ratio is what counts.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "slewd_process.h"

namespace {

// The floor: a child that sleeps 10 ms at a time until killed.
pid_t StartSleeper() {
  pid_t pid = fork();
  if (pid == 0) {
    timespec tick{0, 10 * 1000 * 1000};
    for (;;) nanosleep(&tick, nullptr);
  }
  return pid;
}

}  // namespace

int main(int argc, char** argv) {
  int seconds = argc > 1 ? atoi(argv[1]) : 60;
  int windows = argc > 2 ? atoi(argv[2]) : 3;
  if (seconds <= 0 || windows <= 0) {
    fprintf(stderr, "usage: realtime_idle_cpu_bench [SECONDS [WINDOWS]]\n");
    return 2;
  }
  std::string folder = MakeStateFolder();
  if (folder.empty()) return 1;
  pid_t daemon = StartSlewd(folder.c_str());
  pid_t sleeper = StartSleeper();
  sleep(10);  // bring-up: calibration, levelling, lens
  std::vector<double> ratios;
  for (int w = 1; w <= windows; w++) {
    double d0 = ProcessCpuSeconds(daemon), s0 = ProcessCpuSeconds(sleeper);
    sleep(seconds);
    double d1 = ProcessCpuSeconds(daemon), s1 = ProcessCpuSeconds(sleeper);
    if (d0 < 0 || d1 < 0 || s0 < 0 || s1 < 0) break;
    double daemon_share = 100.0 * (d1 - d0) / seconds, floor_share = 100.0 * (s1 - s0) / seconds;
    ratios.push_back(daemon_share / floor_share);
    printf("window %d: idle slewd %.3f%% of a core, 10 ms sleeper (floor) %.3f%%, ratio %.2f\n", w,
           daemon_share, floor_share, ratios.back());
  }
  kill(sleeper, SIGKILL);
  waitpid(sleeper, nullptr, 0);
  StopSlewd(daemon, folder.c_str());
  if (ratios.empty()) return 1;
  printf("idle slewd against the sleeper floor: median ratio %.2f over %zu windows of %d s\n",
         Quantile(ratios, 0.5), ratios.size(), seconds);
  return 0;
}
