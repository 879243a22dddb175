// Motor controllers on the I2C bus: register files and the device table.
#include "world/controllers.h"

#include <cstring>
#include <mutex>

#include "core/core.h"
#include "world/world.h"

namespace sim {

int MotorController::write(const uint8_t* bytes, int count) {
  if (update_restarting(fw)) return -1;
  if (update_write(fw, bytes, count)) return 0;
  if (count >= 2 && count <= 5) {
    uint32_t value = 0;
    for (int i = 1; i < count; i++) value = value << 8 | bytes[i];
    RegisterWrite w{bytes[0], value, count - 1};
    registers[w.reg] = value;
    register_writes[w.reg]++;
    write_log.push_back(w);
  } else {
    other_writes++;
  }
  return 0;
}

int MotorController::read(const uint8_t* tx, int txcount, uint8_t* rx, int rxcount) {
  reads++;
  if (update_restarting(fw)) return -1;
  if (update_read(fw, tx, txcount, rx, rxcount)) return 0;
  if (rx && rxcount > 0) memset(rx, 0, static_cast<size_t>(rxcount));
  return 0;
}

namespace {

// The motor controller at addr, or nullptr.
MotorController* motor_controller(Controllers& c, int addr) {
  if (addr == kPanAddr) return &c.pan;
  if (addr == kTiltAddr) return &c.tilt;
  return nullptr;
}

}  // namespace

I2cDevice* i2c_device(Controllers& c, int addr) { return motor_controller(c, addr); }

int controller_write_register(Controllers& c, int addr, int reg, uint32_t value, int width) {
  I2cDevice* dev = i2c_device(c, addr);
  if (!dev || width < 1 || width > 4) return -1;
  uint8_t bytes[5] = {static_cast<uint8_t>(reg)};
  for (int i = 0; i < width; i++) bytes[1 + i] = static_cast<uint8_t>(value >> (8 * (width - 1 - i)));
  return dev->write(bytes, width + 1);
}

bool controller_register(int addr, int reg, uint32_t* value) {
  std::lock_guard lock(big_lock());
  MotorController* mc = motor_controller(the_world().controllers, addr);
  if (!mc) return false;
  auto it = mc->registers.find(reg);
  if (it == mc->registers.end()) return false;
  if (value) *value = it->second;
  return true;
}

int controller_register_writes(int addr, int reg) {
  std::lock_guard lock(big_lock());
  MotorController* mc = motor_controller(the_world().controllers, addr);
  if (!mc) return 0;
  auto it = mc->register_writes.find(reg);
  return it == mc->register_writes.end() ? 0 : it->second;
}

std::vector<RegisterWrite> controller_write_log(int addr) {
  std::lock_guard lock(big_lock());
  MotorController* mc = motor_controller(the_world().controllers, addr);
  return mc ? mc->write_log : std::vector<RegisterWrite>{};
}

}  // namespace sim
