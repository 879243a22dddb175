// Register and gain tables of the motor controllers, by camera model.
#pragma once

#include <cstdint>

// Seven words, each landing in one controller register:
// 0x08, 0x0c (P), 0x0e (I), 0x10 (D), 0x51, 0x58, 0x95.
struct MotorRegBlock {
  uint32_t word[7];
};

struct MotorModelRow {
  char group[32];
  char model[16];
  MotorRegBlock pan;
  MotorRegBlock tilt;
};

// Pan settings of the speed-dry exercise: a block laid out for registers
// 0x08, 0x4c, 0x43, 0x46, 0x51, 0x58, 0x95, then four gain triples P, I, D.
struct MotorDryRow {
  char group[32];
  char model[16];
  MotorRegBlock block;
  uint32_t gains[4][3];
};

constexpr int kMotorRows = 3;
constexpr int kSetupBlocks = 12;
constexpr int kSetupWords = kSetupBlocks * 7;

// What Init_Setup_PID receives: twelve blocks of seven words.
struct MotorSetupRecord {
  MotorRegBlock block[kSetupBlocks];
};

extern const MotorModelRow gMotorRegs[kMotorRows];     // motor type 2
extern const MotorModelRow gMotorRegsAlt[kMotorRows];
extern const MotorModelRow gType1Regs[1];              // motor type 1
extern const MotorModelRow gType1RegsAlt[1];
extern const MotorDryRow gDryRegs[kMotorRows];
