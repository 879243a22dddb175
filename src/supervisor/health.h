// Head health: the stabiliser switch after fast moves, and the revival of a
// motor controller that has gone to sleep.
#pragma once

#include <cstdint>

// Counters of the health pass, kept by the loop.
struct HealthState {
  int32_t iPanSleepLogged;
  int32_t iTiltSleepLogged;
  int32_t iMotorResets;
};

// Tick step 11: puts the real-time stabiliser back on 1.8 s after a move.
void EisRtTimer();
// Tick step 12: looks for a sleeping controller and revives it.
void HealthPass(HealthState* health);
