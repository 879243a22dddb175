// Status and position publication.
#include "control/publish.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "control/bus_text.h"
#include "control/control.h"
#include "platform/camstate.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "tours/pattern.h"

// UpdatePosition runs on the loop's thread and, in the move of
// set_track_run:, on the bus thread: this lock lets one in at a time. It is
// recursive because a listener may run on the loop's own thread inside a
// wait of UpdatePosition (a recording's rest pause).
static std::recursive_mutex gPositionMutex;

// Guarded by gPositionMutex where UpdatePosition uses them.
static int32_t giLastStatusOwner = 0;
static int32_t giLastStatusState = 0;
static int32_t giPosDirty = 0;
int32_t giPosTick = 0;
static int32_t giDirLast = -1;
static char gcPresetOsd[64] = "";

static const char* const kCompassWords[8] = {
    "East", "North-East", "North", "North-West", "West", "South-West", "South", "South-East"};
static constexpr int32_t kSectorStep = 8191;
static constexpr int32_t kSectorReach = 4208;

void SetPtStatus(int32_t owner, int32_t state) {
  if (owner == giLastStatusOwner && state == giLastStatusState) return;
  giLastStatusOwner = owner;
  giLastStatusState = state;
  int32_t code = owner * 10 + state;
  BusWriteInt("ptz.status", code);
  os_printf("PutPTStatus: %d start\n", code);
  PutPTStatus(code);
  os_printf("PutPTStatus: %d end\n", code);
}

int32_t PanDegrees(int32_t pan) { return pan * 360 / 65535; }

int32_t TiltDegrees(int32_t tilt) { return tilt * 360 / 65535 - 27; }

// Publishes the four position keys.
static void PublishPosition() {
  BusWriteInt("ptz.pan_pos", giPanPos);
  BusWriteInt("ptz.angle.pan", PanDegrees(giPanPos));
  BusWriteInt("ptz.tilt_pos", giTiltPos);
  BusWriteInt("ptz.angle.tilt", TiltDegrees(giTiltPos));
}

void UpdatePosition() {
  std::lock_guard<std::recursive_mutex> hold(gPositionMutex);
  int32_t moved = 0;
  int pan = 0, tilt = 0, zoom = 0;
  GetPanPos(&pan);
  if (pan != giPanPos) {
    giPanPos = pan;
    PutPan(pan);
    giPosDirty = moved = 1;
  }
  GetTiltPos(&tilt);
  if (tilt != giTiltPos) {
    giTiltPos = tilt;
    PutTilt(tilt);
    giPosDirty = moved = 1;
  }
  GetZoom(&zoom);
  if (zoom != giLensZoom) {
    giLensZoom = zoom;
    giPosDirty = moved = 1;
  }
  if (giPatternRec == 1) {
    PatternRecordWatch(moved, giRunMode);
  } else {
    PatternRecordRestReset();
  }
  if (giPosDirty == 1 && giPosTick % 10 == 0) PublishPosition();
  if (giPosDirty == 1 && giPosTick > 100) {
    double focal = 0.0;
    GetFocalLength(&focal);
    giPosDirty = 0;
    giPosTick = 0;
    os_printf("Pos:P->%d T->%d Z->%d FL:%f\n", (int)giPanPos, (int)giTiltPos, (int)giLensZoom,
              focal);
  } else {
    CountTick(&giPosTick);
  }
  SetDirectionOsd(giPanPos, giEastPos);
}

void SetPresetOsd(const char* text) {
  if (strncmp(text, gcPresetOsd, sizeof gcPresetOsd) == 0) return;
  kvlink_set("system.cam1.osd.preset_name", text);
  if (text[0] == '\0') {
    os_puts("Clean Preset OSD");
  } else {
    os_printf("Set Preset OSD:%s\n", text);
  }
  CopyText(gcPresetOsd, sizeof gcPresetOsd, text);
}

// Whether the sector centred at `centre` holds the position, 65535 wrap.
static bool SectorHolds(int32_t centre, int32_t position) {
  int32_t low = centre - kSectorReach;
  if (low < 0) low += 65535;
  int32_t high = centre + kSectorReach;
  if (high > 65535) high -= 65535;
  if (low > high) return position >= low || position <= high;
  return low <= position && position <= high;
}

int32_t CompassSector(int32_t pan, int32_t east) {
  int32_t position = Wrap32((int64_t)pan - east);  // east is any int32 the bus gave
  if (position < 0) position += 65535;
  for (int32_t i = 0; i < 8; i++) {
    if (SectorHolds(i * kSectorStep, position)) return i;
  }
  return 0;  // an east beyond the scale leaves the position outside: East
}

void SetDirectionOsd(int32_t pan, int32_t east) {
  int32_t index = CompassSector(pan, east);
  if (index == giDirLast) return;
  kvlink_set("system.cam1.osd.direction", kCompassWords[index]);
  os_printf("Set Dir OSD:%s\n", kCompassWords[index]);
  giDirLast = index;
}
