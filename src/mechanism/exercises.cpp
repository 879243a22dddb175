// Exercises. Until they land, the stabiliser test holds the head still in
// its mode and the speed-dry run ends at once.
#include "mechanism/exercises.h"

#include "control/control.h"

int32_t RunOisTest(int32_t, int32_t newMode) {
  return newMode == kModeOisTest ? kModeOisTest : kModeIdle;
}

void SpeedDry() {}
