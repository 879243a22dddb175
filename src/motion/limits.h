// Soft limits of tilt and pan.
#pragma once

#include <cstdint>

// Reads the tilt limit keys and hands them to the driver.
void ApplyTiltLimit();
// Applies the pan limit of the present run mode; -1: no pan limit owner
// given (the loop and the limit listeners).
void ApplyPanLimit(int32_t owner);
// limit:<name>: stores the present pan in the named limit key.
void SetLimitHere(const char* name);
