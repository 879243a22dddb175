// The motor driver library of the simulated camera: every call takes the one
// lock, leaves its `call` line in the transcript and acts on the world.
#include <cstdio>
#include <mutex>
#include <vector>

#include "core/core.h"
#include "platform/gimbal.h"
#include "world/world.h"
#include "vendor/world_vendor.h"

namespace {

using sim::deliver;
using sim::hold;
using sim::look;
using sim::report;
using sim::the_world;

// Register write of one controller, as on the wire.
int send_advanced(const char* name, int addr, int reg, uint32_t value, int width) {
  sim::trace_call(false, "%s(%d,%u,%d)", name, reg, value, width);
  return sim::controller_write_register(the_world().controllers, addr, reg, value, width);
}

// Stores b at a and remembers c, as the controller's PID store does.
int set_torvan(const char* name, sim::TorvanPid& t, int a, int b, int c) {
  sim::trace_call(false, "%s(%d,%d,%d)", name, a, b, c);
  t.values[a] = b;
  t.last_c = c;
  return 0;
}

// Reads back the value stored at a and the last c.
int get_torvan(const char* name, const sim::TorvanPid& t, int a, int* b, int* c) {
  auto it = t.values.find(a);
  int vb = it == t.values.end() ? 0 : it->second;
  if (b) *b = vb;
  if (c) *c = t.last_c;
  sim::trace_call(false, "%s(%d,%d,%d)", name, a, vb, t.last_c);
  return b && c ? 0 : -1;
}

// The bytes of a write: the command, then count - 1 bytes of buf.
bool wire_bytes(int cmd, const uint8_t* buf, int count, std::vector<uint8_t>* out) {
  if (count < 1 || count > 4096 || (count > 1 && !buf)) return false;
  out->assign(1, static_cast<uint8_t>(cmd));
  if (count > 1) out->insert(out->end(), buf, buf + count - 1);
  return true;
}

// A controller in firmware-update mode, or restarting, refuses moves.
bool refused_by_update(const sim::MotorController& mc) { return sim::update_holds_axis(mc.fw); }

}  // namespace

extern "C" {

// ---- motion -------------------------------------------------------------------

int PanContinuousMove(int dir, int speed) {
  auto lock = hold();
  sim::trace_call(false, "PanContinuousMove(%d,%d)", dir, speed);
  if (refused_by_update(the_world().controllers.pan)) return -1;
  return sim::axis_continuous(the_world().pan, dir == 0, speed);
}

int TiltContinuousMove(int dir, int speed) {
  auto lock = hold();
  sim::trace_call(false, "TiltContinuousMove(%d,%d)", dir, speed);
  if (refused_by_update(the_world().controllers.tilt)) return -1;
  return sim::axis_continuous(the_world().tilt, dir == 0, speed);
}

int PanABSMove(int dir, int speed, int pos) {
  auto lock = hold();
  sim::trace_call(false, "PanABSMove(%d,%d,%d)", dir, speed, pos);
  if (refused_by_update(the_world().controllers.pan)) return -1;
  return sim::axis_absolute(the_world().pan, dir == 0, speed, pos);
}

// Tilt absolute moves count the other way: dir 1 runs towards higher steps.
int TiltABSMove(int dir, int speed, int pos) {
  auto lock = hold();
  sim::trace_call(false, "TiltABSMove(%d,%d,%d)", dir, speed, pos);
  if (refused_by_update(the_world().controllers.tilt)) return -1;
  return sim::axis_absolute(the_world().tilt, dir != 0, speed, pos);
}

int GetPanStatus(void) {
  auto lock = look();
  return report("GetPanStatus", sim::axis_moving(the_world().pan) ? 1 : 0);
}

int GetTiltStatus(void) {
  auto lock = look();
  return report("GetTiltStatus", sim::axis_moving(the_world().tilt) ? -1 : 0);
}

int GetPanPos(int* pos) {
  auto lock = look();
  return deliver("GetPanPos", pos, the_world().pan.pos);
}

int GetTiltPos(int* pos) {
  auto lock = look();
  return deliver("GetTiltPos", pos, the_world().tilt.pos);
}

// ---- soft limits ---------------------------------------------------------------

// Pan steps grow towards the left: right is the low bound, left the high one.
int PanLimitSet(int right, int left) {
  auto lock = hold();
  sim::trace_call(false, "PanLimitSet(%d,%d)", right, left);
  sim::axis_set_limits(the_world().pan, right, left);
  return 0;
}

// Tilt steps grow downwards: up is the low bound, down the high one.
int TiltLimit(int up, int down) {
  auto lock = hold();
  sim::trace_call(false, "TiltLimit(%d,%d)", up, down);
  sim::axis_set_limits(the_world().tilt, up, down);
  return 0;
}

int PanLimitEn(int enable) {
  auto lock = hold();
  sim::trace_call(false, "PanLimitEn(%d)", enable);
  sim::axis_enable_limits(the_world().pan, enable != 0);
  return 0;
}

int TiltLimitEn(int enable) {
  auto lock = hold();
  sim::trace_call(false, "TiltLimitEn(%d)", enable);
  sim::axis_enable_limits(the_world().tilt, enable != 0);
  return 0;
}

int PanLimitstep(int speed) {
  auto lock = hold();
  sim::trace_call(false, "PanLimitstep(%d)", speed);
  the_world().pan.limit_step_speed = speed;
  return 0;
}

int TiltLimitstep(int speed) {
  auto lock = hold();
  sim::trace_call(false, "TiltLimitstep(%d)", speed);
  the_world().tilt.limit_step_speed = speed;
  return 0;
}

// ---- gains and registers ---------------------------------------------------------

// The driver puts the gains into the pan controller's P, I and D registers.
int PanPIDsetup(int p, int i, int d) {
  auto lock = hold();
  sim::trace_call(false, "PanPIDsetup(%d,%d,%d)", p, i, d);
  sim::Controllers& c = the_world().controllers;
  c.pid_p = p, c.pid_i = i, c.pid_d = d;
  c.pid_setups++;
  sim::controller_write_register(c, sim::kPanAddr, 0x0c, static_cast<uint32_t>(p), 2);
  sim::controller_write_register(c, sim::kPanAddr, 0x0e, static_cast<uint32_t>(i), 2);
  sim::controller_write_register(c, sim::kPanAddr, 0x10, static_cast<uint32_t>(d), 2);
  return 0;
}

int Set_stop_PID(void) {
  auto lock = hold();
  sim::trace_call(false, "Set_stop_PID()");
  the_world().controllers.stop_pid_calls++;
  return 0;
}

// Traced with all 84 words of the record.
int Init_Setup_PID(uint32_t* record) {
  auto lock = hold();
  char words[sim::kSetupWords * 11 + 1] = "";
  size_t len = 0;
  for (int k = 0; record && k < sim::kSetupWords; k++)
    len += snprintf(words + len, sizeof words - len, k ? ",%u" : "%u", record[k]);
  sim::trace_call(false, "Init_Setup_PID(%s)", words);
  if (!record) return -1;
  sim::Controllers& c = the_world().controllers;
  for (int k = 0; k < sim::kSetupWords; k++) c.setup_record[k] = record[k];
  c.setup_calls++;
  return 0;
}

int Pan_SendI2C_Advanced(int reg, uint32_t value, int width) {
  auto lock = hold();
  return send_advanced("Pan_SendI2C_Advanced", sim::kPanAddr, reg, value, width);
}

int Tilt_SendI2C_Advanced(int reg, uint32_t value, int width) {
  auto lock = hold();
  return send_advanced("Tilt_SendI2C_Advanced", sim::kTiltAddr, reg, value, width);
}

int SetTorvanPanPID(int a, int b, int c) {
  auto lock = hold();
  return set_torvan("SetTorvanPanPID", the_world().controllers.torvan_pan, a, b, c);
}

int SetTorvanTiltPID(int a, int b, int c) {
  auto lock = hold();
  return set_torvan("SetTorvanTiltPID", the_world().controllers.torvan_tilt, a, b, c);
}

int GetTorvanPanPID(int a, int* b, int* c) {
  auto lock = hold();
  return get_torvan("GetTorvanPanPID", the_world().controllers.torvan_pan, a, b, c);
}

int GetTorvanTiltPID(int a, int* b, int* c) {
  auto lock = hold();
  return get_torvan("GetTorvanTiltPID", the_world().controllers.torvan_tilt, a, b, c);
}

// ---- health ---------------------------------------------------------------------

int PanGetCaliStatus(void) {
  auto lock = look();
  return report("PanGetCaliStatus", sim::axis_calibrating(the_world().pan) ? 1 : 0);
}

int TiltGetCaliStatus(void) {
  auto lock = look();
  return report("TiltGetCaliStatus", sim::axis_calibrating(the_world().tilt) ? 1 : 0);
}

int GetPanSleepMode(void) {
  auto lock = look();
  return report("GetPanSleepMode", the_world().pan.asleep ? sim::kControllerAsleep : 0);
}

int GetTiltSleepMode(void) {
  auto lock = look();
  return report("GetTiltSleepMode", the_world().tilt.asleep ? sim::kControllerAsleep : 0);
}

int GetPanProgState(void) {
  auto lock = look();
  return report("GetPanProgState", the_world().pan.prog_state);
}

int GetTiltProgState(void) {
  auto lock = look();
  return report("GetTiltProgState", the_world().tilt.prog_state);
}

int GetPanTemp(void) {
  auto lock = look();
  return report("GetPanTemp", the_world().pan.temp);
}

int GetTiltTemp(void) {
  auto lock = look();
  return report("GetTiltTemp", the_world().tilt.temp);
}

int PanReset(void) {
  auto lock = hold();
  sim::trace_call(false, "PanReset()");
  return sim::axis_reset(the_world().pan);
}

int TiltReset(void) {
  auto lock = hold();
  sim::trace_call(false, "TiltReset()");
  return sim::axis_reset(the_world().tilt);
}

int PanInitParam(void) {
  auto lock = hold();
  sim::trace_call(false, "PanInitParam()");
  the_world().controllers.pan_init_params++;
  return 0;
}

int TiltInitParam(void) {
  auto lock = hold();
  sim::trace_call(false, "TiltInitParam()");
  the_world().controllers.tilt_init_params++;
  return 0;
}

int GetMotorType(void) {
  auto lock = look();
  return report("GetMotorType", the_world().cam.motor_type);
}

int GetTiltHallSetting(void) {
  auto lock = look();
  return report("GetTiltHallSetting", the_world().cam.tilt_hall);
}

// ---- I2C --------------------------------------------------------------------------

// Fails (no acknowledge) while the sim.i2c_nacks countdown runs.
int Init_I2C(void) {
  auto lock = hold();
  sim::trace_call(false, "Init_I2C()");
  sim::Controllers& c = the_world().controllers;
  c.init_calls++;
  if (c.nacks_left > 0) {
    c.nacks_left--;
    return -1;
  }
  c.i2c_open = true;
  return 0;
}

int Release_I2C(void) {
  auto lock = hold();
  sim::trace_call(false, "Release_I2C()");
  the_world().controllers.i2c_open = false;
  return 0;
}

int SendI2C(int addr, int cmd, uint8_t* buf, int count) {
  auto lock = hold();
  sim::trace_call(false, "SendI2C(%d,%d,%d)", addr, cmd, count);
  sim::I2cDevice* dev = sim::i2c_device(the_world().controllers, addr);
  std::vector<uint8_t> bytes;
  if (!dev || !wire_bytes(cmd, buf, count, &bytes)) return -1;
  return dev->write(bytes.data(), count);
}

int ReadI2C(int addr, int cmd, uint8_t* buf, int count) {
  auto lock = hold();
  sim::trace_call(false, "ReadI2C(%d,%d,%d)", addr, cmd, count);
  sim::I2cDevice* dev = sim::i2c_device(the_world().controllers, addr);
  if (!dev || !buf || count < 1) return -1;
  uint8_t tx = static_cast<uint8_t>(cmd);
  return dev->read(&tx, 1, buf, count);
}

int ReadI2C_M(int addr, int cmd, uint8_t* tx, int txcount, uint8_t* rx, int rxcount) {
  auto lock = hold();
  sim::trace_call(false, "ReadI2C_M(%d,%d,%d,%d)", addr, cmd, txcount, rxcount);
  sim::I2cDevice* dev = sim::i2c_device(the_world().controllers, addr);
  std::vector<uint8_t> bytes;
  if (!dev || !rx || rxcount < 1 || !wire_bytes(cmd, tx, txcount, &bytes)) return -1;
  return dev->read(bytes.data(), txcount, rx, rxcount);
}

}  // extern "C"
