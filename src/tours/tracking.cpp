// Person tracking: the tracker process, the saved home, the four commands
// and the moves of run modes 9 and 10.
#include "tours/tracking.h"

#include <cstdio>
#include <cstring>

#include "control/bus_text.h"
#include "control/control.h"
#include "control/publish.h"
#include "motion/positioning.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "slewd/startup.h"
#include "tours/presets.h"

static constexpr int32_t kPanStepMax = 0xffff;
static constexpr int32_t kTiltStepMax = 0x9331;

void StartTracker() {
  char position[64] = {};
  kvlink_get("ptz.track.position", position, sizeof position);
  position[sizeof position - 1] = '\0';
  kvlink_set("ptz.track.location", position);
  if (giBrandMatch == 1) {
    os_system("FigureFollow -p 27182 -b /bin/yolov4_tiny_cavalry.bin -s 0 -i 1 --in inputs "
              "--out detector/yolo-v4-tiny/Conv_17/BiasAdd --out "
              "detector/yolo-v4-tiny/Conv_20/BiasAdd -t 0 -r 1 &");
  } else {
    os_system("FigureFollow -m 0 -b 2 -a 1 -s 2 --model_path /bin/onnx_yolov5s_cavalry.bin "
              "--label_path /bin/coco_class_names.txt&");
  }
}

void StopTracker() {
  os_system("killall -9 FigureFollow &");
  os_system("killall -9 demo_stamp &");
  os_system("killall -9 demo_blackout &");
}

void ParseTrackPosition(const char* text, int32_t* pan, int32_t* tilt) {
  *pan = 0;
  *tilt = 0;
  if (text[0] == '\0') return;
  const char* comma = strchr(text, ',');
  *pan = TextToInt(text);
  *tilt = comma == nullptr ? -1 : TextToInt(comma + 1);
  if (*pan < 0 || *pan > kPanStepMax) *pan = -1;
  if (*tilt < 0 || *tilt > kTiltStepMax) *tilt = -1;
}

// Reads a position key into pan and tilt; returns the text's length.
static size_t ReadTrackPosition(const char* key, int32_t* pan, int32_t* tilt) {
  char buf[kBusValueSize];
  BusRead(key, buf);
  ParseTrackPosition(buf, pan, tilt);
  return strlen(buf);
}

// Reads ptz.track.zoom as a number.
static int32_t ReadTrackZoom() {
  char buf[kBusValueSize];
  BusRead("ptz.track.zoom", buf);
  return TextToInt(buf);
}

// The record of a preset number, or an empty record for a number that
// names no slot.
static PresetRecord PresetOrEmpty(int32_t preset) {
  if (preset < 0 || preset > kPresetLast) {
    PresetRecord empty = {};
    empty.pan = empty.tilt = empty.zoom = -1;
    return empty;
  }
  return gPreset[preset];
}

// Writes a home as the home in force and, with save, as the saved home.
static void WriteHome(int32_t pan, int32_t tilt, int32_t zoom, bool save) {
  char text[32];
  snprintf(text, sizeof text, "%d,%d", pan, tilt);
  kvlink_set("ptz.track.position", text);
  if (save) kvlink_set("ptz.track.preset_save_position", text);
  BusWriteInt("ptz.track.zoom", zoom);
  if (save) BusWriteInt("ptz.track.preset_save_zoom", zoom);
}

// Saves the home: the head's position, or the preset the home is tied to.
static void SaveHome() {
  if (giTrackPresetId == -1) {
    WriteHome(giPanPos, giTiltPos, giZoomPos, true);
    return;
  }
  PresetRecord row = PresetOrEmpty(giTrackPresetId);
  WriteHome(row.pan, row.tilt, row.zoom, true);
}

// Copies one key's text to another.
static void CopyKey(const char* from, const char* to) {
  char buf[kBusValueSize];
  BusRead(from, buf);
  kvlink_set(to, buf);
}

// Makes the saved home the home in force.
static void RestoreHome() {
  CopyKey("ptz.track.preset_save_position", "ptz.track.position");
  CopyKey("ptz.track.preset_save_zoom", "ptz.track.zoom");
}

void TrackCommand(char* args) {
  char* comma = strchr(args, ',');
  if (comma != nullptr) *comma = '\0';
  os_printf("#####################3iTrackStatus=%d %s\n", (int)iTrackStatus, args);
  RestoreHome();
  if (strcmp(args, "on") == 0) {
    os_printf("#####################4iTrackStatus=%d %s\n", (int)iTrackStatus, args);
    if (iTrackStatus == 0) {
      StartTracker();
      iTrackStatus = 1;
    }
    giNewMode = kModeTrack;
    return;
  }
  iTrackStatus = 0;
  StopTracker();
  // Tracking asked for and now off: idle, not a track/idle see-saw.
  if (giNewMode == kModeTrack) giNewMode = kModeIdle;
}

void SetTrackPositionCommand() {
  SaveHome();
  os_printf("###set_track-->giPanPos=%d,giTiltPos=%d zoom=%d\n", (int)giPanPos, (int)giTiltPos,
            (int)giZoomPos);
}

void GoTrackPositionCommand() {
  RestoreHome();
  giNewMode = kModeTrackPosition;
}

void SetTrackRunCommand(const char* args) {
  int32_t preset = TextToInt(args);
  giTrackPresetId = preset;
  kvlink_set("ptz.track.preset_id", args);
  SaveHome();
  if (preset != -1) {
    PresetRecord row = PresetOrEmpty(preset);
    // Blocks this listener until the head has arrived.
    if (row.pan != -1 || row.tilt != -1 || row.zoom != -1) {
      GoTrackPosition(row.pan, row.tilt, row.zoom, -1, giMaxSpeed);
    }
  }
  StartTracker();
  iTrackStatus = 1;
  giNewMode = kModeTrack;
}

void PublishTrackPreset(int32_t preset) {
  PresetRecord row = PresetOrEmpty(preset);
  WriteHome(row.pan, row.tilt, row.zoom, false);
}

// Moves to a tracking position; an unchanged zoom leaves the lens alone.
// Mode 9 traces the last position beside the new one, mode 10 does not.
static void TrackMove(int32_t pan, int32_t tilt, int32_t zoom, bool following) {
  int32_t lensZoom = zoom == giTrackLastZoom ? -1 : zoom;
  SetPtStatus(kOwnerTrack, kStatePosition);
  if (following) {
    os_printf("track1: P:%d T:%d Z:%d  old: P:%d T:%d Z:%d \n", pan, tilt, lensZoom,
              (int)giTrackLastPan, (int)giTrackLastTilt, (int)giTrackLastZoom);
  } else {
    os_printf("track2: P:%d T:%d Z:%d\n", pan, tilt, lensZoom);
  }
  GoTrackPosition(pan, tilt, lensZoom, -1, giMaxSpeed);
  giTrackLastPan = pan;
  giTrackLastTilt = tilt;
  giTrackLastZoom = lensZoom;
}

void TrackPass() {
  int32_t pan = 0, tilt = 0;
  ReadTrackPosition("ptz.track.location", &pan, &tilt);
  int32_t zoom = ReadTrackZoom();
  bool same = pan == giTrackLastPan && tilt == giTrackLastTilt && zoom == giTrackLastZoom;
  giRunMode = kModeIdle;
  if (same || iTrackStatus != 1) return;
  TrackMove(pan, tilt, zoom, true);
}

void TrackPositionPass() {
  int32_t pan = 0, tilt = 0;
  size_t length = ReadTrackPosition("ptz.track.position", &pan, &tilt);
  if (length > 0 && pan == 0 && tilt == 0) ReadTrackPosition("ptz.track.location", &pan, &tilt);
  int32_t zoom = ReadTrackZoom();
  os_printf("track_pan=%d,track_tilt=%d track_zoom=%d\n", pan, tilt, zoom);
  if (pan != giTrackLastPan || tilt != giTrackLastTilt || zoom != giTrackLastZoom) {
    TrackMove(pan, tilt, zoom, false);
  }
  giRunMode = kModeIdle;
  giNewMode = kModeIdle;
  kvlink_set("ptz.run_mode", "stop");
}
