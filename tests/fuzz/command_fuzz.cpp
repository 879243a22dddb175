// Fuzz target: arbitrary values for ptz.run_mode and the listeners' parsers.
// The first byte picks the receiver; the rest, cut to a bus value of at
// most 127 characters, is the value.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "control/control.h"
#include "control/listeners.h"
#include "control/run_mode.h"
#include "core.h"
#include "slewd/startup.h"
#include "tours/presets.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  sim::clock_init(sim::ClockMode::Virtual);
  sim::transcript_keep(false);
  sim::bus_open(":memory:");
  sim::world_init();
  pthread_mutex_init(&gPanLimitMutex, nullptr);
  ClearPresets();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  char value[128];
  size_t n = size - 1 < 127 ? size - 1 : 127;
  memcpy(value, data + 1, n);
  value[n] = '\0';
  char key[] = "fuzz";
  switch (data[0] % 8) {
    case 0: OnRunMode(key, value); break;
    case 1: OnRunMode(nullptr, value); break;  // a replayed pattern line
    case 2: OnPid(key, value); break;
    case 3: OnMaxSpeed(key, value); break;
    case 4: OnRecoverTime(key, value); break;
    case 5: OnEastPos(key, value); break;
    case 6: GetPresetStr(value); break;
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
