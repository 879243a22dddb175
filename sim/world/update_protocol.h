// The motor controllers' firmware-update protocol, with the knobs that make
// it fail: Prepare (0x22) and Announce (0x91) enter update mode, data frames
// (0x93) are acknowledged through the frame status (0x9b), End of data (0x92)
// checks the image (0x9c), Commit (0x9d) restarts into the new firmware,
// whose version 0x30 reads. Everything here expects sim::big_lock() held.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

namespace sim {

struct Controllers;

constexpr int kFwFrameBytes = 240;                 // data bytes of a frame
constexpr int64_t kFwRestartNs = 2000000000LL;     // restart after a commit

// A fault aimed at one frame: the first `times` events of it (-1: every one).
struct FrameFault {
  int frame = -1;  // -1: none
  int times = 0;
  int seen = 0;    // events of that frame since the knob was written
};

struct FirmwareUpdate {
  // Knobs
  int version = 1;
  int next_version = -1;  // -1: version + 1
  bool refuse = false;
  FrameFault fail;        // data frames answered with status 0
  FrameFault noecho;      // status reads answered with the next frame's number
  bool bad_image = false;

  // Protocol
  bool prepared = false;
  bool update_mode = false;
  int announced = 0;            // count of the Announce: bytes / 10
  std::vector<uint8_t> image;   // data of the accepted frames, in order
  std::map<int, int> status;    // frame number -> status of its last arrival
  bool image_good = false;
  int64_t restart_left_ns = 0;  // > 0 while restarting after a commit
};

// Acts on a write of the protocol; false when the write is not one of its.
bool update_write(FirmwareUpdate& fw, const uint8_t* bytes, int count);
// Answers a read of the protocol; false when the read is not one of its.
bool update_read(FirmwareUpdate& fw, const uint8_t* tx, int txcount, uint8_t* rx, int rxcount);
// While restarting the controller answers nothing.
inline bool update_restarting(const FirmwareUpdate& fw) { return fw.restart_left_ns > 0; }
// In update mode or restarting the axis refuses moves.
bool update_holds_axis(const FirmwareUpdate& fw);

// Advances restarts; at the end of one the new firmware runs and the camera
// writes sim.<axis>.fw_version, fw_bytes and fw_crc.
void firmware_step(Controllers& c, int64_t dt_ns);
// Applies a knob sim.pan.fw_* or sim.tilt.fw_*: 1 applied, 0 bad value,
// -1 not a firmware knob.
int firmware_knob(Controllers& c, const char* key, const char* value);

}  // namespace sim
