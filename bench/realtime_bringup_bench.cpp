// How steady the real-time bring-up is: starts slewd on a fresh state
// folder N times (default 10) and reads the transcript stamp of "in loop"
// (seconds since the daemon started). The spread, longest minus shortest,
// is the figure; with exact physics at every library call it stays within
// a few ms, where a world stepped every 10 ms made it jump by a whole second.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "slewd_process.h"

namespace {

// Waits for "out in loop" in the transcript; its stamp in s, or -1.
double BringUpSeconds(const std::string& folder) {
  for (int wait = 0; wait < 600; wait++) {  // 60 s at most
    std::string text = ReadFile(folder + "/transcript.log");
    size_t at = text.find(" out in loop\n");
    if (at != std::string::npos) {
      size_t line = text.rfind('\n', at);
      return atof(text.c_str() + (line == std::string::npos ? 0 : line + 1));
    }
    usleep(100 * 1000);
  }
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  int runs = argc > 1 ? atoi(argv[1]) : 10;
  if (runs <= 0) {
    fprintf(stderr, "usage: realtime_bringup_bench [RUNS]\n");
    return 2;
  }
  std::vector<double> seconds;
  for (int r = 1; r <= runs; r++) {
    std::string folder = MakeStateFolder();
    if (folder.empty()) return 1;
    pid_t daemon = StartSlewd(folder.c_str());
    double s = BringUpSeconds(folder);
    StopSlewd(daemon, folder.c_str());
    if (s < 0) {
      fprintf(stderr, "realtime_bringup_bench: run %d did not come up\n", r);
      return 1;
    }
    printf("run %d: in loop at %.3f s\n", r, s);
    seconds.push_back(s);
  }
  double spread = Quantile(seconds, 1) - Quantile(seconds, 0);
  printf("bring-up: shortest %.3f s, longest %.3f s, spread %.0f ms over %d runs\n",
         Quantile(seconds, 0), Quantile(seconds, 1), spread * 1000, runs);
  return 0;
}
