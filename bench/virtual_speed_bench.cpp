// Virtual speed of the whole daemon in virtual time, through slewsim: an
// idle hour, a moving hour (manual:100,0,0 held) and a busy hour of mixed
// commands, each in virtual seconds per wall second. The reference is a
// fixed CPU loop timed in the same run: speed times the loop's time is
// what compares across machines.
#include <cstdint>
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

// Wall seconds of one slewsim run of the scenario; -1 when it failed.
double TimeScenario(const std::string& path) {
  std::string command = std::string(SLEWSIM_PATH) + " " + path + " >/dev/null";
  double start = MonotonicSeconds();
  int status = system(command.c_str());
  double seconds = MonotonicSeconds() - start;
  return status == 0 ? seconds : -1;
}

// The reference: a fixed amount of integer work, in wall seconds.
double TimeReferenceLoop() {
  double start = MonotonicSeconds();
  volatile uint64_t sink = 0;
  uint64_t x = 88172645463325252ULL;
  for (int i = 0; i < 300 * 1000 * 1000; i++) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
  }
  sink = x;
  (void)sink;
  return MonotonicSeconds() - start;
}

}  // namespace

int main(int argc, char** argv) {
  int runs = argc > 1 ? atoi(argv[1]) : 3;
  if (runs <= 0) {
    fprintf(stderr, "usage: virtual_speed_bench [RUNS]\n");
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
  std::vector<double> reference;
  for (int r = 0; r < runs; r++) reference.push_back(TimeReferenceLoop());
  double ref = Quantile(reference, 0.5);
  printf("reference loop: %.3f s (median of %d)\n", ref, runs);
  for (const Hour& hour : hours) {
    std::string path = WriteScenario(hour.name, hour.body);
    std::vector<double> wall;
    for (int r = 0; r < runs; r++) {
      double s = TimeScenario(path);
      if (s < 0) {
        fprintf(stderr, "virtual_speed_bench: the %s hour failed\n", hour.name);
        return 1;
      }
      wall.push_back(s);
    }
    remove(path.c_str());
    double seconds = Quantile(wall, 0.5);
    double speed = kHour / seconds;
    printf("%-6s hour: %.3f s, %.0f x real time; %.0f virtual s per reference loop\n", hour.name,
           seconds, speed, speed * ref);
  }
  return 0;
}
