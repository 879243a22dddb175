// Motor set-up: the model's registers go to both controllers and the
// driver gets its tuning record.
#include "mechanism/motor_setup.h"

#include <cstring>

#include "control/control.h"
#include "mechanism/model_tables.h"
#include "platform/camstate.h"
#include "platform/gimbal.h"
#include "platform/os.h"

int32_t giModelRow = 0;
int32_t giModelP = 0;
int32_t giModelI = 0;
int32_t giModelD = 0;
int32_t giStaticP = 0x1208;
int32_t giStaticI = 0x20;
int32_t giStaticD = 0x274a;
int32_t giFlipWindow = 10;

static constexpr int kCalibrationWaits = 20;

// One register write of the set-up sequence.
struct RegStep {
  int reg;
  int word;      // word of the block, or -1 for the fixed value
  uint32_t value;
  int width;
};

// Steps 1 to 15 of one axis; step 4 (register 0x46) depends on the axis.
static const RegStep kSequence[] = {
    {0x08, 0, 0, 2},  {0x4c, -1, 1, 1}, {0x43, -1, 0, 1}, {0x46, -1, 0, 2},
    {0x58, 5, 0, 4},  {0x97, -1, 1, 1}, {0x95, 6, 0, 4},  {0x51, 4, 0, 2},
    {0x56, -1, 1, 1}, {0x83, -1, 0, 1}, {0x53, -1, 1, 1}, {0x0c, 1, 0, 2},
    {0x0e, 2, 0, 2},  {0x10, 3, 0, 2},  {0x75, -1, 0x300, 2},
};

using RegWrite = int (*)(int reg, uint32_t value, int width);

// Writes one axis's block in the set-up order.
static void WriteAxis(RegWrite write, const MotorRegBlock& block, uint32_t reg46) {
  for (const RegStep& step : kSequence) {
    uint32_t value = step.word >= 0 ? block.word[step.word] : step.value;
    if (step.reg == 0x46) value = reg46;
    write(step.reg, value, step.width);
  }
}

// Waits up to 20 s for one axis to calibrate; set-up goes on regardless.
static void WaitCalibration(int (*status)(), const char* line) {
  for (int wait = 0; status() != 0 && wait < kCalibrationWaits; wait++) {
    os_sleep(1);
    os_puts(line);
  }
}

void ApplyPanGains() {
  if (giStaticP != giModelP || giStaticI != giModelI || giStaticD != giModelD) {
    giStaticP = giModelP;
    giStaticI = giModelI;
    giStaticD = giModelD;
    PanPIDsetup(giStaticP, giStaticI, giStaticD);
  }
  if (giPidP != 0 || giPidI != 0 || giPidD != 0) PanPIDsetup(giPidP, giPidI, giPidD);
}

void WaitMotorCalibration() {
  WaitCalibration(PanGetCaliStatus, "Pan Caliation");
  WaitCalibration(TiltGetCaliStatus, "Tilt Caliation");
}

void WriteModelRegisters(int32_t row) {
  const MotorModelRow& regs = gMotorRegs[row];
  WriteAxis(Pan_SendI2C_Advanced, regs.pan, 0x1000);
  WriteAxis(Tilt_SendI2C_Advanced, regs.tilt, 0x266);
}

static void SetModelGains(int32_t p, int32_t i, int32_t d) {
  giModelP = giStaticP = p;
  giModelI = giStaticI = i;
  giModelD = giStaticD = d;
}

// Motor type 2: the row whose model matches, registers on both controllers.
static void SetUpType2(const char* modelId, MotorSetupRecord* record) {
  for (int row = 0; row < kMotorRows; row++) {
    if (strcmp(gMotorRegs[row].model, modelId) == 0) {
      giModelRow = row;
      os_printf(" modelid %s, model num:%d\n", modelId, row);
    }
  }
  const MotorModelRow& regs = gMotorRegs[giModelRow];
  const MotorModelRow& alt = gMotorRegsAlt[giModelRow];
  SetModelGains(regs.pan.word[1], regs.pan.word[2], regs.pan.word[3]);
  os_printf("MotorReg P:0x%x I:0x%x D:0x%x\n", giModelP, giModelI, giModelD);
  WriteModelRegisters(giModelRow);
  record->block[0] = record->block[1] = regs.pan;
  record->block[4] = record->block[5] = alt.pan;
  record->block[2] = record->block[3] = regs.tilt;
  record->block[6] = record->block[7] = alt.tilt;
}

// Motor type 1: no controller register is written; the driver alone gets
// the tables.
static void SetUpType1(const char* modelId, MotorSetupRecord* record) {
  if (strcmp(gType1Regs[0].model, modelId) == 0) {
    giModelRow = 0;
    os_printf(" modelid %s, model num:%d\n", modelId, 0);
  }
  SetModelGains(gType1Regs[0].pan.word[2], gType1Regs[0].pan.word[3], 0);
  os_printf("@@@MotorReg P:0x%x I:0x%x D:0x%x\n", giModelP, giModelI, giModelD);
  record->block[8] = gType1Regs[0].pan;
  record->block[9] = gType1RegsAlt[0].pan;
  record->block[10] = gType1Regs[0].tilt;
  record->block[11] = gType1RegsAlt[0].tilt;
  giFlipWindow = 40;
}

void InitMoterRegister() {
  const char* id = get_modelid();
  char modelId[32] = {};
  if (id != nullptr) strncpy(modelId, id, sizeof modelId - 1);
  int type = GetMotorType();
  MotorSetupRecord record = {};
  WaitMotorCalibration();
  if (type == 2) SetUpType2(modelId, &record);
  if (type == 1) SetUpType1(modelId, &record);
  Init_Setup_PID(&record.block[0].word[0]);
}
