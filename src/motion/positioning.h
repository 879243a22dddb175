// Moves to a position: presets, absolute and relative targets, tracking.
#pragma once

#include <cstdint>

extern int32_t giFreezeOn;     // GoPreset froze the picture; idle releases it
extern int32_t giEisRtEnable;  // what we last made of encode.cam1.eis.rt_enable
extern int32_t giEisRtStart;   // us stamp of the last move while EIS is on

constexpr int32_t kTiltTargetMax = 37681;  // last tilt step below 180 degrees
constexpr int32_t kMoveWaitLimitTicks = 12000;  // 120 s of 10 ms waits

// Microseconds of the raw monotonic clock, in 32 bits with wrap-around.
int32_t MicrosecondStamp();
// Blocks until axes and lens have stopped; -1 leaves an axis. Returns 0.
int32_t GoPreset(int32_t pan, int32_t tilt, int32_t zoom, int32_t focus, int32_t prefocus,
                 int32_t speed);
// The lean move of tracking: no freeze, EIS, limit steps, prefocus or name.
int32_t GoTrackPosition(int32_t pan, int32_t tilt, int32_t zoom, int32_t focus, int32_t speed);
// Driver units of a speed (ten times), wrapped to 32 bits.
int32_t DriverSpeed(int32_t speed);
// Direction of the shorter way from `from` to `to` (0 up, 1 down), or -1
// when the pan is there already (65535 steps away counts as there).
int32_t PanMoveDirection(int32_t from, int32_t to);
// Reads the infra-red power limit into saved (kBusValueSize bytes) and holds
// it at 70 while the head moves fast, when it was above `above`; returns
// the limit read.
int32_t HoldIrLimit(char* saved, int32_t above);
// Puts back the limit that HoldIrLimit held.
void RestoreIrLimit(const char* saved, int32_t limit, int32_t above);
// Gives the lens type to the camera state once, when it is unset.
void SyncLensType();
void SetLensZoom(int32_t position);
void SetLensFocus(int32_t position);
// Suspends (0) or resumes (1) the optical stabiliser when it is enabled.
int PauseOis(int flag);
