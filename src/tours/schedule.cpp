// The schedule: the weekly table, which entry is active now, and what its
// action asks of the loop.
#include "tours/schedule.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "control/bus_text.h"
#include "control/control.h"
#include "platform/os.h"
#include "tours/presets.h"
#include "tours/tracking.h"

ScheduleEntry gSchedule[kScheduleDays][kScheduleEntries];
int32_t giScheduleEnable = 0;
int32_t giSchedDay = -1;
int32_t giSchedIndex = -1;
int32_t giSchedResult = -1;
char gcSchedAction[128] = "";

static const char* const kDayNames[kScheduleDays] = {"sun", "mon", "tue", "wed",
                                                     "thu", "fri", "sat"};
static constexpr size_t kLastPieceMin = 5;  // a last entry without ';' needs more

// Copies the next comma-separated piece of *cursor into out (size bytes),
// a run of commas counting as one; false when no piece is left. A piece
// longer than out is cut, and *overlong tells.
static bool NextPiece(const char** cursor, char* out, size_t size, bool* overlong) {
  const char* p = *cursor;
  while (*p == ',') p++;
  if (*p == '\0') return false;
  size_t n = 0;
  *overlong = false;
  for (; *p != '\0' && *p != ','; p++) {
    if (n + 1 < size) out[n++] = *p;
    else *overlong = true;
  }
  out[n] = '\0';
  *cursor = p;
  return true;
}

// Fills one entry from "action,start,end" and prints its trace line. An
// action over 63 characters is not stored: a cut one could name another
// number.
static void ParseEntry(const char* text, const char* day, int32_t number, char stage,
                       ScheduleEntry* entry) {
  char piece[kBusValueSize];
  bool overlong = false;
  const char* cursor = text;
  memset(entry, 0, sizeof *entry);
  if (NextPiece(&cursor, entry->action, sizeof entry->action, &overlong) && overlong) {
    os_printf("%s,%d: action over 63 characters, entry left empty\n", day, number);
    entry->action[0] = '\0';
  }
  if (NextPiece(&cursor, piece, sizeof piece, &overlong)) entry->start = TextToInt(piece);
  if (NextPiece(&cursor, piece, sizeof piece, &overlong)) entry->end = TextToInt(piece);
  os_printf("%c.%s,%d,mode:%s Start:%d End:%d\n", stage, day, number, entry->action,
            entry->start, entry->end);
}

// Stores the entry in the row; entries after the fourth have no place and
// are dropped with a line.
static void StoreEntry(const char* text, const char* day, int32_t number, char stage,
                       ScheduleEntry row[kScheduleEntries]) {
  if (number >= kScheduleEntries) {
    os_printf("%s,%d: only %d entries a day, entry dropped\n", day, number, kScheduleEntries);
    return;
  }
  ParseEntry(text, day, number, stage, &row[number]);
}

void ParseScheduleDay(const char* day, const char* value, ScheduleEntry row[kScheduleEntries]) {
  memset(row, 0, sizeof(ScheduleEntry) * kScheduleEntries);
  char work[kBusValueSize] = {};
  size_t length = 0;
  int32_t number = 0;
  for (const char* p = value; *p != '\0'; p++) {
    if (*p != ';') {
      if (length + 1 < sizeof work) work[length++] = *p;
      continue;
    }
    StoreEntry(work, day, number++, '1', row);
    memset(work, 0, sizeof work);
    length = 0;
  }
  if (length > kLastPieceMin) StoreEntry(work, day, number, '2', row);
}

void ScheduleDayKey(int32_t day, char key[kScheduleKeySize]) {
  if (day < 0 || day >= kScheduleDays) day = 0;
  snprintf(key, kScheduleKeySize, "ptz.schedule.%s", kDayNames[day]);
}

void LoadSchedule() {
  char buf[kBusValueSize];
  BusRead("ptz.schedule.enable", buf);
  giScheduleEnable = TextOnOff(buf);
  BusRead("ptz.schedule.recover_time", buf);
  giScheduleRecoverTime = TextToInt(buf);
  for (int32_t day = 0; day < kScheduleDays; day++) {
    char key[kScheduleKeySize];
    ScheduleDayKey(day, key);
    BusRead(key, buf);
    os_printf("%s=%s\n", key, buf);
    ParseScheduleDay(kDayNames[day], buf, gSchedule[day]);
  }
}

// The first entry of the day whose minutes hold hhmm, or -1.
static int32_t ActiveEntry(int32_t day, int32_t hhmm) {
  for (int32_t i = 0; i < kScheduleEntries; i++) {
    const ScheduleEntry& e = gSchedule[day][i];
    if (e.start <= hhmm && hhmm <= e.end) return i;
  }
  return -1;
}

// Forgets the last parsing, so that the next match parses afresh.
static void ForgetParsing() {
  giSchedResult = -1;
  gcSchedAction[0] = '\0';
}

// Weekday and hhmm of the local time now. The loop asks every tick, so the
// conversion runs only when the wall-clock second has changed.
static void LocalDayAndMinute(int32_t* day, int32_t* hhmm) {
  static time_t lastWall = (time_t)-1;
  static int32_t lastDay = 0, lastHhmm = 0;
  time_t wall = os_time();
  if (wall != lastWall) {
    struct tm local = {};
    os_localtime(&wall, &local);
    lastWall = wall;
    lastDay = local.tm_wday >= 0 && local.tm_wday < kScheduleDays ? local.tm_wday : 0;
    lastHhmm = local.tm_hour * 100 + local.tm_min;
  }
  *day = lastDay;
  *hhmm = lastHhmm;
}

int32_t CheckSchedule() {
  int32_t day = 0, hhmm = 0;
  LocalDayAndMinute(&day, &hhmm);
  if (day != giSchedDay) {
    ForgetParsing();
    giSchedDay = day;
  }
  int32_t index = ActiveEntry(day, hhmm);
  if (index == -1) return -1;
  if (index != giSchedIndex) {
    giSchedIndex = index;
    ForgetParsing();
  }
  const char* action = gSchedule[day][index].action;
  if (strcmp(action, gcSchedAction) == 0) return giSchedResult;
  giSchedResult = ParseScheduleAction(action);
  os_printf("Sch Run mode:%d %s\n", giSchedResult, action);
  CopyText(gcSchedAction, sizeof gcSchedAction, action);
  return giSchedResult;
}

// The action verbs that carry a number, in the order they are tested.
struct NumberedAction {
  const char* verb;
  int32_t mode;
};
static const NumberedAction kNumberedActions[] = {
    {"go_preset:", kModePreset}, {"pattern:", kModePattern},
    {"patrol:", kModePatrol},    {"scan:", kModeScan}};

int32_t ParseScheduleAction(const char* text) {
  for (const NumberedAction& a : kNumberedActions) {
    const char* found = strstr(text, a.verb);
    if (found == nullptr) continue;
    // In 32-bit unsigned arithmetic, so that a huge number wraps rather than
    // overflows; the low 8 bits stay the run mode.
    uint32_t number = (uint32_t)TextToInt(found + strlen(a.verb));
    return (int32_t)(number * 256u + (uint32_t)a.mode);
  }
  if (strstr(text, "track:") != nullptr) {
    if (iTrackStatus == 0) {
      StartTracker();
      iTrackStatus = 1;
    }
    return kModeTrack;
  }
  if (strstr(text, "stop") != nullptr) return kModeIdle;
  return -1;
}

void ApplyScheduleTarget(int32_t action) {
  int32_t number = action >> 8;
  switch (action & 0xff) {
    // As the command language does: past the last slot means the last slot.
    case kModePreset: giPresetTarget = number > kPresetLast ? kPresetLast : number; break;
    case kModePattern: giPatternTarget = number; break;
    case kModePatrol: giPatrolTarget = number; break;
    case kModeScan: giScanTarget = number; break;
    default: break;
  }
}
