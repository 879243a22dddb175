// Scans: the head pans at a fixed speed; the driver stops it at an enabled
// pan limit and the tick sends it back the other way.
#include "tours/scan.h"

#include <cstdio>
#include <cstring>

#include "control/bus_text.h"
#include "control/control.h"
#include "control/publish.h"
#include "mechanism/motor_setup.h"
#include "motion/limits.h"
#include "motion/positioning.h"
#include "platform/exports.h"
#include "platform/gimbal.h"
#include "platform/os.h"

int32_t giScanLastId = -1;
int32_t giScanDir = 0;
int32_t giScanSpeed = 0;
int32_t giScanTilt = 0;
int32_t giScanAutoFocus = 0;
int32_t giScanLimit = 0;
int32_t giScanZoom = 0;
int32_t giScanOisPaused = 0;

static constexpr int32_t kOisPauseSpeed = 4;      // faster scans pause the stabiliser
static constexpr int32_t kScanTiltSpeed = 2000;   // driver speed of the tilt set-up
static constexpr int kTiltWaitTries = 100;
static constexpr unsigned kTiltWaitUs = 33000;
static constexpr unsigned kPanStopUs = 500000;
static constexpr unsigned kMoveSettleUs = 30000;
static constexpr unsigned kFixFocusSeconds = 3;

// Reads key `field` of scan id into value (zeroed, 128 bytes).
static void ReadScanKey(int32_t id, const char* field, char* value) {
  char key[kBusValueSize] = {};
  snprintf(key, sizeof key, "ptz.scan.scan%d.%s", id, field);
  BusRead(key, value);
}

// Reads a decimal key of scan id.
static int32_t ScanNumber(int32_t id, const char* field) {
  char value[kBusValueSize];
  ReadScanKey(id, field, value);
  return TextToInt(value);
}

// 1 when key `field` of scan id holds exactly `word`.
static int32_t ScanWord(int32_t id, const char* field, const char* word) {
  char value[kBusValueSize];
  ReadScanKey(id, field, value);
  return strcmp(value, word) == 0 ? 1 : 0;
}

int32_t ScanDirection(int32_t id) {
  char mirror[kBusValueSize];
  BusRead("image.cam1.mirror", mirror);
  int32_t left = ScanWord(id, "dir", "left");
  return left == TextOnOff(mirror) ? 1 : 0;
}

int32_t ScanSpeed(int32_t id) { return ScanNumber(id, "speed"); }

int32_t ScanTiltAngle(int32_t id) { return ScanNumber(id, "tilt_angle"); }

int GetFocus(int id) { return ScanWord(id, "focus", "fix") == 1 ? 0 : 1; }

int32_t ScanLimitOn(int32_t id) { return ScanWord(id, "limit", "on"); }

int32_t ScanZoomPosition(int32_t id) { return ScanNumber(id, "zoom_position"); }

void WaitTiltStop() {
  for (int i = 0; i < kTiltWaitTries; i++) {
    os_usleep(kTiltWaitUs);
    if (GetTiltStatus() != -1) return;
  }
}

// Brings the head to the scan's tilt and zoom and sets pan going.
static void StartScan(int32_t id) {
  if (GetPanStatus() != 0) {
    PanContinuousMove(0, 0);
    os_usleep(kPanStopUs);
  }
  giScanDir = ScanDirection(id);
  giScanSpeed = ScanSpeed(id);
  if (giScanSpeed > kOisPauseSpeed) PauseOis(0);
  giScanTilt = ScanTiltAngle(id);
  giScanAutoFocus = GetFocus(id);
  giScanLimit = ScanLimitOn(id);
  ApplyPanLimit(id);
  PanLimitstep(DriverSpeed(giScanSpeed));
  os_printf("Sacn %d %d %d\n", giScanSpeed, giScanTilt, giScanLimit);
  giScanTilt = TiltAngleToSteps(giScanTilt);
  giScanZoom = ScanZoomPosition(id);
  SetLensZoom(giScanZoom);
  SetPtStatus(kOwnerScan, kStatePosition);
  TiltABSMove(giScanTilt < giTiltPos ? 0 : 1, kScanTiltSpeed, giScanTilt);
  os_puts("Set Tilt");
  WaitTiltStop();
  if (giScanAutoFocus == 1) {
    os_puts("Scan Auto Focus");
  } else {
    os_sleep(kFixFocusSeconds);
    SetPtStatus(kOwnerScan, kStateSpeed);
    os_puts("Scan Fix Focus");
  }
  os_puts("Run Scan");
  PanContinuousMove(giScanDir, DriverSpeed(giScanSpeed));
  os_usleep(kMoveSettleUs);
}

// Stops both axes and gives the stabiliser back.
static void EndScan() {
  if (giScanLimit == 1) PanLimitEn(0);
  PanContinuousMove(0, 0);
  TiltContinuousMove(0, 0);
  PauseOis(1);
  giScanOisPaused = 0;
}

// Every tick of a running scan: the stabiliser pause, and the reversal at
// a limit stop.
static void ScanTick() {
  if (giOisEnable == 1) {
    if (giScanSpeed > kOisPauseSpeed && giScanOisPaused == 0) {
      giScanOisPaused = 1;
      PauseOis(0);
    }
  } else {
    giScanOisPaused = 0;
  }
  if (giScanLimit == 1 && GetPanStatus() == 0) {
    giScanDir = giScanDir == 0 ? 1 : 0;
    PanContinuousMove(giScanDir, DriverSpeed(giScanSpeed));
    os_usleep(kMoveSettleUs);
  }
}

int32_t RunScan(int32_t runMode, int32_t newMode) {
  int32_t result = runMode;
  int32_t target = giScanTarget;
  if (runMode != newMode || giScanLastId != target) {
    ApplyPanGains();
    if (newMode == kModeScan) {
      StartScan(target);
      result = kModeScan;
    } else {
      EndScan();
      result = kModeIdle;
    }
    giScanLastId = target;
  }
  if (result == kModeScan) ScanTick();
  return result;
}
