// Patrols: tours of presets with dwell times.
#pragma once

#include <cstdint>

constexpr int kPatrolRows = 17;     // rows 1..8 are loaded, the rest stay empty
constexpr int kPatrolStops = 128;   // entries of a row; -1 ends a list
constexpr int kPatrolFirstLoaded = 1;
constexpr int kPatrolLastLoaded = 8;
constexpr int32_t kPatrolDefaultDwell = 10;  // seconds at a stop without a time

extern int32_t gPatrolSet[kPatrolRows][kPatrolStops];    // preset numbers
extern int32_t gPatrolTime[kPatrolRows][kPatrolStops];   // dwell seconds
extern int32_t gPatrolSpeed[kPatrolRows][kPatrolStops];  // speed units

extern int32_t giPatrolStep;        // position in the set list of the next stop
extern int32_t giPatrolNextTime;    // second after which the patrol moves on
extern int32_t giPatrolStopPreset;  // preset of the stop last gone to
extern int32_t giPatrolDwell;       // dwell of that stop, seconds
extern int32_t giPatrolPreset;      // preset of the stop, for the overlay name

// Stores the comma-separated numbers of text in row from position 0,
// printing "index:value " for each; text is cut up in the process. Empty
// pieces are skipped, and at most kPatrolStops numbers are stored. Returns 0.
int ParsePatrolList(int32_t* row, char* text);
// Reads the set, time and speed lists of patrols 1 to 8 from the bus.
void LoadPatrol();
// One tick of a patrol; returns 3 while it runs, newMode when asked to leave.
int32_t RunPatrol(int32_t newMode, int32_t now);
