// The fixed CPU reference every speed benchmark reports against: 100 million
// rounds of a xorshift generator, timed in the same run as the figure. A
// figure times the loop's time (work per reference loop) compares across
// machines and loads where the figure alone does not.
#pragma once

#include <sys/resource.h>
#include <time.h>

#include <cstdint>

// Wall and CPU seconds of one run of something.
struct Timing {
  double wall = 0;
  double cpu = 0;
};

// CPU seconds used so far by this process (RUSAGE_SELF) or its ended
// children (RUSAGE_CHILDREN).
inline double CpuSeconds(int who) {
  rusage u{};
  getrusage(who, &u);
  return u.ru_utime.tv_sec + u.ru_utime.tv_usec / 1e6 + u.ru_stime.tv_sec + u.ru_stime.tv_usec / 1e6;
}

// Wall-clock seconds of the host's monotonic clock.
inline double WallSeconds() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec + ts.tv_nsec / 1e9;
}

// Runs the reference loop once.
inline Timing TimeReferenceLoop() {
  double wall = WallSeconds(), cpu = CpuSeconds(RUSAGE_SELF);
  volatile uint64_t sink = 0;
  uint64_t x = 88172645463325252ULL;
  for (int i = 0; i < 100 * 1000 * 1000; i++) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
  }
  sink = x;
  (void)sink;
  return {WallSeconds() - wall, CpuSeconds(RUSAGE_SELF) - cpu};
}
