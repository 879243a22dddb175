// Start-up: loading stored data and bringing the head up.
#include "slewd/startup.h"

#include <fcntl.h>

#include <cstdlib>
#include <cstring>

#include "control/bus_text.h"
#include "control/publish.h"
#include "mechanism/motor_setup.h"
#include "motion/limits.h"
#include "motion/positioning.h"
#include "platform/camstate.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "slewd/loop.h"
#include "tours/presets.h"
#include "tours/schedule.h"
#include "tours/tracking.h"

Shared giExitFlag{0};
int32_t giBrandMatch = 0;
int32_t giSpdDryMode = 3;
int32_t giIavFd = 0;
pthread_mutex_t gPanLimitMutex;
float gfSensorH = 0.0f;
float gfSensorW = 0.0f;
float gfBaseFocalLength = 0.0f;
float gfMaxFocalLength = 0.0f;

static constexpr int kI2cTries = 5;
static constexpr int kMotorWaits = 80;
static constexpr int kLensWaits = 80;
static constexpr int32_t kLevelTilt = 0x1333;

void OnSignal(int) {
  giExitFlag = 1;
  if (iTrackStatus == 1) {
    os_puts("Close Track sigstop");
    giNewMode = kModeIdle;
    iTrackStatus = 0;
    StopTracker();
  }
  os_exit(1);
}

// Reads one lens dimension as atof reads it.
static float ReadGeometry(const char* key) {
  char buf[kBusValueSize];
  BusRead(key, buf);
  return (float)atof(buf);
}

void LoadLensGeometry() {
  gfSensorH = ReadGeometry("ptz.lens.sensor_h");
  gfSensorW = ReadGeometry("ptz.lens.sensor_w");
  gfBaseFocalLength = ReadGeometry("ptz.lens.base_focal_length");
  gfMaxFocalLength = ReadGeometry("ptz.lens.max_focal_length");
}

void LoadAllPresets() {
  ClearPresets();
  LoadPreset();
}

int WaitMotorInit() {
  int count = 0;
  while ((PanGetCaliStatus() != 0 || TiltGetCaliStatus() != 0) && count < kMotorWaits) {
    os_sleep(1);
    int pan = PanGetCaliStatus();
    int tilt = TiltGetCaliStatus();
    os_printf("Wait Motor Init %d %d\n", pan, tilt);
    count++;
  }
  return count < kMotorWaits ? 0 : -1;
}

int RunPowerUpAction() {
  static const char* const kStarts[] = {"go_preset:", "patrol", "scan", "pattern", "track"};
  char action[kBusValueSize];
  BusRead("ptz.system.power_up", action);
  for (const char* start : kStarts) {
    if (strncmp(action, start, strlen(start)) == 0) {
      kvlink_set("ptz.run_mode", action);
      return 1;
    }
  }
  return 0;
}

void ChooseFirstRunMode() {
  if (RunPowerUpAction() == 1) return;
  if (giScheduleEnable == 1 && CheckSchedule() != -1) return;
  char buf[kBusValueSize];
  BusRead("ptz.system.recover_time", buf);
  if (strcmp(buf, "off") == 0) return;
  BusRead("ptz.system.recover_mode", buf);
  kvlink_set("ptz.run_mode", buf);
}

// Up to five Init_I2C calls, 2 s apart; false when all failed.
static bool BringUpI2c() {
  for (int attempt = 0; attempt < kI2cTries; attempt++) {
    if (Init_I2C() >= 0) return true;
    os_printf("No ACK from address from I2C init function=>%s:%s Line:%d\n", "src/slewd",
              "main_loop", __LINE__);
    os_sleep(2);
  }
  os_printf("No ACK from address from I2C init function=>%s:%s Line:%d\n", "src/slewd",
            "main_loop", __LINE__);
  return false;
}

// Waits for the lens to settle; start-up goes on after 80 waits regardless.
static void WaitLens() {
  int status = 0;
  GetLensStatus(&status);
  for (int count = 0; status != 0 && count < kLensWaits;) {
    os_sleep(1);
    GetLensStatus(&status);
    count++;
    os_printf("Wait Lens status:%d %d\n", status, count);
  }
}

bool BringUpHead() {
  giIavFd = os_open("/dev/iav", O_RDWR);
  os_puts("in main loop");
  if (!BringUpI2c()) return false;
  os_puts("init i2c");
  os_printf("Tilt motor usr Hall:%d\n", GetTiltHallSetting());
  SetPtStatus(kOwnerDirect, kStateInit);
  os_sleep(1);
  if (WaitMotorInit() == -1) {
    os_puts("motor init fail");
    return false;
  }
  kvlink_set("ptz.init.pt", "done");
  InitMoterRegister();
  PanContinuousMove(0, 0);
  TiltContinuousMove(0, 0);
  UpdatePosition();
  os_sleep(1);
  kvlink_set("system.cam1.osd.preset_name", "");
  GoPreset(-1, kLevelTilt, -1, -1, -1, 720);
  ApplyTiltLimit();
  SetPtStatus(kOwnerDirect, kStateRest);
  SyncLensType();
  WaitLens();
  ChooseFirstRunMode();
  return true;
}

int main_loop() {
  if (!BringUpHead()) return 0;
  os_puts("in loop");
  while (giExitFlag == 0) LoopTick(&gLoop);
  return 0;
}
