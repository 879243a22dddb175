// Patrols: go to each preset of a list, dwell, go on, round and round.
#include "tours/patrol.h"

#include <cstdio>

#include "control/bus_text.h"
#include "control/control.h"
#include "control/publish.h"
#include "motion/positioning.h"
#include "platform/camstate.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "tours/presets.h"

int32_t gPatrolSet[kPatrolRows][kPatrolStops];
int32_t gPatrolTime[kPatrolRows][kPatrolStops];
int32_t gPatrolSpeed[kPatrolRows][kPatrolStops];

int32_t giPatrolStep = 0;
int32_t giPatrolNextTime = 0;
int32_t giPatrolStopPreset = 0;
int32_t giPatrolDwell = kPatrolDefaultDwell;
int32_t giPatrolPreset = 0;

int ParsePatrolList(int32_t* row, char* text) {
  int count = 0;
  char* p = text;
  while (*p != '\0' && count < kPatrolStops) {
    char* piece = p;
    while (*p != '\0' && *p != ',') p++;
    bool last = *p == '\0';
    *p = '\0';
    if (*piece != '\0') {
      row[count] = TextToInt(piece);
      os_printf("%d:%d ", count, row[count]);
      count++;
    }
    if (last) break;
    p++;
  }
  return 0;
}

// Reads one list key of a patrol into its row, with its trace line.
static void LoadPatrolList(const char* kind, const char* label, int patrol, int32_t* row) {
  char key[kBusValueSize];
  char value[kBusValueSize];
  snprintf(key, sizeof key, "ptz.patrol.%s%02d", kind, patrol);
  BusRead(key, value);
  if (value[0] == '\0') return;
  os_printf("%s %d:", label, patrol);
  ParsePatrolList(row, value);
  os_printf("\n");
}

void LoadPatrol() {
  for (int r = 0; r < kPatrolRows; r++) {
    for (int s = 0; s < kPatrolStops; s++) {
      gPatrolSet[r][s] = -1;
      gPatrolTime[r][s] = -1;
      gPatrolSpeed[r][s] = -1;
    }
  }
  for (int patrol = kPatrolFirstLoaded; patrol <= kPatrolLastLoaded; patrol++) {
    LoadPatrolList("set", "Patrol", patrol, gPatrolSet[patrol]);
    LoadPatrolList("time", "Time", patrol, gPatrolTime[patrol]);
    LoadPatrolList("speed", "Speed", patrol, gPatrolSpeed[patrol]);
  }
}

// Entry of a table, or the end marker for a row or position that names none
// (a patrol number outside the table is an empty patrol).
static int32_t PatrolEntry(const int32_t (*table)[kPatrolStops], int32_t row, int32_t step) {
  if (row < 0 || row >= kPatrolRows || step < 0 || step >= kPatrolStops) return -1;
  return table[row][step];
}

// A set entry names a stop only when it is a stored preset; a number
// outside the preset table is refused like an empty slot.
static bool PresetStored(int32_t id) {
  return id >= 0 && id <= kPresetLast && gPreset[id].valid > 0;
}

// The next position after step, back to 0 behind the end of the list.
static int32_t NextStep(int32_t row, int32_t step) {
  return PatrolEntry(gPatrolSet, row, step + 1) == -1 ? 0 : step + 1;
}

// Number of entries of a set list, up to its end marker.
static int32_t ListLength(int32_t row) {
  int32_t n = 0;
  while (PatrolEntry(gPatrolSet, row, n) != -1) n++;
  return n;
}

// Finds the stop at or after giPatrolStep, skipping presets that are not
// stored; gives up after one round of the list. Returns the preset or -1.
static int32_t FindStop(int32_t row) {
  int32_t length = ListLength(row);
  for (int32_t tries = 0; tries < length; tries++) {
    int32_t id = PatrolEntry(gPatrolSet, row, giPatrolStep);
    if (id == -1) return -1;
    if (PresetStored(id)) return id;
    giPatrolStep = NextStep(row, giPatrolStep);
  }
  return -1;
}

// The clock second `seconds` after now, wrapped to 32 bits as the clock is.
static int32_t SecondsLater(int32_t now, int32_t seconds) {
  return (int32_t)(uint32_t)((uint64_t)(uint32_t)now + (uint32_t)seconds);
}

// Goes to the stop at giPatrolStep; the dwell counts from the arrival.
static void GoToStop(int32_t row, int32_t id) {
  int32_t dwell = kPatrolDefaultDwell;
  int32_t speed = 0;
  int32_t time = PatrolEntry(gPatrolTime, row, giPatrolStep);
  int32_t listed = PatrolEntry(gPatrolSpeed, row, giPatrolStep);
  if (time >= 0) dwell = time;
  if (listed >= 0) speed = listed;
  os_printf("Goto Preset %d %d StopTime:%d\n", id, giPatrolStep, dwell);
  giPatrolStopPreset = id;
  giPresetTarget = 0;
  giPatrolPreset = id;
  SetPtStatus(kOwnerPatrol, kStatePosition);
  const PresetRecord& p = gPreset[id];
  GoPreset(p.pan, p.tilt, p.zoom, p.focus, p.prefocus, speed);
  giPatrolNextTime = SecondsLater(NowSeconds(), dwell);
  giPatrolDwell = dwell;
  giPatrolStep = NextStep(row, giPatrolStep);
  os_printf("Goto Preset %d %d\n", id, giPatrolStep);
}

// A dwell tick: the picture is released once the lens rests, and a busy
// lens starts the dwell over.
static void Dwell(int32_t now) {
  SetPtStatus(kOwnerDirect, kStateRest);
  int status = 0;
  GetLensStatus(&status);
  if (status == 0 || status == 4) {
    if (giFreezeOn == 1) {
      kvlink_set("encode.cam1.freeze", "off");
      giFreezeOn = 0;
    }
  } else if (PresetStored(giPatrolStopPreset)) {
    giPatrolNextTime = SecondsLater(now, giPatrolDwell);
  }
}

int32_t RunPatrol(int32_t newMode, int32_t now) {
  int32_t row = giPatrolTarget;
  if (newMode != kModePatrol) {
    giPatrolStep = 0;
    giPatrolNextTime = 0;
    return newMode;
  }
  if (now > giPatrolNextTime) {
    int32_t id = FindStop(row);
    if (id >= 0) {
      GoToStop(row, id);
    } else if (PatrolEntry(gPatrolSet, row, giPatrolStep) != -1) {
      giPatrolNextTime = now;  // nothing stored in the list: look again next second
    }
  } else {
    Dwell(now);
  }
  return giRunMode;
}
