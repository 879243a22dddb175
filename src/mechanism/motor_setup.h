// Motor controller registers by camera model, and the pan gain sets.
#pragma once

#include <cstdint>

extern int32_t giStaticP;   // pan gains in force
extern int32_t giStaticI;
extern int32_t giStaticD;

// Writes the model's registers and hands the driver its tuning record.
void InitMoterRegister();
