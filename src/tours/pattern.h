// Patterns: recording operators' commands to a file and replaying them.
#pragma once

#include <cstdint>

// Listener of ptz.pattern.action: "rec<n>" starts recording, "stop" ends it.
void OnPatternAction(char* key, char* value);
// Starts pattern giPatternTarget; returns 4 when it started, 0 when not
// (and then has set both modes to 0).
int32_t PatternStart(int32_t now_s, int32_t now_ms);
// Feeds the lines that are due to OnRunMode.
void PatternStep(int32_t now_s, int32_t now_ms);
void PatternClose();
// Writes one event to the recording; -1 when nothing is recorded or the
// time limit has passed.
int PatternRecLine(const char* text);
void PatternRecStop();
void PatternDelete(int32_t id);
// UpdatePosition's hook while recording: rest position and time limit.
void PatternRecordWatch(int32_t moved, int32_t runMode);
// UpdatePosition's hook otherwise: the count of updates at rest restarts.
void PatternRecordRestReset();

extern int32_t giPatternRecStart;  // ms stamp of the recording's start
