// One virtual week of a schedule with four entries a day, the whole daemon
// through slewsim, timed on the host; the reference is the same week with
// the schedule off, measured in the same run.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "schedule_week.h"

// Wall seconds of one slewsim run of the scenario text.
static double TimeWeek(const std::string& scenario, const char* path) {
  std::ofstream(path) << scenario;
  std::string command = std::string(SLEWSIM_PATH) + " " + path + " >/dev/null";
  auto start = std::chrono::steady_clock::now();
  int status = system(command.c_str());
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (status != 0) printf("slewsim failed (status %d)\n", status);
  remove(path);
  return seconds;
}

int main() {
  for (int run = 1; run <= 3; run++) {
    double scheduled = TimeWeek(schedule_week::Scenario(true), "/tmp/slewd_schedule_week.scn");
    double reference = TimeWeek(schedule_week::Scenario(false), "/tmp/slewd_schedule_week_off.scn");
    printf("run %d: one virtual week, 28 schedule entries: %.3f s; schedule off (reference): "
           "%.3f s; ratio %.2f\n", run, scheduled, reference, scheduled / reference);
  }
  return 0;
}
