// Manual motion: wanted speeds become driver calls and lens words, each
// only when it changed.
#include "motion/manual.h"

#include <cstdlib>

#include "control/bus_text.h"
#include "control/control.h"
#include "mechanism/motor_setup.h"
#include "motion/limits.h"
#include "motion/positioning.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "platform/os.h"

int32_t giAppliedPan = 0, giAppliedTilt = 0, giAppliedZoom = 0;
int32_t giSentPan = 0, giSentTilt = 0, giSentZoom = 0;

static constexpr int kFlipWaits = 30;
static constexpr int32_t kHalfTurn = 0x8000;

static void CopyWantedToApplied() {
  giAppliedPan = giManualPan;
  giAppliedTilt = giManualTilt;
  giAppliedZoom = giManualZoom;
}

static void ClearWanted() {
  giManualPan = 0;
  giManualTilt = 0;
  giManualZoom = 0;
}

static void StopAxes() {
  PanContinuousMove(0, 0);
  TiltContinuousMove(0, 0);
}

// Magnitude of a speed for the driver; INT32_MIN cannot be negated, so it
// goes out as the largest speed.
static int32_t SpeedMagnitude(int32_t speed) { return speed == INT32_MIN ? INT32_MAX : abs(speed); }

// All wanted values 0 in run mode: stop everything and go idle.
static int32_t StopForZeroSpeed(int32_t newMode) {
  giAppliedPan = giAppliedTilt = 0;
  giSentPan = giSentTilt = 0;
  StopAxes();
  ClearWanted();
  giSentZoom = 0;
  kvlink_set("ptz.lens.manual.zoom", "stop");
  giNewMode = kModeIdle;
  giRunMode = kModeIdle;
  os_printf("Speed 0,Change mode to %d\n", newMode);
  return kModeIdle;
}

// Another mode is asked for: stop and go idle, keeping the request.
static int32_t LeaveManual(int32_t newMode) {
  giAppliedPan = giAppliedTilt = giAppliedZoom = 0;
  giSentPan = giSentTilt = giSentZoom = 0;
  StopAxes();
  kvlink_set("ptz.lens.manual.zoom", "stop");
  ClearWanted();
  os_printf("Change mode to %d\n", newMode);
  giRunMode = kModeIdle;
  return kModeIdle;
}

// Sends the pan, tilt and zoom that changed.
static void SendChanges() {
  if (giSentPan != giAppliedPan) {
    giSentPan = giAppliedPan;
    os_printf("Move Pan:%d\n", giSentPan);
    giSentPan > 0 ? PanContinuousMove(0, giSentPan) : PanContinuousMove(1, SpeedMagnitude(giSentPan));
  }
  if (giSentTilt != giAppliedTilt) {
    giSentTilt = giAppliedTilt;
    os_printf("Move Tilt:%d\n", giSentTilt);
    giSentTilt > 0 ? TiltContinuousMove(0, giSentTilt)
                   : TiltContinuousMove(1, SpeedMagnitude(giSentTilt));
  }
  if (giSentZoom != giAppliedZoom) {
    giSentZoom = giAppliedZoom;
    kvlink_set("ptz.lens.manual.zoom", giSentZoom > 0 ? "tele" : giSentZoom < 0 ? "wide" : "stop");
  }
}

// Waits up to 3 s for pan to stop, sleeping first.
static void WaitPanStop() {
  for (int wait = 0; wait < kFlipWaits; wait++) {
    os_usleep(100000);
    if (GetPanStatus() == 0) return;
  }
}

// Driven down against the lower tilt limit: turn pan by half a turn and
// send tilt back the other way.
static void AutoFlipIfAtLimit() {
  if (giAutoFlip != 1 || giSentTilt <= 0 || GetTiltStatus() != 0) return;
  int64_t limit = giTiltlimit, window = giFlipWindow, tilt = giTiltPos;
  if (tilt < limit - window || tilt >= limit + window) return;
  os_printf("################### AutoFlip giTiltlimit:%d giTiltPos:%d\n", (int)limit, (int)tilt);
  PanContinuousMove(0, 0);
  WaitPanStop();
  int pan = 0;
  GetPanPos(&pan);
  GoPreset((pan + kHalfTurn) & 0xffff, -1, -1, -1, -1, 720);
  WaitPanStop();
  giManualTilt = Wrap32(-(int64_t)giManualTilt);  // -INT32_MIN wraps, as on the camera
  giSentPan = 0;
}

int32_t ManualMove(int32_t newMode) {
  ApplyPanLimit(0);
  if (newMode == giRunMode) {
    CopyWantedToApplied();
    if (giManualPan == 0 && giManualTilt == 0 && giManualZoom == 0) return StopForZeroSpeed(newMode);
    if (newMode == kModeIdle) StopAxes();
  } else {
    ApplyPanGains();
    if (newMode != kModeManual) return LeaveManual(newMode);
    CopyWantedToApplied();
  }
  SendChanges();
  AutoFlipIfAtLimit();
  return giRunMode;
}
