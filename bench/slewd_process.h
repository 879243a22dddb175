// Helpers of the benchmarks that measure a real-time slewd from outside:
// starting and stopping it, the CPU time of a process, and medians.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "reference_loop.h"

// Starts slewd on state, its console discarded; returns its pid.
inline pid_t StartSlewd(const char* state) {
  fflush(nullptr);  // or the child would print what is buffered once more
  pid_t pid = fork();
  if (pid == 0) {
    setenv("SLEWD_STATE", state, 1);
    if (freopen("/dev/null", "w", stdout) == nullptr) _exit(127);
    execl(SLEWD_PATH, "slewd", (char*)nullptr);
    _exit(127);
  }
  return pid;
}

// Ends slewd with SIGTERM and removes its state folder.
inline void StopSlewd(pid_t pid, const char* state) {
  kill(pid, SIGTERM);
  waitpid(pid, nullptr, 0);
  std::string cleanup = std::string("rm -rf ") + state;
  if (system(cleanup.c_str()) != 0) fprintf(stderr, "could not remove %s\n", state);
}

// CPU time of a whole process (all its threads) in seconds; -1 when gone.
inline double ProcessCpuSeconds(pid_t pid) {
  clockid_t clock;
  timespec ts;
  if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &ts) != 0) return -1;
  return ts.tv_sec + ts.tv_nsec / 1e9;
}

// The value at fraction q (0..1) of the sorted values: 0.5 the median.
inline double Quantile(std::vector<double> values, double q) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  size_t i = static_cast<size_t>(q * (values.size() - 1) + 0.5);
  return values[std::min(i, values.size() - 1)];
}

// Prints the median and p99 of a series of latencies, with its name.
inline void ReportLatency(const char* name, const std::vector<double>& ms) {
  printf("%s: median %.2f ms, p99 %.2f ms, best %.2f ms (%zu tries)\n", name, Quantile(ms, 0.5),
         Quantile(ms, 0.99), Quantile(ms, 0), ms.size());
}

// The count of tries the first argument asks for (fallback without one);
// 0, with the usage printed, when it is not a positive number.
inline int TriesArgument(int argc, char** argv, int fallback, const char* program) {
  int tries = argc > 1 ? atoi(argv[1]) : fallback;
  if (tries <= 0) fprintf(stderr, "usage: %s [TRIES]\n", program);
  return tries > 0 ? tries : 0;
}

// A fresh folder under /tmp for one slewd; empty when none could be made.
inline std::string MakeStateFolder() {
  char folder[] = "/tmp/slewd-bench-XXXXXX";
  return mkdtemp(folder) != nullptr ? folder : "";
}

// Reads a whole file; empty when it cannot be read.
inline std::string ReadFile(const std::string& path) {
  std::string text;
  FILE* f = fopen(path.c_str(), "r");
  if (f == nullptr) return text;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
  fclose(f);
  return text;
}
