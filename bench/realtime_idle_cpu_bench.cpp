// CPU share of an idle slewd in real time: start it on a fresh state folder,
// let the bring-up finish, then read its CPU time over 30 s from /proc.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "slewd_process.h"

namespace {

// utime + stime of a process, in clock ticks.
long CpuTicks(pid_t pid) {
  std::string path = "/proc/" + std::to_string(pid) + "/stat";
  FILE* f = fopen(path.c_str(), "r");
  if (f == nullptr) return -1;
  char buf[1024];
  size_t n = fread(buf, 1, sizeof buf - 1, f);
  fclose(f);
  buf[n] = '\0';
  const char* p = strrchr(buf, ')');  // fields after the command name
  long utime = 0, stime = 0;
  if (p == nullptr || sscanf(p + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &utime, &stime) != 2) return -1;
  return utime + stime;
}

}  // namespace

int main(int argc, char** argv) {
  int seconds = argc > 1 ? atoi(argv[1]) : 30;
  char folder[] = "/tmp/slewd-bench-XXXXXX";
  if (mkdtemp(folder) == nullptr) return 1;
  pid_t pid = StartSlewd(folder);
  sleep(10);  // bring-up: calibration, levelling, lens
  long before = CpuTicks(pid);
  sleep(seconds);
  long after = CpuTicks(pid);
  StopSlewd(pid, folder);
  if (before < 0 || after < 0) return 1;
  double cpu = (double)(after - before) / sysconf(_SC_CLK_TCK);
  printf("idle slewd: %.3f s of CPU in %d s, %.2f%% of one core\n", cpu, seconds, 100.0 * cpu / seconds);
  return 0;
}
