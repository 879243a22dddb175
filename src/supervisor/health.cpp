// Head health supervision.
#include "supervisor/health.h"

#include "control/control.h"
#include "control/publish.h"
#include "mechanism/motor_setup.h"
#include "motion/limits.h"
#include "motion/positioning.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "platform/os.h"

static constexpr uint32_t kEisRtDelayUs = 1799999;
static constexpr int32_t kAsleep = 3;
static constexpr int32_t kLevelTilt = 0x1333;

void EisRtTimer() {
  if (giEisEnable != 1 || giEisRtEnable != 0) return;
  uint32_t elapsed = (uint32_t)MicrosecondStamp() - (uint32_t)giEisRtStart;
  if (elapsed <= kEisRtDelayUs) return;
  giEisRtEnable = 1;
  os_puts("[slewd]======= eis rt on");
  kvlink_set("encode.cam1.eis.rt_enable", "on");
}

// The calls of one axis, so that pan and tilt share the revival rule.
struct AxisHealth {
  int (*sleepMode)();
  int (*progState)();
  int (*temperature)();
  int (*reset)();
  const char* sleepingLine;
  const char* resetLine;
};

static const AxisHealth kPanHealth = {GetPanSleepMode, GetPanProgState, GetPanTemp, PanReset,
                                      "Pan motor is sleeping.", "Pan motor reset"};
static const AxisHealth kTiltHealth = {GetTiltSleepMode, GetTiltProgState, GetTiltTemp,
                                       TiltReset, "Tilt motor is sleeping.", "Tilt motor reset"};

// Logs a sleeping axis once and resets it when its temperature allows.
static void ReviveAxis(const AxisHealth& axis, int32_t* logged, int32_t* resets) {
  if (axis.sleepMode() != kAsleep) return;
  if (*logged == 0) {
    kvlink_log(0, 0, "localhost", axis.sleepingLine);
    (*logged)++;
  }
  if (axis.progState() != 0) return;
  int temperature = axis.temperature();
  if (temperature < 1 || temperature > 64) return;
  axis.reset();
  kvlink_log(0, 0, "localhost", axis.resetLine);
  (*resets)++;
  os_usleep(100000);
}

// After a reset: calibration wait, registers, stop, tilt to level, limits.
static void ReinitialiseHead(HealthState* health) {
  for (int wait = 0; wait < 80; wait++) {
    os_sleep(1);
    if (TiltGetCaliStatus() == 0 && PanGetCaliStatus() == 0) break;
  }
  os_puts("[slewd]======= InitMoterRegister when tmp <65");
  health->iMotorResets = 0;
  health->iPanSleepLogged = 0;
  health->iTiltSleepLogged = 0;
  InitMoterRegister();
  TiltContinuousMove(0, 0);
  PanContinuousMove(0, 0);
  UpdatePosition();
  os_sleep(1);
  GoPreset(-1, kLevelTilt, -1, -1, -1, 720);
  ApplyTiltLimit();
  SetPtStatus(kOwnerDirect, kStateRest);
}

void HealthPass(HealthState* health) {
  ReviveAxis(kPanHealth, &health->iPanSleepLogged, &health->iMotorResets);
  ReviveAxis(kTiltHealth, &health->iTiltSleepLogged, &health->iMotorResets);
  if (health->iMotorResets != 0) ReinitialiseHead(health);
}
