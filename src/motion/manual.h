// Manual motion at commanded speeds, with auto flip.
#pragma once

#include <cstdint>

// One tick of manual motion; returns the next run mode.
int32_t ManualMove(int32_t newMode);
