// Virtual speed of the whole daemon in virtual time, through slewsim: an
// idle hour, a moving hour (manual:100,0,0 held) and a busy hour of mixed
// commands, each in virtual seconds per second, of wall time and of CPU time
// (the CPU time is what a loaded machine leaves meaningful), against the
// reference loop timed the same two ways in the same run.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "slewd_process.h"

namespace {

constexpr double kHour = 3600;

// Settings every hour starts from, then the bring-up.
const char* const kPreamble =
    "bus ptz.system.max_speed 720\n"
    "bus ptz.manual.pan_speed 90\n"
    "bus ptz.manual.tilt_speed 90\n"
    "await out in loop 120\n";

// The commands of the busy hour, one every 5 s in turn.
const char* const kBusyCommands[] = {
    "manual:100,0,0", "stop", "abs:30000,5000,4000", "manual:-50,30,0", "stop",
    "relative:1000,-500", "go_preset:1", "manual:0,0,1", "stop", "abs:100,100,0",
    "set_preset:1",
};

// Writes one scenario file; its path, or empty.
std::string WriteScenario(const char* name, const std::string& body) {
  std::string path = std::string("/tmp/slewd_virtual_") + name + ".scn";
  FILE* f = fopen(path.c_str(), "w");
  if (f == nullptr) return "";
  fputs(kPreamble, f);
  fputs(body.c_str(), f);
  fclose(f);
  return path;
}

// The busy hour: a command every 5 s for an hour.
std::string BusyBody() {
  std::string body;
  size_t n = sizeof kBusyCommands / sizeof kBusyCommands[0];
  for (int i = 0; i < kHour / 5; i++) {
    body += std::string("bus ptz.run_mode ") + kBusyCommands[i % n] + "\nwait 5\n";
  }
  return body;
}

// One run of the scenario by the slewsim at slewsim; a wall time of -1 when
// it failed.
Timing TimeScenario(const std::string& slewsim, const std::string& path) {
  std::string command = slewsim + " " + path + " >/dev/null";
  double start = WallSeconds(), cpu = CpuSeconds(RUSAGE_CHILDREN);
  int status = system(command.c_str());
  Timing t{WallSeconds() - start, CpuSeconds(RUSAGE_CHILDREN) - cpu};
  if (status != 0) t.wall = -1;
  return t;
}

// Medians of the wall and CPU times of several runs.
Timing Median(const std::vector<Timing>& runs) {
  std::vector<double> wall, cpu;
  for (const Timing& t : runs) {
    wall.push_back(t.wall);
    cpu.push_back(t.cpu);
  }
  return {Quantile(wall, 0.5), Quantile(cpu, 0.5)};
}

}  // namespace

int main(int argc, char** argv) {
  int runs = argc > 1 ? atoi(argv[1]) : 3;
  std::string slewsim = argc > 2 ? argv[2] : SLEWSIM_PATH;  // another build's, to compare
  if (runs <= 0 || argc > 3) {
    fprintf(stderr, "usage: virtual_speed_bench [RUNS [SLEWSIM]]\n");
    return 2;
  }
  struct Hour {
    const char* name;
    std::string body;
  } hours[] = {
      {"idle", "wait 3600\n"},
      {"moving", "bus ptz.run_mode manual:100,0,0\nwait 3600\n"},
      {"busy", BusyBody()},
  };
  std::vector<Timing> reference;
  for (int r = 0; r < runs; r++) reference.push_back(TimeReferenceLoop());
  Timing ref = Median(reference);
  printf("reference loop: %.3f s wall, %.3f s CPU (median of %d)\n", ref.wall, ref.cpu, runs);
  for (const Hour& hour : hours) {
    std::string path = WriteScenario(hour.name, hour.body);
    std::vector<Timing> times;
    for (int r = 0; r < runs; r++) {
      times.push_back(TimeScenario(slewsim, path));
      if (times.back().wall < 0) {
        fprintf(stderr, "virtual_speed_bench: the %s hour failed\n", hour.name);
        return 1;
      }
    }
    remove(path.c_str());
    Timing t = Median(times);
    printf("%-6s hour: wall %.3f s, %.0f x real time, %.0f virtual s per reference loop; "
           "CPU %.3f s, %.0f x, %.0f per reference loop\n",
           hour.name, t.wall, kHour / t.wall, kHour / t.wall * ref.wall, t.cpu, kHour / t.cpu,
           kHour / t.cpu * ref.cpu);
  }
  return 0;
}
