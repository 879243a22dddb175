// A patrol of three presets for 24 virtual hours through slewsim: wall time
// and the number of visits, against the visits the dwell times predict and
// against 24 idle hours (the floor: the same daemon doing nothing).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

static constexpr int kDayS = 24 * 3600;
static constexpr int kDwells[3] = {20, 10, 10};  // time list "20" with the default 10

// Writes a scenario: presets 3, 5, 7, then either a patrol or nothing for a day.
static bool WriteScenario(const char* path, bool patrol) {
  FILE* f = fopen(path, "w");
  if (f == nullptr) return false;
  fputs("bus ptz.system.max_speed 720\n"
        "bus ptz.system.recover_time off\n"
        "bus ptz.preset.position.0 id:3,pan:1000,tilt:4915,zoom:-1,focus:-1,pref:-1,name:Gate\n"
        "bus ptz.preset.position.1 id:5,pan:20000,tilt:4915,zoom:-1,focus:-1,pref:-1,name:Yard\n"
        "bus ptz.preset.position.2 id:7,pan:40000,tilt:6000,zoom:-1,focus:-1,pref:-1,name:Road\n"
        "bus ptz.patrol.set01 3,5,7\n"
        "bus ptz.patrol.time01 20\n"
        "bus ptz.patrol.speed01 720,720,720\n"
        "await out in loop 120\n", f);
  if (patrol) fputs("bus ptz.run_mode patrol:1\n", f);
  fprintf(f, "wait %d\n", kDayS);
  fclose(f);
  return true;
}

// Runs slewsim on the scenario; returns wall seconds, or -1 when it failed.
static double RunTimed(const char* scenario, const char* transcript) {
  std::string command = std::string(SLEWSIM_PATH) + " --transcript " + transcript + " " +
                        scenario + " >/dev/null";
  auto start = std::chrono::steady_clock::now();
  int status = system(command.c_str());
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return status == 0 ? seconds : -1;
}

// Lines of the transcript that contain text.
static long CountLines(const char* path, const char* text) {
  FILE* f = fopen(path, "r");
  if (f == nullptr) return -1;
  long n = 0;
  char line[512];
  while (fgets(line, sizeof line, f) != nullptr) {
    if (strstr(line, text) != nullptr) n++;
  }
  fclose(f);
  return n;
}

int main() {
  const char* scenario = "/tmp/slewd_patrol_day.scn";
  const char* transcript = "/tmp/slewd_patrol_day.txt";
  if (!WriteScenario(scenario, false)) return 1;
  double idle = RunTimed(scenario, transcript);
  if (!WriteScenario(scenario, true)) return 1;
  double patrol = RunTimed(scenario, transcript);
  long visits = CountLines(transcript, " StopTime:");
  remove(scenario);
  remove(transcript);
  if (idle < 0 || patrol < 0 || visits < 0) {
    fprintf(stderr, "slewsim failed\n");
    return 1;
  }
  int round = kDwells[0] + kDwells[1] + kDwells[2];
  printf("24 virtual hours idle (floor):  %.3f s wall\n", idle);
  printf("24 virtual hours of patrol:     %.3f s wall\n", patrol);
  printf("visits: %ld; the dwells alone (%d s a round of 3) predict %d\n", visits, round,
         kDayS / round * 3);
  printf("a visit every %.2f s, against %.2f s of dwell\n", (double)kDayS / visits,
         round / 3.0);
  return 0;
}
