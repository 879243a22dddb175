// The two motor controllers as devices on I2C bus 2 (pan 0x28, tilt 0x29):
// their register files, the gains the driver keeps for them, and the I2C
// layer with its fault injection. The inspection functions at the end take
// sim::big_lock() themselves; everything else expects it held.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "world/update_protocol.h"

namespace sim {

constexpr int kControllerBus = 2;
constexpr int kPanAddr = 0x28;
constexpr int kTiltAddr = 0x29;
constexpr int kSetupWords = 84;  // Init_Setup_PID record: 12 blocks of 7 words

struct RegisterWrite {
  int reg;
  uint32_t value;
  int width;  // bytes, 1..4
};

// A device on the controllers' bus. Each transfer is answered as the device
// would: a write starts with its command byte; a read first sends tx (the
// command byte and any more) and then fills rx.
class I2cDevice {
 public:
  virtual ~I2cDevice() = default;
  // Returns 0, or -1 when the device does not acknowledge.
  virtual int write(const uint8_t* bytes, int count) = 0;
  virtual int read(const uint8_t* tx, int txcount, uint8_t* rx, int rxcount) = 0;
};

// A motor controller: the firmware-update protocol takes its own commands
// (update_protocol.h); any other write of one register byte and 1 to 4 value
// bytes, high byte first, sets that register; other reads answer zeros.
class MotorController : public I2cDevice {
 public:
  int write(const uint8_t* bytes, int count) override;
  int read(const uint8_t* tx, int txcount, uint8_t* rx, int rxcount) override;

  std::map<int, uint32_t> registers;       // register -> last value
  std::map<int, int> register_writes;      // register -> writes since power-on
  std::vector<RegisterWrite> write_log;    // every register write, in order
  int other_writes = 0;                    // writes that set no register
  int reads = 0;
  FirmwareUpdate fw;                       // the update protocol's state and knobs
};

// Write-and-read-back PID store of one controller (SetTorvan/GetTorvan).
struct TorvanPid {
  std::map<int, int> values;  // a -> b of the last SetTorvan(a, b, c)
  int last_c = 0;
};

struct Controllers {
  MotorController pan;
  MotorController tilt;

  // Gains and set-up handed to the driver
  int pid_p = 0, pid_i = 0, pid_d = 0;  // last PanPIDsetup
  int pid_setups = 0;
  int stop_pid_calls = 0;               // Set_stop_PID: holding gains
  std::array<uint32_t, kSetupWords> setup_record{};  // last Init_Setup_PID
  int setup_calls = 0;
  TorvanPid torvan_pan, torvan_tilt;
  int pan_init_params = 0, tilt_init_params = 0;

  // I2C layer
  int nacks_left = 0;   // Init_I2C calls still to fail
  int init_calls = 0;
  bool i2c_open = false;
};

// True while a controller restarts (the world must keep stepping).
inline bool firmware_active(const Controllers& c) {
  return update_restarting(c.pan.fw) || update_restarting(c.tilt.fw);
}

// The device at addr on the controllers' bus, or nullptr.
I2cDevice* i2c_device(Controllers& c, int addr);
// Register write as Pan_SendI2C_Advanced puts it on the wire; -1 for a bad
// width or no device.
int controller_write_register(Controllers& c, int addr, int reg, uint32_t value, int width);

// ---- inspection for tests (take the lock) -----------------------------------

// Last value written to reg of the controller at addr; false if never written.
bool controller_register(int addr, int reg, uint32_t* value);
// How many times reg has been written since power-on.
int controller_register_writes(int addr, int reg);
// Every register write since power-on, in order.
std::vector<RegisterWrite> controller_write_log(int addr);

}  // namespace sim
