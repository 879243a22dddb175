// A week's preview of a camera that patrols by day and rests on a preset at
// night, through slewsim --preview, timed on the host beside the reference
// loop of the same run (target: under 15 s).
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/core.h"
#include "reference_loop.h"

// A state folder whose store holds the presets, the patrol and the schedule.
static std::string MakeState() {
  char pattern[] = "/tmp/slewd_preview_bench.XXXXXX";
  if (mkdtemp(pattern) == nullptr) return "";
  sim::clock_init(sim::ClockMode::Virtual);
  if (sim::bus_open((std::string(pattern) + "/bus.db").c_str()) != 0) return "";
  const char* const kSettings[][2] = {
      {"ptz.system.max_speed", "720"},
      {"ptz.preset.position.0", "id:3,pan:1000,tilt:4915,zoom:-1,focus:-1,pref:-1,name:Gate"},
      {"ptz.preset.position.1", "id:5,pan:20000,tilt:4915,zoom:-1,focus:-1,pref:-1,name:Yard"},
      {"ptz.preset.position.2", "id:7,pan:40000,tilt:6000,zoom:-1,focus:-1,pref:-1,name:Road"},
      {"ptz.patrol.set01", "3,5"}, {"ptz.patrol.time01", "20,20"}, {"ptz.patrol.speed01", "720,720"},
      {"ptz.schedule.enable", "on"},
  };
  for (const auto& s : kSettings) sim::bus_put(s[0], s[1]);
  for (const char* day : {"mon", "tue", "wed", "thu", "fri", "sat", "sun"}) {
    sim::bus_put((std::string("ptz.schedule.") + day).c_str(), "patrol:1,800,2000;go_preset:7,2000,2400;");
  }
  sim::bus_close();
  return pattern;
}

int main() {
  std::string state = MakeState();
  if (state.empty()) {
    printf("cannot make the state folder\n");
    return 1;
  }
  std::string command = std::string(SLEWSIM_PATH) + " --preview " + state +
                        " --hours 168 --from '2026-01-05 00:00:00' >/dev/null";
  for (int run = 1; run <= 3; run++) {
    Timing reference = TimeReferenceLoop();
    double wall = WallSeconds(), cpu = CpuSeconds(RUSAGE_CHILDREN);
    int status = system(command.c_str());
    wall = WallSeconds() - wall;
    cpu = CpuSeconds(RUSAGE_CHILDREN) - cpu;
    if (status != 0) printf("slewsim failed (status %d)\n", status);
    printf("run %d: a week's preview %.2f s wall, %.2f s CPU (target under 15 s); reference loop %.3f s CPU; "
           "%.1f reference loops\n", run, wall, cpu, reference.cpu, cpu / reference.cpu);
  }
  std::filesystem::remove_all(state);
  return 0;
}
