// Fuzz target: bus writes to every key the daemon listens to, one a line: the
// first byte picks the key, the rest (at most 127 characters) is the value.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "control/control.h"
#include "control/listeners.h"
#include "core/core.h"
#include "motion/limits.h"
#include "slewd/startup.h"
#include "tours/presets.h"

static const char* const kKeys[] = {
    "ptz.run_mode", "ptz.patrol.set01", "ptz.patrol.time01", "ptz.patrol.speed01", "ptz.lens.get_pos.zoom",
    "ptz.system.auto_flip", "ptz.manual.proportion", "ptz.system.recover_time", "ptz.system.max_speed",
    "ptz.schedule.mon", "ptz.schedule.enable", "ptz.preset.view_move", "ptz.preset.track_enable",
    "ptz.preset.track_id", "ptz.pattern.action", "ptz.system.up_limit", "ptz.system.down_limit", "ptz.manual.limit",
    "ptz.manual.right_limit", "ptz.manual.left_limit", "ptz.scan.scan1.limit", "ptz.scan.scan1.right_limit",
    "ptz.scan.scan1.left_limit", "ptz.scan.scan4.limit", "image.cam1.flip", "image.cam1.mirror",
    "ptz.manual.pan_speed", "ptz.manual.tilt_speed", "ptz.system.freeze", "ptz.system.east_pos",
    "encode.cam1.eis.enable", "encode.cam1.eis.fov", "encode.cam1.ois.enable", "ptz.PID"};

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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  for (const uint8_t *p = data, *end = data + size; p < end;) {
    const uint8_t* nl = static_cast<const uint8_t*>(memchr(p, '\n', end - p));
    size_t length = (nl ? nl : end) - p;
    char value[128];
    size_t n = length == 0 ? 0 : length - 1 < 127 ? length - 1 : 127;
    memcpy(value, p + 1, n);
    value[n] = '\0';
    if (length > 0 && memchr(value, '\0', n) == nullptr) {  // the bus holds texts only
      sim::bus_write(sim::Origin::External, kKeys[p[0] % (sizeof kKeys / sizeof kKeys[0])], value);
      sim::bus_deliver_pending();
    }
    p += length + 1;
  }
  // Keep the daemon from piling up requests the loop would act on.
  giNewMode = kModeIdle;
  giPatternRun = 0;
  return 0;
}
