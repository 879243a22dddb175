// Manual motion at commanded speeds, with auto flip at the lower tilt limit.
#pragma once

#include <cstdint>

// The applied and sent stages; the wanted stage is giManualPan/Tilt/Zoom.
extern int32_t giAppliedPan, giAppliedTilt, giAppliedZoom;
extern int32_t giSentPan, giSentTilt, giSentZoom;

// One pass of manual motion; returns the next run mode.
int32_t ManualMove(int32_t newMode);
