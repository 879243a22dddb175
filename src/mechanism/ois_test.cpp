// The stabiliser test: the head shakes at full driver speed inside a window
// of 68 steps on each axis until another mode is asked for.
#include "control/control.h"
#include "mechanism/exercises.h"
#include "motion/limits.h"
#include "motion/positioning.h"
#include "platform/camstate.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "platform/os.h"

int32_t giOisTestOn = 0;
int32_t giOisTestPanDir = 0;
int32_t giOisTestTiltDir = 0;

static constexpr int kShakeSpeed = 7200;
static constexpr int32_t kShakeSpan = 68;
static constexpr int kFocusLooks = 50;

// Runs a one-shot focus and waits up to 5 s for the lens to settle.
static void FocusOnce() {
  kvlink_set("ptz.lens.one_push", "run");
  for (int look = 0; look < kFocusLooks; look++) {
    os_usleep(100000);
    int status = 0;
    GetLensStatus(&status);
    if (status == 0) break;
  }
}

// Stops whichever axis still moves, giving each time to stand.
static void StopMovingAxes() {
  if (GetPanStatus() != 0) {
    PanContinuousMove(0, 0);
    os_usleep(500000);
  }
  if (GetTiltStatus() != 0) {
    TiltContinuousMove(0, 0);
    os_usleep(500000);
  }
}

// To the saved position, focus, stabiliser under test, the two windows as
// limits, and both axes off towards the high side of their window. The pan
// window starts one step above the saved position and is not wrapped.
static int32_t OisTestStart() {
  GoPreset(giOisPan, giOisTilt, 0, -1, -1, 720);
  os_usleep(1000000);
  FocusOnce();
  kvlink_set("encode.cam1.ois.enable", "test1");
  StopMovingAxes();
  os_usleep(1000000);
  int32_t pan = giOisPan, tilt = giOisTilt;
  PanLimitEn(0);
  PanLimitSet(pan + 1, pan + 1 + kShakeSpan);
  PanLimitEn(1);
  TiltLimitEn(0);
  TiltLimit(tilt, tilt + kShakeSpan);
  TiltLimitEn(1);
  PanContinuousMove(0, kShakeSpeed);
  TiltContinuousMove(0, kShakeSpeed);
  os_usleep(30000);
  giOisTestOn = 1;
  return kModeOisTest;
}

// Stops both axes, frees them of the windows and gives the tilt its limit.
static int32_t OisTestEnd() {
  giOisTestOn = 0;
  PanContinuousMove(0, 0);
  TiltContinuousMove(0, 0);
  PanLimitEn(0);
  TiltLimitEn(0);
  ApplyTiltLimit();
  return kModeIdle;
}

// Sends back each axis that has stopped at a side of its window.
static void OisTestShake() {
  if (GetPanStatus() == 0) {
    giOisTestPanDir = giOisTestPanDir == 0 ? 1 : 0;
    PanContinuousMove(giOisTestPanDir, kShakeSpeed);
    os_usleep(30000);
  }
  if (GetTiltStatus() == 0) {
    giOisTestTiltDir = giOisTestTiltDir == 0 ? 1 : 0;
    TiltContinuousMove(giOisTestTiltDir, kShakeSpeed);
    os_usleep(30000);
  }
}

int32_t RunOisTest(int32_t runMode, int32_t newMode) {
  if (runMode != newMode) return newMode == kModeOisTest ? OisTestStart() : OisTestEnd();
  if (giOisTestOn == 1) OisTestShake();
  return runMode;
}
