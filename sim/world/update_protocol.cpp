// The controllers' firmware-update protocol and its fault knobs.
#include "world/update_protocol.h"

#include <zlib.h>

#include <cstdio>
#include <cstring>

#include "world/controllers.h"
#include "core/core.h"
#include "world/world_parse.h"

namespace sim {

namespace {

constexpr int kPrepare = 0x22, kAnnounce = 0x91, kEndOfData = 0x92, kFrame = 0x93;
constexpr int kUpdateMode = 0x9a, kFrameStatus = 0x9b, kImageState = 0x9c, kCommit = 0x9d;
constexpr int kVersion = 0x30;
constexpr int kFrameCount = 1 + 2 + kFwFrameBytes + 1;  // command, number, data, checksum

// True when this event of frame is one the fault takes; counts the event.
bool fault_fires(FrameFault& f, int frame) {
  if (f.frame < 0 || f.frame != frame) return false;
  f.seen++;
  return f.times < 0 || f.seen <= f.times;
}

// Frames accepted so far.
int accepted_frames(const FirmwareUpdate& fw) { return static_cast<int>(fw.image.size()) / kFwFrameBytes; }

// Announce: enters update mode after a Prepare and starts a new transfer.
void announce(FirmwareUpdate& fw, const uint8_t* b) {
  if (fw.prepared && !fw.refuse) fw.update_mode = true;
  fw.prepared = false;
  if (!fw.update_mode) return;
  fw.announced = b[1] << 8 | b[2];
  fw.image.clear();
  fw.status.clear();
  fw.image_good = false;
}

// Xor of the frame number and the data matches the frame's last byte.
bool checksum_ok(const uint8_t* b) {
  uint8_t sum = 0;
  for (int i = 1; i < kFrameCount - 1; i++) sum ^= b[i];
  return sum == b[kFrameCount - 1];
}

// A data frame: stored when it is the next one, acknowledged by its status.
void frame_arrival(FirmwareUpdate& fw, const uint8_t* b, int count) {
  int number = b[1] << 8 | b[2];
  int accepted = accepted_frames(fw);
  bool ok = fw.update_mode && count == kFrameCount && checksum_ok(b) && number <= accepted;
  if (fault_fires(fw.fail, number)) ok = false;
  if (ok && number == accepted) fw.image.insert(fw.image.end(), b + 3, b + 3 + kFwFrameBytes);
  fw.status[number] = ok ? 1 : 0;
}

// End of data: the image is good when enough frames came and no fault says otherwise.
void end_of_data(FirmwareUpdate& fw) {
  int frames = accepted_frames(fw);
  fw.image_good = fw.update_mode && frames >= 1 &&
                  int64_t{frames} * kFwFrameBytes >= int64_t{fw.announced} * 10 && !fw.bad_image;
}

// Frame status: the number asked for (or the next, under fw_noecho) and the
// status of that frame's last arrival.
void frame_status(FirmwareUpdate& fw, const uint8_t* tx, int txcount, uint8_t* rx, int rxcount) {
  int number = txcount >= 3 ? tx[1] << 8 | tx[2] : 0;
  int answered = fault_fires(fw.noecho, number) ? (number + 1) & 0xffff : number;
  auto it = fw.status.find(number);
  uint8_t reply[3] = {static_cast<uint8_t>(answered >> 8), static_cast<uint8_t>(answered),
                      static_cast<uint8_t>(it == fw.status.end() ? 0 : it->second)};
  memcpy(rx, reply, static_cast<size_t>(rxcount < 3 ? rxcount : 3));
}

// The new firmware runs: version, bytes and CRC go on the bus.
void finish_restart(FirmwareUpdate& fw, const char* axis) {
  fw.version = fw.next_version < 0 ? (fw.version + 1) & 0xff : fw.next_version;
  fw.update_mode = false;
  fw.image_good = false;
  uLong crc = crc32(0L, fw.image.data(), static_cast<uInt>(fw.image.size()));
  char key[32], value[16];
  snprintf(key, sizeof key, "sim.%s.fw_version", axis);
  snprintf(value, sizeof value, "%d", fw.version);
  bus_write(Origin::Sim, key, value);
  snprintf(key, sizeof key, "sim.%s.fw_bytes", axis);
  snprintf(value, sizeof value, "%zu", fw.image.size());
  bus_write(Origin::Sim, key, value);
  snprintf(key, sizeof key, "sim.%s.fw_crc", axis);
  snprintf(value, sizeof value, "%08lx", crc);
  bus_write(Origin::Sim, key, value);
}

// "K" or "K,N" (N default 1, -1 every time), or empty for none.
bool parse_fault(const char* text, FrameFault* out) {
  FrameFault f;
  if (text[0] != '\0') {
    char head[16];
    const char* comma = strchr(text, ',');
    size_t len = comma ? static_cast<size_t>(comma - text) : strlen(text);
    if (len >= sizeof head) return false;
    memcpy(head, text, len);
    head[len] = '\0';
    f.times = 1;
    if (!parse_int(head, &f.frame) || f.frame < 0 || f.frame > 0xffff) return false;
    if (comma && (!parse_int(comma + 1, &f.times) || (f.times < 1 && f.times != -1))) return false;
  }
  *out = f;
  return true;
}

// An integer in lo..hi.
bool parse_in(const char* text, int lo, int hi, int* out) {
  int v = 0;
  if (!parse_int(text, &v) || v < lo || v > hi) return false;
  *out = v;
  return true;
}

// Sets a flag from a decimal integer, any non-zero value being 1.
bool parse_flag(const char* text, bool* out) {
  int v = 0;
  if (!parse_int(text, &v)) return false;
  *out = v != 0;
  return true;
}

// Applies knob name (after "fw_") to one controller; false for a bad value.
bool apply_knob(FirmwareUpdate& fw, const char* name, const char* value) {
  if (strcmp(name, "version") == 0) return parse_in(value, 0, 255, &fw.version);
  if (strcmp(name, "next_version") == 0) {
    if (value[0] != '\0') return parse_in(value, 0, 255, &fw.next_version);
    fw.next_version = -1;
    return true;
  }
  if (strcmp(name, "fail") == 0) return parse_fault(value, &fw.fail);
  if (strcmp(name, "noecho") == 0) return parse_fault(value, &fw.noecho);
  if (strcmp(name, "refuse") == 0) return parse_flag(value, &fw.refuse);
  if (strcmp(name, "bad_image") == 0) return parse_flag(value, &fw.bad_image);
  return true;  // fw_bytes, fw_crc: the camera's own report, not a setting
}

// Whether name (after "fw_") is a firmware knob.
bool knob_known(const char* name) {
  static const char* const kNames[] = {"version", "next_version", "fail", "noecho",
                                       "refuse", "bad_image", "bytes", "crc"};
  for (const char* n : kNames) {
    if (strcmp(n, name) == 0) return true;
  }
  return false;
}

}  // namespace

bool update_write(FirmwareUpdate& fw, const uint8_t* b, int count) {
  int cmd = count >= 1 ? b[0] : -1;
  if (cmd == kPrepare && count == 1) fw.prepared = true;
  else if (cmd == kAnnounce && count == 3) announce(fw, b);
  else if (cmd == kFrame && count >= 3) frame_arrival(fw, b, count);
  else if (cmd == kEndOfData && count == 2) end_of_data(fw);
  else if (cmd == kCommit && count == 2) {
    if (fw.update_mode && fw.image_good) fw.restart_left_ns = kFwRestartNs;
  } else {
    return false;
  }
  return true;
}

bool update_read(FirmwareUpdate& fw, const uint8_t* tx, int txcount, uint8_t* rx, int rxcount) {
  int cmd = tx != nullptr && txcount >= 1 ? tx[0] : -1;
  if (rx == nullptr || rxcount < 1) return false;
  memset(rx, 0, static_cast<size_t>(rxcount));
  if (cmd == kUpdateMode) rx[0] = fw.update_mode ? 1 : 0;
  else if (cmd == kImageState) rx[0] = fw.image_good ? 1 : 0;
  else if (cmd == kVersion) rx[0] = static_cast<uint8_t>(fw.version);
  else if (cmd == kFrameStatus) frame_status(fw, tx, txcount, rx, rxcount);
  else return false;
  return true;
}

bool update_holds_axis(const FirmwareUpdate& fw) { return fw.update_mode || update_restarting(fw); }

void firmware_step(Controllers& c, int64_t dt_ns) {
  struct { FirmwareUpdate& fw; const char* axis; } sides[] = {{c.pan.fw, "pan"}, {c.tilt.fw, "tilt"}};
  for (auto& s : sides) {
    if (!update_restarting(s.fw)) continue;
    s.fw.restart_left_ns -= dt_ns;
    if (!update_restarting(s.fw)) finish_restart(s.fw, s.axis);
  }
}

int firmware_knob(Controllers& c, const char* key, const char* value) {
  FirmwareUpdate* fw = nullptr;
  const char* name = nullptr;
  if (strncmp(key, "sim.pan.fw_", 11) == 0) fw = &c.pan.fw, name = key + 11;
  else if (strncmp(key, "sim.tilt.fw_", 12) == 0) fw = &c.tilt.fw, name = key + 12;
  if (fw == nullptr || !knob_known(name)) return -1;
  return apply_knob(*fw, name, value) ? 1 : 0;
}

}  // namespace sim
