// Fuzz target: the daemon's parsers and the pattern player. The first byte
// picks the receiver; the rest, cut to 127 characters, is the value, or, whole, a pattern file.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "control/bus_text.h"
#include "control/listeners.h"
#include "control/publish.h"
#include "control/run_mode.h"
#include "core/core.h"
#include "motion/limits.h"
#include "motion/view_move.h"
#include "platform/exports.h"
#include "platform/kvlink.h"
#include "slewd/startup.h"
#include "tours/patrol.h"
#include "tours/pattern.h"
#include "tours/presets.h"
#include "tours/scan.h"
#include "tours/schedule.h"
#include "tours/tracking.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  sim::clock_init(sim::ClockMode::Virtual);
  sim::transcript_keep(false);
  sim::bus_open(":memory:");
  char root[] = "/tmp/command_fuzz.XXXXXX";
  if (mkdtemp(root) == nullptr) abort();
  sim::sandbox_set_root(root);
  sim::sandbox_make_camera_folders();
  sim::world_init();
  pthread_mutex_init(&gPanLimitMutex, nullptr);
  ClearPresets();
  return 0;
}

// Bytes played as stored pattern 1, every line due at once, until playback
// ends, after 64 steps, or after 0.5 s of virtual moves.
static void PlayPatternFile(const uint8_t* data, size_t size) {
  char path[4096];
  sim::sandbox_path("/mnt/nand/pattern1.path", path, sizeof path);
  FILE* file = fopen(path, "wb");
  if (file == nullptr) return;
  fwrite(data, 1, size, file);
  fclose(file);
  giPatternTarget = 1;
  giPatternRun = 1;
  int32_t now_s = NowSeconds();
  int64_t virtualEnd = sim::now_ns() + 500000000LL;
  PatternStart(now_s, 0);
  for (int step = 0; step < 64 && giPatternRun == 1 && sim::now_ns() < virtualEnd; step++) {
    now_s += 2200000;  // past the longest delay a line can hold
    PatternStep(now_s, 0);
  }
  PatternClose();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  char value[128];
  size_t n = size - 1 < 127 ? size - 1 : 127;
  memcpy(value, data + 1, n);
  value[n] = '\0';
  char key[] = "fuzz";
  int32_t a = 0, b = 0, c = 0, patrol[kPatrolStops];
  ScheduleEntry row[kScheduleEntries];
  switch (data[0] % 15) {
    case 0: OnRunMode(key, value); break;
    case 1: OnRunMode(nullptr, value); break;  // a replayed pattern line
    case 2: OnPid(key, value); break;
    case 3: OnMaxSpeed(key, value); break;
    case 4: OnRecoverTime(key, value); break;
    case 5:
      OnEastPos(key, value);
      SetDirectionOsd(giPanPos, giEastPos);
      break;
    case 6: GetPresetStr(value); break;
    case 8:  // a patrol list through the parser, the loader and a patrol of
             // unstored presets, whose search for a stop must give up
      for (const char* list : {"set01", "time01", "speed01"})
        sim::bus_put((std::string("ptz.patrol.") + list).c_str(), value);
      ParsePatrolList(patrol, value);
      LoadPatrol();
      giPatrolTarget = 1;
      giPatrolStep = giPatrolNextTime = 0;
      giRunMode = kModePatrol;
      RunPatrol(kModePatrol, 2000);
      giRunMode = kModeIdle;
      break;
    case 9:  // the same text in every key of a scan, through each reader
      for (const char* scanKey : {"dir", "speed", "tilt_angle", "focus", "limit", "zoom_position"})
        sim::bus_put((std::string("ptz.scan.scan1.") + scanKey).c_str(), value);
      sim::bus_put("image.cam1.mirror", value);
      ScanDirection(1), ScanSpeed(1), TiltAngleToSteps(ScanTiltAngle(1));
      GetFocus(1), ScanLimitOn(1), ScanZoomPosition(1);
      break;
    case 10: PlayPatternFile(data + 1, size - 1); break;
    case 11:  // mirror, flip and EIS from the value's first byte
      giImageMirror = value[0] & 1;
      giImageFlip = (value[0] >> 1) & 1;
      giEisEnable = (value[0] >> 2) & 1;
      kvlink_set("ptz.preset.view_move", value);
      RunViewMove(&a, &b);
      break;
    case 12: ParseScheduleDay("fuzz", value, row); break;
    case 13: ApplyScheduleTarget(ParseScheduleAction(value)); break;
    case 14: ParseTrackPosition(value, &a, &b); break;
    default:
      ParseAbs(value, &a, &b, &c);
      ParseRelative(value, &a, &b);
      ComputeManualSpeeds(value);
  }
  // Keep the daemon from piling up requests the loop would act on.
  giNewMode = kModeIdle;
  giPatternRun = 0;
  iTrackStatus = 0;
  return 0;
}
