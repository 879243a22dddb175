// The main loop: one tick selects the work of the run mode, then publishes
// the position and sleeps 10 ms.
#pragma once

#include <cstdint>

#include "supervisor/health.h"

// The loop's own state, kept between ticks so that tests can drive the loop
// one tick at a time.
struct LoopLocals {
  int32_t now_s;            // whole seconds of the raw monotonic clock
  int32_t now_ms;           // millisecond part of the same reading
  int32_t iIdleTick;        // ticks since a moving branch last ran
  int32_t iStopRetry;       // idle ticks with an axis still moving
  int32_t iHealthTick;      // ticks since the last health pass
  int32_t iPatternOpen;     // a pattern started by branch pattern is open
  int32_t iLastRecoverTime; // giRecoverTime last seen
  int32_t iScheduleMode;    // latest CheckSchedule result
  int32_t iScheduleOldMode; // the last one applied
  HealthState health;
};

extern LoopLocals gLoop;
extern int32_t giRecordShown;  // seconds of recording last published

// One pass of the loop.
void LoopTick(LoopLocals* loop);
