// Exercises of the head: the stabiliser test and the speed-dry run.
#pragma once

#include <cstdint>

// Starts, runs or stops the stabiliser test; 11 while it runs, else 0.
int32_t RunOisTest(int32_t runMode, int32_t newMode);
// The speed-dry exercise, blocking.
void SpeedDry();
