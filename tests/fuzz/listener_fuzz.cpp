// Fuzz target: sequences of bus writes to every key the daemon listens to,
// delivered to its registered listeners as the bus thread would. Each line
// of the input is one write: its first byte picks the key, the rest (cut to
// a bus value of at most 127 characters) is the value. Settings stay in
// force from line to line, so mirror on then a manual command is one input.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "control/control.h"
#include "control/listeners.h"
#include "core/core.h"
#include "motion/limits.h"
#include "slewd/startup.h"
#include "tours/presets.h"

// Every key with a listener, prefixes given as one key under them.
static const char* const kKeys[] = {
    "ptz.run_mode", "ptz.patrol.set01", "ptz.patrol.time01", "ptz.patrol.speed01",
    "ptz.lens.get_pos.zoom", "ptz.system.auto_flip", "ptz.manual.proportion",
    "ptz.system.recover_time", "ptz.system.max_speed", "ptz.schedule.mon",
    "ptz.schedule.enable", "ptz.preset.view_move", "ptz.preset.track_enable",
    "ptz.preset.track_id", "ptz.pattern.action", "ptz.system.up_limit",
    "ptz.system.down_limit", "ptz.manual.limit", "ptz.manual.right_limit",
    "ptz.manual.left_limit", "ptz.scan.scan1.limit", "ptz.scan.scan1.right_limit",
    "ptz.scan.scan1.left_limit", "ptz.scan.scan4.limit", "image.cam1.flip",
    "image.cam1.mirror", "ptz.manual.pan_speed", "ptz.manual.tilt_speed",
    "ptz.system.freeze", "ptz.system.east_pos", "encode.cam1.eis.enable",
    "encode.cam1.eis.fov", "encode.cam1.ois.enable", "ptz.PID"};
static constexpr size_t kKeyCount = sizeof kKeys / sizeof kKeys[0];

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  sim::clock_init(sim::ClockMode::Virtual);
  sim::transcript_keep(false);
  sim::bus_open(":memory:");
  sim::world_init();
  pthread_mutex_init(&gPanLimitMutex, nullptr);
  ClearPresets();
  RegisterListeners();
  return 0;
}

// One write: key picked by the first byte, the rest as value, delivered.
static void WriteLine(const uint8_t* line, size_t size) {
  if (size == 0) return;
  char value[128];
  size_t n = size - 1 < 127 ? size - 1 : 127;
  memcpy(value, line + 1, n);
  value[n] = '\0';
  if (memchr(value, '\0', n) != nullptr) return;  // the bus holds texts only
  sim::bus_write(sim::Origin::External, kKeys[line[0] % kKeyCount], value);
  sim::bus_deliver_pending();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const uint8_t* end = data + size;
  for (const uint8_t* p = data; p < end;) {
    const uint8_t* nl = static_cast<const uint8_t*>(memchr(p, '\n', end - p));
    const uint8_t* stop = nl ? nl : end;
    WriteLine(p, stop - p);
    p = stop + 1;
  }
  // Keep the daemon from piling up requests the loop would act on.
  giNewMode = kModeIdle;
  giPatternRun = 0;
  return 0;
}
