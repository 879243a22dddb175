// The motor driver library: two motor controllers (pan at I2C 0x28, tilt at
// 0x29) and the I2C layer they sit on. All calls are synchronous.
#pragma once

#include <cstdint>

extern "C" {

// Motion. Continuous and pan absolute: dir 0 runs towards higher steps,
// 1 towards lower. Tilt absolute: dir 1 towards higher steps.
int PanContinuousMove(int dir, int speed);
int TiltContinuousMove(int dir, int speed);
int PanABSMove(int dir, int speed, int pos);
int TiltABSMove(int dir, int speed, int pos);
int GetPanStatus(void);   // 0 stopped, else moving
int GetTiltStatus(void);  // 0 stopped, else moving (-1 while moving)
int GetPanPos(int* pos);
int GetTiltPos(int* pos);

// Soft limits.
int PanLimitSet(int right, int left);
int TiltLimit(int up, int down);
int PanLimitEn(int enable);
int TiltLimitEn(int enable);
int PanLimitstep(int speed);
int TiltLimitstep(int speed);

// Gains and registers.
int PanPIDsetup(int p, int i, int d);
int Set_stop_PID(void);
int Init_Setup_PID(uint32_t* record);  // 12 blocks of 7 words
int Pan_SendI2C_Advanced(int reg, uint32_t value, int width);
int Tilt_SendI2C_Advanced(int reg, uint32_t value, int width);
int SetTorvanPanPID(int a, int b, int c);
int SetTorvanTiltPID(int a, int b, int c);
int GetTorvanPanPID(int a, int* b, int* c);  // *c reads back the last c
int GetTorvanTiltPID(int a, int* b, int* c);

// Health.
int PanGetCaliStatus(void);   // 0 calibrated
int TiltGetCaliStatus(void);
int GetPanSleepMode(void);    // 3 asleep
int GetTiltSleepMode(void);
int GetPanProgState(void);    // 0 reset allowed
int GetTiltProgState(void);
int GetPanTemp(void);
int GetTiltTemp(void);
int PanReset(void);
int TiltReset(void);
int PanInitParam(void);
int TiltInitParam(void);
int GetMotorType(void);       // 1 or 2
int GetTiltHallSetting(void); // 1 tilt Hall sensor in use

// I2C. count includes the command byte: count - 1 bytes of buf follow it.
int Init_I2C(void);           // negative on no acknowledge
int Release_I2C(void);
int SendI2C(int addr, int cmd, uint8_t* buf, int count);
int ReadI2C(int addr, int cmd, uint8_t* buf, int count);
int ReadI2C_M(int addr, int cmd, uint8_t* tx, int txcount, uint8_t* rx, int rxcount);

}
