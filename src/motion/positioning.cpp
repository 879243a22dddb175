// Positioning: GoPreset and GoTrackPosition, and the lens wrappers.
#include "motion/positioning.h"

#include <cstdio>
#include <ctime>

#include "control/bus_text.h"
#include "control/control.h"
#include "control/publish.h"
#include "platform/camstate.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "tours/patrol.h"
#include "tours/presets.h"

int32_t giFreezeOn = 0;
int32_t giEisRtEnable = 1;
int32_t giEisRtStart = 0;

static constexpr int32_t kIrLimitHold = 70;
static constexpr int32_t kTopSpeed = 720;
static constexpr int32_t kEisFastSpeed = 135;
static constexpr int kLensMoving = 2;

int32_t DriverSpeed(int32_t speed) { return (int32_t)(uint32_t)((uint64_t)(int64_t)speed * 10u); }

int32_t PanMoveDirection(int32_t from, int32_t to) {
  int64_t d = to < from ? (int64_t)from - to : (int64_t)to - from;
  if (d == 0 || 65535 - d == 0) return -1;
  if (to < from) return d <= 32766 ? 1 : 0;
  return d > 32767 ? 1 : 0;
}

void SyncLensType() {
  if (GetLensType() == -1) SetLensType(get_lenstype());
}

// Writes a lens position as decimal text to key.
static void SetLensKey(const char* key, int32_t position) {
  char text[kBusValueSize];
  snprintf(text, sizeof text, "%d", position);
  kvlink_set(key, text);
}

void SetLensZoom(int32_t position) { SetLensKey("ptz.lens.set_pos.zoom", position); }

void SetLensFocus(int32_t position) { SetLensKey("ptz.lens.set_pos.focus", position); }

int PauseOis(int flag) { return giOisEnable == 1 ? OIS_Pause(flag) : 0; }

// Microseconds of the raw monotonic clock, wrapping in 32 bits.
int32_t MicrosecondStamp() {
  struct timespec ts = {};
  os_clock_raw(&ts);
  return (int32_t)(uint32_t)((uint64_t)ts.tv_sec * 1000000u + (uint64_t)ts.tv_nsec / 1000u);
}

// Starts the pan and tilt moves; limit steps precede them in GoPreset.
static void StartAxes(int32_t pan, int32_t tilt, int32_t driverSpeed, bool withLimitSteps,
                      bool traceTilt) {
  if (pan >= 0) {
    int32_t direction = PanMoveDirection(giPanPos, pan);
    if (direction != -1) {
      if (withLimitSteps) PanLimitstep(driverSpeed);
      PanABSMove(direction, driverSpeed, pan);
    }
  }
  if (tilt >= 0 && tilt <= kTiltTargetMax) {
    int32_t direction = tilt >= giTiltPos ? 1 : 0;
    if (traceTilt) os_printf("Tilt:%d %d %d\n", direction, (int)giTiltPos, tilt);
    if (withLimitSteps) TiltLimitstep(driverSpeed);
    TiltABSMove(direction, driverSpeed, tilt);
  }
}

// Waits for the axes (and, when asked, the lens) to stop, publishing the
// position every 10 ms. A driver that never reports idle would hold the
// loop for good, so the wait ends after 120 s with both axes stopped.
static void WaitForArrival(bool waitLens) {
  int status = 0;
  GetLensStatus(&status);
  for (int ticks = 0;; ticks++) {
    bool moving = GetPanStatus() != 0 || GetTiltStatus() != 0 || (waitLens && status == kLensMoving);
    if (!moving) return;
    if (ticks >= kMoveWaitLimitTicks) {
      os_puts("Move wait timeout: axes stopped");
      PanContinuousMove(0, 0);
      TiltContinuousMove(0, 0);
      return;
    }
    os_usleep(10000);
    UpdatePosition();
    GetLensStatus(&status);
  }
}

int32_t HoldIrLimit(char* saved, int32_t above) {
  BusRead("image.cam1.exposure.ir_power_limit", saved);
  int32_t limit = TextToInt(saved);
  if (limit > above) kvlink_set("image.cam1.exposure.ir_power_limit", "70");
  return limit;
}

void RestoreIrLimit(const char* saved, int32_t limit, int32_t above) {
  if (limit > above) kvlink_set("image.cam1.exposure.ir_power_limit", saved);
}

// Freezes the picture when asked, pauses the stabiliser, and settles.
static void PrepareMove() {
  if (giSystemFreeze == 1) {
    kvlink_set("encode.cam1.freeze", "on");
    giFreezeOn = 1;
    PauseOis(0);
    os_usleep(330000);
  } else {
    PauseOis(0);
    os_usleep(30000);
  }
  if (GetPanStatus() != 0 || GetTiltStatus() != 0) {
    PanContinuousMove(0, 0);
    TiltContinuousMove(0, 0);
    os_sleep(1);
  }
}

// A fast move turns the real-time stabiliser off; each move restarts the
// time after which the health timer turns it back on.
static void EisGuard(int32_t speed) {
  if (giEisEnable != 1) return;
  if (giEisRtEnable == 1) {
    giEisRtStart = MicrosecondStamp();
    if (speed > kEisFastSpeed) {
      giEisRtEnable = 0;
      os_puts("[slewd]======= eis rt enable off ");
      kvlink_set("encode.cam1.eis.rt_enable", "off");
    }
  } else {
    os_puts("[slewd]======= eis rt off, add new start time, protect function.");
    giEisRtStart = MicrosecondStamp();
  }
}

// Sets the focus hint and starts the zoom.
static void StartZoom(int32_t zoom, int32_t focus, int32_t prefocus) {
  int32_t hint = -1;
  if (prefocus > 0 && focus < 0) {
    hint = prefocus;
  } else if (focus >= 0) {
    hint = focus + 2;
  }
  SetLensKey("ptz.lens.prefocus", hint);
  SetLensZoom(zoom);
}

// The preset name on the picture; during playback only a go_preset: line
// of the pattern changes it.
static void ShowPresetName() {
  if (giPatternRun != 1 || giPatternPreset != 0) {
    int32_t slot = giPresetTarget != 0 ? (int32_t)giPresetTarget : giPatrolPreset;
    if (slot < 0 || slot > kPresetLast) slot = 0;
    SetPresetOsd(gPreset[slot].name);
  }
  if (giPatternRun == 1 && giPatternPreset == 1) giPatternPreset = 0;
}

int32_t GoPreset(int32_t pan, int32_t tilt, int32_t zoom, int32_t focus, int32_t prefocus,
                 int32_t speed) {
  os_printf("Preset prefocus=%d\n", prefocus);
  char irLimit[kBusValueSize];
  int32_t irValue = HoldIrLimit(irLimit, kIrLimitHold);
  PrepareMove();
  if (speed > kTopSpeed) speed = kTopSpeed;
  os_printf("Go Preset:%d %d %d %d %d\n", pan, tilt, zoom, focus, speed);
  EisGuard(speed);
  int32_t driverSpeed = DriverSpeed(speed);
  StartAxes(pan, tilt, driverSpeed, true, true);
  if (zoom >= 0) StartZoom(zoom, focus, prefocus);
  ShowPresetName();
  WaitForArrival(zoom != -1);
  PauseOis(1);
  if (focus >= 0) SetLensFocus(focus);
  RestoreIrLimit(irLimit, irValue, kIrLimitHold);
  return 0;
}

int32_t GoTrackPosition(int32_t pan, int32_t tilt, int32_t zoom, int32_t focus, int32_t speed) {
  int32_t driverSpeed = DriverSpeed(speed);
  StartAxes(pan, tilt, driverSpeed, false, false);
  if (zoom >= 0) SetLensZoom(zoom);
  WaitForArrival(true);
  if (focus >= 0) SetLensFocus(focus);
  return 0;
}
