// The weekly schedule of duties: one bus value per weekday, up to four
// entries each, "action,start,end;" with times as hour x 100 + minute.
#pragma once

#include <cstdint>

constexpr int32_t kScheduleDays = 7;
constexpr int32_t kScheduleEntries = 4;
constexpr int32_t kScheduleActionSize = 64;  // 63 characters and the NUL

struct ScheduleEntry {
  char action[kScheduleActionSize];
  int32_t start;  // first minute, hhmm
  int32_t end;    // last minute, hhmm, inclusive
};

extern ScheduleEntry gSchedule[kScheduleDays][kScheduleEntries];
extern int32_t giScheduleEnable;  // ptz.schedule.enable
extern int32_t giSchedDay;        // weekday of the last CheckSchedule
extern int32_t giSchedIndex;      // entry number last matched
extern int32_t giSchedResult;     // encoded result of the last parsing
extern char gcSchedAction[128];   // action text last parsed

// Reads the schedule keys into the table.
void LoadSchedule();
// The encoded action of the entry active now, or -1; parses an action once.
int32_t CheckSchedule();
// Encodes one action text: number x 256 + run mode, 9 for track:, 0 for
// stop, -1 for none. A track: action starts the tracker if it is off.
int32_t ParseScheduleAction(const char* text);
// Sets the target of an encoded action.
void ApplyScheduleTarget(int32_t action);
constexpr int32_t kScheduleKeySize = 32;
// The key of a weekday's value, "ptz.schedule.sun" to "ptz.schedule.sat"
// (a day outside 0..6 counts as Sunday).
void ScheduleDayKey(int32_t day, char key[kScheduleKeySize]);
// Parses one weekday value into its row (used by LoadSchedule; the row is
// cleared first).
void ParseScheduleDay(const char* day, const char* value, ScheduleEntry row[kScheduleEntries]);
