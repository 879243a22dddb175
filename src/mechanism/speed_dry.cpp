// The speed-dry exercise: on motor type 2 the tilt swings out and back
// under alternating pan gains with the dry profile loaded; on other motor
// types a short motion test. The head comes back where it stood.
#include "control/bus_text.h"
#include "control/control.h"
#include "control/publish.h"
#include "mechanism/exercises.h"
#include "mechanism/model_tables.h"
#include "mechanism/motor_setup.h"
#include "motion/positioning.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "slewd/startup.h"

static constexpr int32_t kSwing = 2730;          // 15 degrees of tilt
static constexpr int32_t kSwingTurnover = 10650; // above it the swing goes up
static constexpr int kPasses = 3;
static constexpr int32_t kDrySpeed = 7200;       // GoPreset cuts it to 720
static constexpr int32_t kIrLimitAbove = 50;

// Gain stages P, I, D of variants 0 to 2; variant 3 takes the model's.
static const uint32_t kStageGains[3][4][3] = {
    {{0xfffe, 0xfffe, 0xe000}, {0x5000, 0xfffe, 0xe000},
     {0xfffe, 0xfffe, 0xe000}, {0x8000, 0xfffe, 0xe000}},
    {{0xfffe, 0xfffe, 0xfffe}, {0x0500, 0xfffe, 0xfffe},
     {0xfffe, 0xfffe, 0xfffe}, {0x0100, 0xfffe, 0xfffe}},
    {{0xfffe, 0xfffe, 0x0000}, {0x0100, 0xfffe, 0x0000},
     {0xfffe, 0xfffe, 0x0000}, {0x1000, 0xfffe, 0x0000}},
};

// Gain stage 0..3 of the variant to the pan controller.
static void GainStage(int stage) {
  if (giSpdDryMode >= 0 && giSpdDryMode <= 2) {
    const uint32_t* gains = kStageGains[giSpdDryMode][stage];
    PanGainLines(gains[0], gains[1], gains[2]);
    return;
  }
  const uint32_t* gains = gDryRegs[giModelRow].gains[stage];
  Pan_SendI2C_Advanced(0x0c, gains[0], 2);
  Pan_SendI2C_Advanced(0x0e, gains[1], 2);
  Pan_SendI2C_Advanced(0x10, gains[2], 2);
}

// One pass: out and back twice under the four gain stages, or, with a
// ptz.PID override, the override alone and no swing.
static void SwingPass(int32_t savedTilt) {
  os_usleep(2000000);
  if (giPidP != 0 || giPidI != 0 || giPidD != 0) {
    PanPIDsetup(giPidP, giPidI, giPidD);
    return;
  }
  int32_t out = savedTilt <= kSwingTurnover ? savedTilt + kSwing : savedTilt - kSwing;
  GainStage(0);
  GoPreset(-1, out, -1, -1, -1, kDrySpeed);
  os_usleep(1000000);
  GainStage(1);
  GoPreset(-1, savedTilt, -1, -1, -1, kDrySpeed);
  os_usleep(2000000);
  GainStage(2);
  GoPreset(-1, out, -1, -1, -1, kDrySpeed);
  os_usleep(1000000);
  GainStage(3);
  GoPreset(-1, savedTilt, -1, -1, -1, kDrySpeed);
}

// Motor type 2: the dry profile, three passes, the normal profile back.
static void DryExercise(int32_t savedTilt) {
  SetDryProfile(1);
  os_usleep(500000);
  for (int pass = 0; pass < kPasses; pass++) SwingPass(savedTilt);
  SetDryProfile(0);
  os_usleep(500000);
  if (giModelRow == 1 || giModelRow == 2) {
    os_system("i2ctransfer -f -y 2 w5@0x28 0x95 0x01 0x80 0x01 0x80");
    os_usleep(500000);
    os_system("i2ctransfer -f -y 2 w5@0x28 0x95 0x01 0x00 0x00 0x10");
  }
}

// Other motor types: register 3 of the pan controller, then both axes stopped.
static void MotionTest() {
  os_printf("Sapling test!!!! \n");
  Pan_SendI2C_Advanced(3, 15000, 3);
  os_usleep(1500000);
  os_printf("Sapling test end !!!! \n");
  PanContinuousMove(0, 0);
  TiltContinuousMove(0, 0);
  UpdatePosition();
  os_usleep(1000000);
  UpdatePosition();
}

int32_t SpeedDry() {
  int32_t savedPan = giPanPos, savedTilt = giTiltPos;
  char irLimit[kBusValueSize];
  int32_t irValue = HoldIrLimit(irLimit, kIrLimitAbove);
  if (GetMotorType() == 2) {
    DryExercise(savedTilt);
  } else {
    MotionTest();
  }
  GoPreset(savedPan, savedTilt, -1, -1, -1, kDrySpeed);
  kvlink_set("ptz.lens.one_push", "run");
  RestoreIrLimit(irLimit, irValue, kIrLimitAbove);
  return 0;
}
