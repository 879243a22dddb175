// The run-mode state machine of the main loop.
#include "slewd/loop.h"

#include <ctime>

#include "control/bus_text.h"
#include "control/control.h"
#include "control/publish.h"
#include "mechanism/exercises.h"
#include "mechanism/motor_setup.h"
#include "motion/limits.h"
#include "motion/manual.h"
#include "motion/positioning.h"
#include "motion/view_move.h"
#include "platform/camstate.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "supervisor/recovery.h"
#include "tours/patrol.h"
#include "tours/pattern.h"
#include "tours/presets.h"
#include "tours/scan.h"
#include "tours/schedule.h"
#include "tours/tracking.h"

LoopLocals gLoop = {0, 0, 0, 0, 0, 0, 0, -1, -1, {0, 0, 0}};
int32_t giRecordShown = 0;

static constexpr int32_t kStopRetryTicks = 99;
static constexpr int32_t kHoldingGainTick = 300;
static constexpr int32_t kHealthTicks = 200;

// ---- Shared steps of the branches ---------------------------------------------

// Mode texts of ptz.mode_status, by code.
enum ModeText : int32_t { kTextManual = 0, kTextSequence = 1, kTextCurise = 2,
                          kTextAutopan = 3, kTextTrack = 4 };

// Writes a mode text once per change of code.
static void PutModeText(int32_t code, const char* text) {
  if (giModeStatus == code) return;
  kvlink_set("ptz.mode_status", text);
  giModeStatus = code;
}

// "manual" goes out when nothing else owns the head and the text differs.
static void ManualStatusRule() {
  if (giPatternRun != 0 || iTrackStatus != 0 || giModeStatus == kTextManual) return;
  kvlink_set("ptz.mode_status", "manual");
  giModeStatus = kTextManual;
}

static void MovingStatus() {
  SetPtStatus(giPatternRun == 1 ? kOwnerPattern : kOwnerDirect, kStatePosition);
}

static void OsdClear() { SetPresetOsd(""); }

static void BackToIdle() {
  giRunMode = kModeIdle;
  giNewMode = giRunMode.load();
}

static void ClearDeadlines() {
  giRecoverDeadline = -1;
  giScheduleDeadline = -1;
}

// Adds an offset to a position with the 65535 wrap of the step scale.
static int32_t OffsetPosition(int32_t position, int32_t offset) {
  int64_t target = (int64_t)position + offset;
  if (target < 0) target += 0xffff;
  if (target > 0xffff) target -= 0xffff;
  return (int32_t)(uint32_t)(uint64_t)target;
}

// ---- Branches -----------------------------------------------------------------

// Takes the mode asked for; the new mode's branch runs on the next tick.
static void IdleTakeNextMode() {
  switch (giNewMode) {
    case kModeManual:
      OsdClear();
      giRunMode = ManualMove(giNewMode);
      if (giNewMode != kModeManual) {
        os_printf("Mode=%d %d\n", (int)giRunMode, (int)giNewMode);
      }
      ManualStatusRule();
      break;
    case kModePatrol:
      OsdClear();
      PutModeText(kTextSequence, "sequence");
      break;
    case kModeScan:
      OsdClear();
      giRunMode = RunScan(giRunMode, giNewMode);
      PutModeText(kTextAutopan, "autopan");
      break;
    case kModeOisTest:
      giRunMode = RunOisTest(giRunMode, giNewMode);
      break;
    default:
      break;
  }
  giRunMode = giNewMode.load();
}

static void BranchIdle(LoopLocals* loop) {
  if (GetPanStatus() == 0 && GetTiltStatus() == 0) {
    loop->iStopRetry = 0;
    SetPtStatus(kOwnerDirect, kStateRest);
    if (iTrackStatus == 0) {
      giTrackLastPan = -1;
      giTrackLastTilt = -1;
      giTrackLastZoom = -1;
    }
  } else {
    if (loop->iStopRetry > kStopRetryTicks) {
      loop->iStopRetry = 0;
      giRunMode = ManualMove(kModeIdle);
    }
    loop->iStopRetry++;
  }
  ManualStatusRule();
  giPatrolPreset = 0;
  ApplyPanLimit(-1);
  if (giFreezeOn == 1) {
    int status = 0;
    GetLensStatus(&status);
    if (status == 0 || status == 4) {
      kvlink_set("encode.cam1.freeze", "off");
      giFreezeOn = 0;
    }
  }
  if (giRunMode == giNewMode) {
    bool deadlineIdle = giRecoverDeadline <= 0 || giScheduleDeadline <= 0;
    if (giPatternRun == 0 && deadlineIdle && loop->iIdleTick == kHoldingGainTick) Set_stop_PID();
    return;
  }
  IdleTakeNextMode();
}

static void BranchManual(LoopLocals* loop) {
  SetPtStatus(giPatternRun == 1 ? kOwnerPattern : kOwnerDirect, kStateSpeed);
  ManualStatusRule();
  giRunMode = ManualMove(giNewMode);
  ArmRecoverRule(loop->now_s);
  ArmScheduleRule(loop->now_s);
  GuardsLive();
  OsdClear();
  loop->iIdleTick = 0;
}

// Goes to the preset row, or moves nothing for a number that names no slot.
static void GoToPresetRow(int32_t row) {
  if (row < 0 || row > kPresetLast) {
    giRunMode = GoPreset(-1, -1, -1, -1, -1, giMaxSpeed);
    return;
  }
  const PresetRecord& p = gPreset[row];
  giRunMode = GoPreset(p.pan, p.tilt, p.zoom, p.focus, p.prefocus, giMaxSpeed);
}

static void BranchPreset(LoopLocals* loop) {
  GuardsBeforePreset();
  MovingStatus();
  os_printf("@@@@@@@@@@2PRESET=%d %d\n", 2, (int)giPresetTarget);
  ManualStatusRule();
  int32_t target = giPresetTarget;
  GoToPresetRow(target);
  if (giPresetTrackEnable == 1 && giPatternRun == 0 && giPresetTrackId == target) {
    if (iTrackStatus == 0) {
      StartTracker();
      iTrackStatus = 1;
    }
    giNewMode = kModeTrack;
  } else {
    BackToIdle();
  }
  loop->iIdleTick = 0;
}

static void BranchPatrol(LoopLocals* loop) {
  giRecoverDeadline = -1;
  loop->iIdleTick = 0;
  GuardsLive();
  int32_t next = RunPatrol(giNewMode, loop->now_s);
  // Scan and ois_test start on idle's way into them: hand those over there.
  giRunMode = (next == kModeScan || next == kModeOisTest) ? kModeIdle : next;
}

static void BranchPattern(LoopLocals* loop) {
  if (giPatternRun == 1) return;
  PutModeText(kTextCurise, "curise");
  ClearDeadlines();
  loop->iIdleTick = 0;
  giRunMode = PatternStart(loop->now_s, loop->now_ms);
  if (giRunMode == kModePattern) {
    giPatternRun = 1;
    loop->iPatternOpen = 1;
    BackToIdle();
  }
}

static void BranchScan(LoopLocals* loop) {
  PutModeText(kTextAutopan, "autopan");
  giRunMode = RunScan(giRunMode, giNewMode);
  ClearDeadlines();
  loop->iIdleTick = 0;
  GuardsLive();
}

// What abs and relative do before their move.
static void PositionMoveStart() {
  OsdClear();
  MovingStatus();
  ManualStatusRule();
}

static void BranchAbs(LoopLocals* loop) {
  PositionMoveStart();
  GoPreset(giAbsPan, giAbsTilt, giAbsZoom, -1, -1, giMaxSpeed);
  BackToIdle();
  loop->iIdleTick = 0;
  GuardsAfterAbs();
}

static void BranchRelative(LoopLocals* loop) {
  PositionMoveStart();
  int32_t pan = OffsetPosition(giPanPos, giRelPan);
  int32_t tilt = OffsetPosition(giTiltPos, giRelTilt);
  GoPreset(pan, tilt, -1, -1, -1, giMaxSpeed);
  BackToIdle();
  ArmRecoverRule(loop->now_s);
  ArmScheduleRule(loop->now_s);
  loop->iIdleTick = 0;
  GuardsLive();
  if (giPatternRun == 1) {
    if (giPatternView == 1) {
      giPatternView = 0;
    } else {
      giPatternRun = 0;
    }
  }
}

static void BranchSpdDry() {
  SetPtStatus(kOwnerDirect, kStateSpdDry);
  os_puts("Spd dry on !!!!!!!!!!");
  kvlink_set("ptz.spddry_status", "on");
  SpeedDry();
  if (giPidP != 0 || giPidI != 0 || giPidD != 0) {
    os_printf("let PT static ip:%d iI:%d iD:%d\n", giStaticP, giStaticI, giStaticD);
    PanPIDsetup(giStaticP, giStaticI, giStaticD);
  }
  BackToIdle();
  kvlink_set("ptz.spddry_status", "off");
  os_puts("Spd dry off !!!!!!!!!!");
}

static void BranchTrack(LoopLocals* loop) {
  PutModeText(kTextTrack, "track");
  ClearDeadlines();
  loop->iIdleTick = 0;
  GuardsLive();
  TrackPass();
}

static void BranchTrackPosition(LoopLocals* loop) {
  ClearDeadlines();
  loop->iIdleTick = 0;
  TrackPositionPass();
}

static void BranchOisTest() {
  SetPtStatus(kOwnerDirect, kStateOisTest);
  giRunMode = RunOisTest(giRunMode, giNewMode);
}

static void RunBranch(LoopLocals* loop) {
  switch (giRunMode.load()) {
    case kModeIdle: BranchIdle(loop); break;
    case kModeManual: BranchManual(loop); break;
    case kModePreset: BranchPreset(loop); break;
    case kModePatrol: BranchPatrol(loop); break;
    case kModePattern: BranchPattern(loop); break;
    case kModeScan: BranchScan(loop); break;
    case kModeAbs: BranchAbs(loop); break;
    case kModeRelative: BranchRelative(loop); break;
    case kModeSpdDry: BranchSpdDry(); break;
    case kModeTrack: BranchTrack(loop); break;
    case kModeTrackPosition: BranchTrackPosition(loop); break;
    case kModeOisTest: BranchOisTest(); break;
    default: break;
  }
}

// ---- Tick steps before the branch ---------------------------------------------

static void ReadClock(LoopLocals* loop) {
  struct timespec ts = {};
  os_clock_raw(&ts);
  loop->now_s = (int32_t)(uint32_t)(uint64_t)ts.tv_sec;
  loop->now_ms = (int32_t)(ts.tv_nsec / 1000000);
}

static void ViewMoveRequest() {
  if (giViewMove != 1) return;
  int32_t pan = giRelPan, tilt = giRelTilt;
  int32_t result = RunViewMove(&pan, &tilt);
  giRelPan = pan;
  giRelTilt = tilt;
  if (result == 0) giNewMode = kModeRelative;
  giViewMove = 0;
}

// Publishes the whole seconds of a running recording as they change. Out
// of a recording the count starts over, so that the next one shows its 1.
static void RecordTimer(const LoopLocals* loop) {
  if (giPatternRec != 1) {
    giRecordShown = 0;
    return;
  }
  int32_t start = (int32_t)(giPatternRecStart / 1000);
  int32_t shown = loop->now_s - start;
  if (start < loop->now_s && giRecordShown != shown) {
    giRecordShown = shown;
    BusWriteInt("ptz.pattern.record_time", shown);
  }
}

static void ScheduleChange(LoopLocals* loop) {
  if (giScheduleEnable != 1) return;
  loop->iScheduleMode = CheckSchedule();
  if (loop->iScheduleMode == loop->iScheduleOldMode || giRunMode == kModeManual ||
      loop->iScheduleMode == -1) {
    return;
  }
  os_printf("iScheduleOldMode=%d iScheduleMode=%d\n", loop->iScheduleOldMode, loop->iScheduleMode);
  loop->iScheduleOldMode = loop->iScheduleMode;
  ApplyScheduleTarget(loop->iScheduleMode);
  giNewMode = loop->iScheduleMode & 0xff;
  ArmScheduleRule(loop->now_s);
}

static void PatternEnd(LoopLocals* loop) {
  if (loop->iPatternOpen != 1 || giPatternRun != 0) return;
  PatternClose();
  loop->iPatternOpen = 0;
  RearmAfterPattern(loop->now_s, loop->iScheduleMode);
}

void LoopTick(LoopLocals* loop) {
  ReadClock(loop);
  RecoverTimeChanged(loop->now_s, &loop->iLastRecoverTime);
  ViewMoveRequest();
  if (giScheduleReload == 1) {
    giScheduleReload = 0;
    LoadSchedule();
  }
  RecordTimer(loop);
  ScheduleChange(loop);
  if (giPatternRun == 1) PatternStep(loop->now_s, loop->now_ms);
  PatternEnd(loop);
  RunRecoveryTests(loop->now_s, loop->iScheduleMode);
  RunBranch(loop);
  EisRtTimer();
  if (loop->iHealthTick > kHealthTicks) {
    loop->iHealthTick = 0;
    HealthPass(&loop->health);
  }
  loop->iHealthTick++;
  CountTick(&loop->iIdleTick);
  UpdatePosition();
  os_usleep(10000);
  if (giPatrolReload == 1) {
    giPatrolReload = 0;
    LoadPatrol();
  }
}
