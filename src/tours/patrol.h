// Patrols: tours of presets with dwell times.
#pragma once

#include <cstdint>

extern int32_t giPatrolPreset;  // preset of the stop in progress

// Reads the patrol lists from the bus.
void LoadPatrol();
// One tick of a patrol; returns 3 while it runs, newMode when asked to leave.
int32_t RunPatrol(int32_t newMode, int32_t now);
