// OnRunMode: finds the verb of a command, records what it asks for in the
// control state and returns; the main loop does the work.
#include "control/run_mode.h"

#include <cstdint>
#include <cstring>

#include "control/bus_text.h"
#include "control/control.h"
#include "motion/limits.h"
#include "motion/positioning.h"
#include "platform/camstate.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "slewd/startup.h"
#include "supervisor/recovery.h"
#include "tours/pattern.h"
#include "tours/presets.h"
#include "tours/tracking.h"

// ---- Number lists -------------------------------------------------------------

static constexpr size_t kFieldSize = 64;  // a field holds at most 63 characters

// Walks a number list: digits and '-' build a field wherever they stand,
// blanks are skipped, any other character ends the field. Calls store(n,
// value, atSeparator) for each field; characters past 63 in a field are
// dropped.
template <typename Store>
static void WalkNumberList(const char* text, Store store) {
  char field[kFieldSize];
  size_t length = 0;
  int count = 0;
  for (const char* p = text; *p != '\0'; p++) {
    if ((*p >= '0' && *p <= '9') || *p == '-') {
      if (length < kFieldSize - 1) field[length++] = *p;
    } else if (*p != ' ') {
      field[length] = '\0';
      store(count++, TextToInt(field), true);
      length = 0;
    }
  }
  if (length > 0) {
    field[length] = '\0';
    store(count, TextToInt(field), false);
  }
}

int ParseAbs(const char* text, int32_t* first, int32_t* second, int32_t* third) {
  int32_t* const outputs[3] = {first, second, third};
  WalkNumberList(text, [&](int n, int32_t value, bool) {
    if (n < 3) *outputs[n] = value;
  });
  return 0;
}

int ParseRelative(const char* text, int32_t* first, int32_t* second) {
  WalkNumberList(text, [&](int n, int32_t value, bool atSeparator) {
    if (n == 0 && atSeparator) *first = value;
    else *second = value;
  });
  return 0;
}

// ---- Common steps ------------------------------------------------------------

// A verb that asks for no mode of its own (limit:, clr_pattern:, view:)
// leaves the head idle rather than in a track/idle see-saw.
static void QuietClose() {
  if (iTrackStatus != 1) return;
  iTrackStatus = 0;
  StopTracker();
  if (giNewMode == kModeTrack) giNewMode = kModeIdle;
}

static void PlainClose() {
  if (iTrackStatus != 1) return;
  os_puts("Close Track");
  iTrackStatus = 0;
  StopTracker();
}

static void NamedClose(const char* line) {
  if (iTrackStatus != 1) return;
  os_puts(line);
  giNewMode = kModeIdle;
  iTrackStatus = 0;
  StopTracker();
}

// Recovery deadlines as a command arms them, from a fresh clock reading.
static void ArmTimers() {
  int32_t now = NowSeconds();
  ArmRecoverRule(now);
  ArmScheduleRule(now);
}

// Arms each deadline only while the guard of its side is live.
static void ArmTimersGuarded(int32_t recoverArm, int32_t scheduleArm) {
  int32_t now = NowSeconds();
  if (recoverArm >= 0) ArmRecoverRule(now);
  if (scheduleArm >= 0) ArmScheduleRule(now);
}

// ---- Manual speeds ------------------------------------------------------------

// Divides a non-zero speed by the multiple; never lets it fall to 0.
static int32_t Proportion(int32_t speed, double multiple) {
  if (speed == 0) return 0;
  int32_t scaled = TruncToInt32((double)speed / multiple);
  if (scaled == 0) scaled = speed > 0 ? 1 : -1;
  return scaled;
}

// Bounds the magnitude of a speed to limit, keeping its sign.
static int32_t LimitMagnitude(int32_t speed, int64_t limit) {
  int64_t magnitude = speed < 0 ? -(int64_t)speed : speed;
  if (magnitude <= limit) return speed;
  return Wrap32(speed < 0 ? -limit : limit);
}

void ComputeManualSpeeds(const char* args) {
  int32_t pan = 0, tilt = 0, zoom = 0;
  ParseAbs(args, &pan, &tilt, &zoom);
  if (giImageMirror == 1) pan = Wrap32(-(int64_t)pan);  // -INT32_MIN wraps, as on the camera
  if (giImageFlip == 1) tilt = Wrap32(-(int64_t)tilt);
  if (pan > giMaxSpeed) pan = giMaxSpeed;
  if (tilt > giMaxSpeed) tilt = giMaxSpeed;
  giManualZoom = zoom;
  int32_t panPercent = giManualPanSpeed, tiltPercent = giManualTiltSpeed;
  pan = Wrap32((int64_t)pan * panPercent / 100 * 10);
  tilt = Wrap32((int64_t)tilt * tiltPercent / 100 * 10);
  double multiple = 0.0;
  if (giManualProportion == 1) {
    double focal = 0.0;
    GetFocalLength(&focal);
    if (!(gfBaseFocalLength > focal)) {
      multiple = focal / gfBaseFocalLength;
      pan = Proportion(pan, multiple);
      tilt = Proportion(tilt, multiple);
    }
  }
  pan = LimitMagnitude(pan, (int64_t)panPercent * 10);
  tilt = LimitMagnitude(tilt, (int64_t)tiltPercent * 10);
  giManualPan = pan;
  giManualTilt = tilt;
  os_printf("Pan Speed:%d Tilt Speed:%d multiple:%f\n", pan, tilt, multiple);
}

// ---- The verbs ----------------------------------------------------------------

static void VerbManual(char* value, const char* args) {
  ComputeManualSpeeds(args);
  giNewMode = kModeManual;
  PatternRecordEvent(value);
  PlainClose();
}

static void VerbGoPreset(char* value, const char* args) {
  NamedClose("Close Track go_preset");
  int32_t number = TextToInt(args);
  giPresetTarget = number;
  os_printf("Go Point:%d\n", number);
  if (number > 511) giPresetTarget = 512;
  if (giPatternRun == 1) giPatternPreset = 1;
  giNewMode = kModePreset;
  if (giPresetTrackEnable == 1 && giPresetTrackId == giPresetTarget) PublishTrackPreset(giPresetTarget);
  PatternRecordEvent(value);
  ArmTimersGuarded(giRecoverArmPreset, giScheduleArmPreset);
}

static void VerbSetPreset(const char* args) {
  int32_t id = 0, focus = 0;
  char name[kBusValueSize] = "";
  if (ParseKeyInt(args, "id:", &id) == 0) {
    ParseKeyInt(args, "focus:", &focus);
    const char* named = strstr(args, "name:");
    if (named != nullptr) {
      CopyText(name, sizeof name, named + 5);
      os_printf("cName=%s\n", name);
    }
  } else {
    id = TextToInt(args);
  }
  os_printf("Set Point:%d focus mode:%d name:%s\n", id, focus, name);
  if (id >= 0 && id <= kPresetLast) {
    SetPreset(id, giPanPos, giTiltPos, giZoomPos, focus, name);
    os_printf("###iPosition=%d,giPanPos=%d,giTiltPos=%d\n", id, (int)giPanPos, (int)giTiltPos);
  }
  giNewMode = kModeIdle;
  QuietClose();
  ArmTimers();
}

static void VerbClrPreset(const char* args) {
  int32_t number = TextToInt(args);
  if (number >= 0 && number <= kPresetLast) CleanPreset(number);
  giNewMode = kModeIdle;
  QuietClose();
  ArmTimers();
}

static void VerbClrPattern(const char* args) {
  PatternDelete(TextToInt(args));
  QuietClose();
}

// pattern:, patrol:, scan: store a number and ask for a mode.
static void VerbNumberedMode(Shared& target, int32_t mode, const char* args) {
  target = TextToInt(args);
  giNewMode = mode;
  QuietClose();
}

static void VerbShock() {
  os_puts("in shock mode");
  giNewMode = kModeSpdDry;
  QuietClose();
}

static void VerbOisTest() {
  os_puts("in ois test");
  giOisPan = giPanPos.load();
  giOisTilt = giTiltPos.load();
  giNewMode = kModeOisTest;
  QuietClose();
}

static void VerbAbs(char* value, const char* args) {
  NamedClose("Close Track abs");
  int32_t pan = giAbsPan, tilt = giAbsTilt, zoom = giAbsZoom;
  ParseAbs(args, &pan, &tilt, &zoom);
  if (pan > 65535) pan = 65535;
  if (pan < 0) pan = -1;
  giAbsPan = pan;
  giAbsTilt = tilt;
  giAbsZoom = zoom;
  giNewMode = kModeAbs;
  PatternRecordEvent(value);
  ArmTimersGuarded(giRecoverArmAbs, giScheduleArmAbs);
}

static void VerbAngle(char* value, const char* args) {
  int32_t pan = 0, tilt = 0, zoom = giAbsZoom;
  ParseAbs(args, &pan, &tilt, &zoom);
  giAbsZoom = zoom;
  if (pan >= 0) giAbsPan = (int32_t)((int64_t)pan * 65535 / 360);
  giAbsTilt = tilt < -20 ? -1 : (int32_t)(((int64_t)tilt + 27) * 65535 / 360);
  giNewMode = kModeAbs;
  PatternRecordEvent(value);
  QuietClose();
}

static void VerbRelative(const char* args) {
  int32_t pan = giRelPan, tilt = giRelTilt;
  ParseRelative(args, &pan, &tilt);
  if (pan > 32767) pan = 32767;
  if (pan < -32767) pan = -32767;
  giRelPan = pan;
  giRelTilt = tilt;
  giNewMode = kModeRelative;
  QuietClose();
}

static void VerbLimit(const char* args) {
  SetLimitHere(args);
  QuietClose();
}

static void VerbView(const char* args) {
  if (giPatternRun == 1) giPatternView = 1;
  kvlink_set("ptz.preset.view_move", args);
  QuietClose();
}

static void VerbStop(char* value) {
  PatternRecordEvent(value);
  giNewMode = kModeIdle;
  giManualZoom = 0;
  QuietClose();
  ArmTimers();
}

// lock: and auto: take "all" (every slot) or one preset number.
static void VerbPresetFocus(int (*apply)(int32_t), const char* args) {
  apply(strcmp(args, "all") == 0 ? -1 : TextToInt(args));
}

// ---- Dispatch -----------------------------------------------------------------

enum VerbId {
  kVerbManual, kVerbGoPreset, kVerbSetPreset, kVerbClrPreset, kVerbClrPattern,
  kVerbPattern, kVerbPatrol, kVerbScan, kVerbShock, kVerbOisTest, kVerbAbs,
  kVerbAngle, kVerbRelative, kVerbLimit, kVerbView, kVerbTrack,
  kVerbSetTrackPosition, kVerbGoTrackPosition, kVerbSetTrackRun, kVerbStop,
  kVerbLock, kVerbAuto,
};

struct Verb {
  const char* text;
  VerbId id;
  bool inReplay;  // carried out while a pattern plays
};

// In order of search.
static const Verb kVerbs[] = {
    {"manual:", kVerbManual, true},
    {"go_preset:", kVerbGoPreset, true},
    {"set_preset:", kVerbSetPreset, true},
    {"clr_preset:", kVerbClrPreset, true},
    {"clr_pattern:", kVerbClrPattern, false},
    {"pattern:", kVerbPattern, false},
    {"patrol:", kVerbPatrol, false},
    {"scan:", kVerbScan, false},
    {"shock", kVerbShock, false},
    {"ois_test", kVerbOisTest, false},
    {"abs:", kVerbAbs, true},
    {"angle:", kVerbAngle, true},
    {"relative:", kVerbRelative, true},
    {"limit:", kVerbLimit, true},
    {"view:", kVerbView, true},
    {"track:", kVerbTrack, true},
    {"set_track_position", kVerbSetTrackPosition, true},
    {"go_track_position", kVerbGoTrackPosition, true},
    {"set_track_run:", kVerbSetTrackRun, true},
    {"stop", kVerbStop, true},
    {"lock:", kVerbLock, true},
    {"auto:", kVerbAuto, true},
};

// Carries out one verb; args is the text behind it.
static void RunVerb(VerbId id, char* value, char* args) {
  switch (id) {
    case kVerbManual: VerbManual(value, args); break;
    case kVerbGoPreset: VerbGoPreset(value, args); break;
    case kVerbSetPreset: VerbSetPreset(args); break;
    case kVerbClrPreset: VerbClrPreset(args); break;
    case kVerbClrPattern: VerbClrPattern(args); break;
    case kVerbPattern: VerbNumberedMode(giPatternTarget, kModePattern, args); break;
    case kVerbPatrol: VerbNumberedMode(giPatrolTarget, kModePatrol, args); break;
    case kVerbScan:
      os_puts("in Sacn mode");
      VerbNumberedMode(giScanTarget, kModeScan, args);
      break;
    case kVerbShock: VerbShock(); break;
    case kVerbOisTest: VerbOisTest(); break;
    case kVerbAbs: VerbAbs(value, args); break;
    case kVerbAngle: VerbAngle(value, args); break;
    case kVerbRelative: VerbRelative(args); break;
    case kVerbLimit: VerbLimit(args); break;
    case kVerbView: VerbView(args); break;
    case kVerbTrack: TrackCommand(args); break;
    case kVerbSetTrackPosition:
      NamedClose("Close Track set_track_position");
      SetTrackPositionCommand();
      break;
    case kVerbGoTrackPosition:
      NamedClose("Close Track go_track_position");
      GoTrackPositionCommand();
      break;
    case kVerbSetTrackRun:
      NamedClose("Close Track set_track_run");
      SetTrackRunCommand(args);
      break;
    case kVerbStop: VerbStop(value); break;
    case kVerbLock: VerbPresetFocus(LockPresetFocus, args); break;
    case kVerbAuto: VerbPresetFocus(AutoPresetFocus, args); break;
  }
}

void OnRunMode(char* first, char* value) {
  if (first != nullptr) giPatternRun = 0;
  if (value == nullptr) return;
  for (const Verb& verb : kVerbs) {
    if (!verb.inReplay && giPatternRun != 0) continue;
    char* found = strstr(value, verb.text);
    if (found == nullptr) continue;
    RunVerb(verb.id, value, found + strlen(verb.text));
    return;
  }
}
