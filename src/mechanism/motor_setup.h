// Motor controller registers by camera model, and the pan gain sets.
#pragma once

#include <cstdint>

extern int32_t giModelRow;  // row of this camera in the model tables
extern int32_t giModelP;    // pan gains of the model
extern int32_t giModelI;
extern int32_t giModelD;
extern int32_t giStaticP;   // pan gains in force
extern int32_t giStaticI;
extern int32_t giStaticD;
extern int32_t giFlipWindow;  // half width of the auto flip window

// Puts the model's pan gains in force when they differ, then the ptz.PID
// override on top.
void ApplyPanGains();
// Writes the model's registers and hands the driver its tuning record.
void InitMoterRegister();
// Waits up to 20 s for each controller to calibrate, pan first.
void WaitMotorCalibration();
// The normal profile: row `row` of the type-2 table to pan, then to tilt.
void WriteModelRegisters(int32_t row);
