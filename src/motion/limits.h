// Soft limits: which limits the motor driver holds.
#pragma once

#include <atomic>
#include <cstdint>

extern std::atomic<int32_t> giTiltlimit;  // lower tilt limit in steps
extern int32_t giPanLimitOwner;           // -1 none, 0 manual, 1..4 scan; under the mutex

// Tilt steps of a whole-degree angle: (angle + 27) * 65535 / 360.
int32_t TiltAngleToSteps(int32_t angle);
// Reads both tilt limit keys and hands them to the driver.
void ApplyTiltLimit();
// Brings the pan limit set of owner into force (-1: none).
void ApplyPanLimit(int32_t owner);
// limit:<name>: stores the present pan in the named limit key.
void SetLimitHere(const char* name);
