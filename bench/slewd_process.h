// Starting and stopping a real-time slewd on a state folder of its own, for
// the benchmarks that measure it from outside.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

// Starts slewd on state, its console discarded; returns its pid.
inline pid_t StartSlewd(const char* state) {
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
