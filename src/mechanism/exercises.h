// Exercises of the head: the dry profile, the stabiliser test and the
// speed-dry run. All of them block the main loop while they work.
#pragma once

#include <cstdint>

extern int32_t giOisTestOn;      // 1 while the stabiliser test shakes the head
extern int32_t giOisTestPanDir;  // direction each axis runs in now
extern int32_t giOisTestTiltDir;

// 1: the pan controller takes the speed-dry profile; else both controllers
// get the model's normal profile back.
void SetDryProfile(int32_t profile);
// Pan gains P, I, D as three shell lines to the pan controller's registers
// 0x0c, 0x0e and 0x10.
void PanGainLines(uint32_t p, uint32_t i, uint32_t d);
// Starts, runs or stops the stabiliser test; 11 while it runs, else 0.
int32_t RunOisTest(int32_t runMode, int32_t newMode);
// The speed-dry exercise; always 0.
int32_t SpeedDry();
