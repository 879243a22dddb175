// Fuzz target: arbitrary values for ptz.run_mode, the listeners' parsers,
// patrol lists and scan keys.
// The first byte picks the receiver; the rest, cut to a bus value of at
// most 127 characters, is the value.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "control/control.h"
#include "control/listeners.h"
#include "control/run_mode.h"
#include "core.h"
#include "motion/limits.h"
#include "platform/exports.h"
#include "slewd/startup.h"
#include "tours/patrol.h"
#include "tours/presets.h"
#include "tours/scan.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  sim::clock_init(sim::ClockMode::Virtual);
  sim::transcript_keep(false);
  sim::bus_open(":memory:");
  sim::world_init();
  pthread_mutex_init(&gPanLimitMutex, nullptr);
  ClearPresets();
  return 0;
}

// A patrol list as the parser, the loader and a patrol of it see it; no
// preset is stored, so the search for a stop must give up by itself.
static void PatrolListInput(char* value) {
  sim::bus_put("ptz.patrol.set01", value);
  sim::bus_put("ptz.patrol.time01", value);
  sim::bus_put("ptz.patrol.speed01", value);
  int32_t row[kPatrolStops];
  ParsePatrolList(row, value);
  LoadPatrol();
  giPatrolTarget = 1;
  giPatrolStep = 0;
  giPatrolNextTime = 0;
  giRunMode = kModePatrol;
  RunPatrol(kModePatrol, 2000);
  giRunMode = kModeIdle;
}

// The same text in every key of a scan, through each key reader.
static void ScanKeyInput(const char* value) {
  static const char* const kKeys[] = {"ptz.scan.scan1.dir", "ptz.scan.scan1.speed",
                                      "ptz.scan.scan1.tilt_angle", "ptz.scan.scan1.focus",
                                      "ptz.scan.scan1.limit", "ptz.scan.scan1.zoom_position",
                                      "image.cam1.mirror"};
  for (const char* key : kKeys) sim::bus_put(key, value);
  ScanDirection(1);
  ScanSpeed(1);
  TiltAngleToSteps(ScanTiltAngle(1));
  GetFocus(1);
  ScanLimitOn(1);
  ScanZoomPosition(1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  char value[128];
  size_t n = size - 1 < 127 ? size - 1 : 127;
  memcpy(value, data + 1, n);
  value[n] = '\0';
  char key[] = "fuzz";
  switch (data[0] % 10) {
    case 0: OnRunMode(key, value); break;
    case 1: OnRunMode(nullptr, value); break;  // a replayed pattern line
    case 2: OnPid(key, value); break;
    case 3: OnMaxSpeed(key, value); break;
    case 4: OnRecoverTime(key, value); break;
    case 5: OnEastPos(key, value); break;
    case 6: GetPresetStr(value); break;
    case 8: PatrolListInput(value); break;
    case 9: ScanKeyInput(value); break;
    default: {
      int32_t a = 0, b = 0, c = 0;
      ParseAbs(value, &a, &b, &c);
      ParseRelative(value, &a, &b);
      ComputeManualSpeeds(value);
    }
  }
  // Keep the daemon from piling up requests the loop would act on.
  giNewMode = kModeIdle;
  giPatternRun = 0;
  return 0;
}
