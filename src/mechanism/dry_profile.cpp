// The dry profile: the pan controller tuned for the speed-dry exercise, and
// the way back to the model's normal profile.
#include <cstdio>

#include "control/control.h"
#include "mechanism/exercises.h"
#include "mechanism/model_tables.h"
#include "mechanism/motor_setup.h"
#include "platform/gimbal.h"
#include "platform/os.h"
#include "slewd/startup.h"

// One register write of the dry sequence: a word of the dry block, or a
// fixed value when word is -1.
struct DryStep {
  int reg;
  int word;
  uint32_t value;
  int width;
};

// Unlike the normal sequence, 0x53 comes before 0x97 and 0x75 is left out.
static const DryStep kDrySequence[] = {
    {0x08, 0, 0, 2}, {0x4c, 1, 0, 1}, {0x43, 2, 0, 1},  {0x46, 3, 0, 2},
    {0x58, 5, 0, 4}, {0x53, -1, 1, 1}, {0x97, -1, 1, 1}, {0x95, 6, 0, 4},
    {0x51, 4, 0, 2}, {0x56, -1, 1, 1}, {0x83, -1, 0, 1},
};

// Pan gains of the dry profile by speed-dry variant: P, I, D.
static const uint32_t kDryGains[4][3] = {
    {0x8000, 0xfffe, 0xe000},
    {0x0100, 0xfffe, 0xfffe},
    {0x1000, 0xfffe, 0x0000},
    {0x0100, 0xfffe, 0xfffe},
};

// One pan register of two bytes, high first, through the shell's I2C tool.
static void PanGainLine(uint32_t reg, uint32_t value) {
  char line[64];
  snprintf(line, sizeof line, "i2ctransfer -f -y 2 w3@0x28 0x%02x 0x%02x 0x%02x", reg & 0xff,
           (value >> 8) & 0xff, value & 0xff);
  os_system(line);
}

void PanGainLines(uint32_t p, uint32_t i, uint32_t d) {
  PanGainLine(0x0c, p);
  PanGainLine(0x0e, i);
  PanGainLine(0x10, d);
}

// The dry block of the model's row to the pan controller, then its gains:
// the ptz.PID override when one is set, else those of the variant.
static void WriteDryProfile() {
  const MotorRegBlock& block = gDryRegs[giModelRow].block;
  for (const DryStep& step : kDrySequence) {
    Pan_SendI2C_Advanced(step.reg, step.word >= 0 ? block.word[step.word] : step.value, step.width);
  }
  if (giPidP != 0 || giPidI != 0 || giPidD != 0) {
    PanPIDsetup(giPidP, giPidI, giPidD);
    return;
  }
  int32_t mode = giSpdDryMode >= 0 && giSpdDryMode <= 3 ? giSpdDryMode : 3;
  PanGainLines(kDryGains[mode][0], kDryGains[mode][1], kDryGains[mode][2]);
}

void SetDryProfile(int32_t profile) {
  WaitMotorCalibration();
  if (profile == 1) {
    WriteDryProfile();
  } else {
    WriteModelRegisters(giModelRow);
  }
}
