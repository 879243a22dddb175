// The control state: process-wide variables that the listeners, the command
// language and the main loop share. Everything the bus thread and the main
// loop both touch is a std::atomic<int32_t>, written with plain `=` and read
// plainly: single loads and stores, no stronger ordering needed.
#pragma once

#include <atomic>
#include <cstdint>

using Shared = std::atomic<int32_t>;

// ---- Run modes -------------------------------------------------------------
enum RunMode : int32_t {
  kModeIdle = 0,
  kModeManual = 1,
  kModePreset = 2,
  kModePatrol = 3,
  kModePattern = 4,
  kModeScan = 5,
  kModeAbs = 6,
  kModeRelative = 7,
  kModeSpdDry = 8,
  kModeTrack = 9,
  kModeTrackPosition = 10,
  kModeOisTest = 11,
};

extern Shared giRunMode;          // what the loop is doing; loop thread writes
extern Shared giNewMode;          // what has been asked for; last writer wins

// ---- Targets of the command language ---------------------------------------
extern Shared giManualPan;        // signed speed of manual:, driver units
extern Shared giManualTilt;
extern Shared giManualZoom;       // >0 tele, <0 wide, 0 stop
extern Shared giPresetTarget;     // preset to go to, 0..512
extern Shared giPatternTarget;    // pattern to play
extern Shared giPatrolTarget;     // patrol to run
extern Shared giScanTarget;       // scan to run
extern Shared giAbsPan;           // target of abs, steps; -1 leaves the axis
extern Shared giAbsTilt;
extern Shared giAbsZoom;
extern Shared giRelPan;           // offset of relative, steps
extern Shared giRelTilt;

// ---- Head position as published ---------------------------------------------
extern Shared giPanPos;           // steps 0..65535
extern Shared giTiltPos;
extern Shared giLensZoom;         // zoom as the driver last reported it
extern Shared giZoomPos;          // zoom as ptz.lens.get_pos.zoom last said it
extern Shared giEastPos;          // pan position of compass east

// ---- Patterns and tracking --------------------------------------------------
extern Shared giPatternRun;       // 1 while a pattern plays
extern Shared giPatternRec;       // 1 while a pattern is recorded
extern Shared giPatternView;      // the running relative move came from view:
extern Shared giPatternPreset;    // go_preset: came from a playing pattern
extern Shared iTrackStatus;       // 1 while the tracker process is meant to run
extern Shared giTrackPresetId;    // preset the tracking home is tied to, -1 none
extern Shared giPresetTrackEnable;// arriving at a preset may start tracking
extern Shared giPresetTrackId;    // the preset at which tracking starts
extern Shared giTrackLastPan;     // last position sent in tracking, -1 none
extern Shared giTrackLastTilt;
extern Shared giTrackLastZoom;
extern Shared giOisPan;           // position saved by ois_test
extern Shared giOisTilt;
extern Shared giModeStatus;       // code of the text last put on ptz.mode_status

// ---- Settings mirrored from the bus ------------------------------------------
extern Shared giMaxSpeed;         // ptz.system.max_speed, 30..720
extern Shared giManualPanSpeed;   // ptz.manual.pan_speed, percent
extern Shared giManualTiltSpeed;  // ptz.manual.tilt_speed, percent
extern Shared giManualProportion; // ptz.manual.proportion
extern Shared giAutoFlip;         // ptz.system.auto_flip
extern Shared giImageFlip;        // image.cam1.flip
extern Shared giImageMirror;      // image.cam1.mirror
extern Shared giSystemFreeze;     // ptz.system.freeze
extern Shared giEisEnable;        // encode.cam1.eis.enable
extern std::atomic<double> gfEisFov;  // encode.cam1.eis.fov
extern Shared giOisEnable;        // encode.cam1.ois.enable
extern Shared giPidP;             // ptz.PID; all three 0: no pan PID override
extern Shared giPidI;
extern Shared giPidD;

// ---- Recovery timers (deadlines are seconds of the raw monotonic clock) ----
extern Shared giRecoverTime;          // minutes; 0 off
extern Shared giScheduleRecoverTime;  // minutes; 0 or less off
extern Shared giRecoverDeadline;      // -1 none
extern Shared giScheduleDeadline;     // 0 and -1 none
extern Shared giRecoverArmPreset;     // one-shot guards: 0 armed, -1 spent
extern Shared giScheduleArmPreset;
extern Shared giRecoverArmAbs;
extern Shared giScheduleArmAbs;

// ---- Requests raised by listeners, lowered by the loop -----------------------
extern Shared giPatrolReload;
extern Shared giScheduleReload;
extern Shared giViewMove;
