// Command-to-motion latency in real time: from `slewctl set ptz.run_mode
// manual:50,0,0` to the first PanContinuousMove in slewd's transcript,
// median and worst of 100 tries. Includes starting slewctl itself.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "slewd_process.h"

namespace {

using Clock = std::chrono::steady_clock;

std::string g_folder;
long g_offset = 0;  // how far the transcript has been read

// Reads the transcript from where the last call stopped; true once a new
// line holds text. Gives up after 10 s.
bool AwaitTranscript(const char* text) {
  auto start = Clock::now();
  std::string pending;
  while (Clock::now() - start < std::chrono::seconds(10)) {
    FILE* f = fopen((g_folder + "/transcript.log").c_str(), "r");
    if (f != nullptr) {
      fseek(f, g_offset, SEEK_SET);
      char buf[4096];
      size_t n;
      while ((n = fread(buf, 1, sizeof buf, f)) > 0) {
        pending.append(buf, n);
        g_offset += (long)n;
      }
      fclose(f);
      if (pending.find(text) != std::string::npos) return true;
    }
    usleep(200);
  }
  return false;
}

// Runs slewctl with the state folder of the benchmark.
void Slewctl(const char* key, const char* value) {
  pid_t pid = fork();
  if (pid == 0) {
    setenv("SLEWD_STATE", g_folder.c_str(), 1);
    execl(SLEWCTL_PATH, "slewctl", "set", key, value, (char*)nullptr);
    _exit(127);
  }
  waitpid(pid, nullptr, 0);
}

}  // namespace

int main(int argc, char** argv) {
  int tries = argc > 1 ? atoi(argv[1]) : 100;
  char folder[] = "/tmp/slewd-latency-XXXXXX";
  if (mkdtemp(folder) == nullptr) return 1;
  g_folder = folder;
  pid_t daemon = StartSlewd(folder);
  if (!AwaitTranscript("out in loop")) {
    fprintf(stderr, "slewd did not come up\n");
    return 1;
  }
  std::vector<double> ms;
  for (int i = 0; i < tries; i++) {
    auto start = Clock::now();
    Slewctl("ptz.run_mode", "manual:50,0,0");
    if (!AwaitTranscript("call PanContinuousMove(0,450)")) break;
    ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    Slewctl("ptz.run_mode", "stop");
    AwaitTranscript("call PanContinuousMove(0,0)");
  }
  StopSlewd(daemon, folder);
  if (ms.empty()) return 1;
  std::sort(ms.begin(), ms.end());
  printf("command to motion: median %.1f ms, worst %.1f ms, best %.1f ms (%zu tries)\n",
         ms[ms.size() / 2], ms.back(), ms.front(), ms.size());
  return 0;
}
