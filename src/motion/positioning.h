// Moves to a position: presets, absolute and relative targets, tracking.
#pragma once

#include <cstdint>

extern int32_t giFreezeOn;     // GoPreset froze the picture
extern int32_t giEisRtEnable;  // what we last made of encode.cam1.eis.rt_enable
extern int32_t giEisRtStart;   // us stamp of the last move while EIS is on

// Blocks until axes and lens have stopped; -1 leaves an axis. Returns 0.
int32_t GoPreset(int32_t pan, int32_t tilt, int32_t zoom, int32_t focus, int32_t prefocus,
                 int32_t speed);
int32_t GoTrackPosition(int32_t pan, int32_t tilt, int32_t zoom, int32_t focus, int32_t speed);
// Gives the lens type to the camera state once, when it is unset.
void SyncLensType();
void SetLensZoom(int32_t position);
void SetLensFocus(int32_t position);
