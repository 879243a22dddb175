// Scans: continuous pan between limits.
#pragma once

#include <cstdint>

// Starts, runs or stops a scan; returns 5 while it runs, 0 when stopped.
int32_t RunScan(int32_t runMode, int32_t newMode);
