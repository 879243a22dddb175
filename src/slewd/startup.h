// Process entry and head bring-up.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "control/control.h"

extern Shared giExitFlag;           // set by OnSignal; the loop runs while 0
extern int32_t giBrandMatch;        // system.info.manufacturer is "ORVEX"
extern int32_t giSpdDryMode;        // speed-dry variant 0..3
extern int32_t giIavFd;             // /dev/iav, held open
extern pthread_mutex_t gPanLimitMutex;  // the one lock: ApplyPanLimit
extern float gfSensorH;             // lens geometry, read once at start
extern float gfSensorW;
extern float gfBaseFocalLength;
extern float gfMaxFocalLength;

// Handler of SIGINT, SIGQUIT and SIGTERM: stops the tracker, exits 1.
void OnSignal(int signo);
void LoadLensGeometry();
void LoadAllPresets();
// 0 when both axes are calibrated, -1 after 80 waits.
int WaitMotorInit();
// 1 when ptz.system.power_up held a command and it was published.
int RunPowerUpAction();
// The first half of main_loop: bring-up to "in loop". False when the
// bring-up failed and the process is to end.
bool BringUpHead();
// Chooses the first run mode: power-up action, schedule, recover mode.
void ChooseFirstRunMode();
// The whole main loop: bring-up, then ticks until giExitFlag.
int main_loop();
