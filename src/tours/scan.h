// Scans: continuous pan between limits, at a fixed tilt and zoom.
#pragma once

#include <cstdint>

extern int32_t giScanLastId;      // scan number RunScan acted on last, -1 none
extern int32_t giScanDir;         // present pan direction
extern int32_t giScanSpeed;       // speed units
extern int32_t giScanTilt;        // tilt target: degrees, then steps
extern int32_t giScanAutoFocus;   // 1 auto focus, 0 fixed
extern int32_t giScanLimit;       // 1 when the scan's pan limits are on
extern int32_t giScanZoom;        // zoom position
extern int32_t giScanOisPaused;   // the tick part has paused the stabiliser

// Readers of the keys of scan id (each reads its key afresh).
// Pan direction for PanContinuousMove: "left" is 0, mirrored by image.cam1.mirror.
int32_t ScanDirection(int32_t id);
int32_t ScanSpeed(int32_t id);
int32_t ScanTiltAngle(int32_t id);
int32_t ScanLimitOn(int32_t id);
int32_t ScanZoomPosition(int32_t id);
// GetFocus (0 fixed, 1 auto) is exported for the closed libraries: platform/exports.h.

// Starts, runs or stops a scan; returns 5 while it runs, 0 when stopped,
// and runMode unchanged on a call that finds nothing to do.
int32_t RunScan(int32_t runMode, int32_t newMode);
// Waits for tilt to stop, 3.3 s at most.
void WaitTiltStop();
