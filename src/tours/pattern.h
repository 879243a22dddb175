// Patterns: recording the operator's commands to a file and replaying them.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>

// Listener of ptz.pattern.action: "rec<n>" starts recording, "stop" ends it.
void OnPatternAction(char* key, char* value);

// ---- Recording ------------------------------------------------------------------
// Opens /tmp/pattern<n>.path for "rec<n>" and writes the start line; 0 when
// recording began, else -1 with nothing changed.
int PatternRecStart(const char* value);
// Writes one event to the recording; -1 when nothing is recorded or the
// time limit has passed (the line is then in the file all the same).
int PatternRecLine(const char* text);
// Adds an event to a running recording; a recording that has no file or
// has passed its limit ends.
void PatternRecordEvent(const char* text);
// Writes the last delay, closes the file and copies it to /mnt/nand.
void PatternRecStop();
void PatternDelete(int32_t id);
// UpdatePosition's hook while recording: rest position and time limit.
void PatternRecordWatch(int32_t moved, int32_t runMode);
// UpdatePosition's hook otherwise: the count of updates at rest restarts.
void PatternRecordRestReset();

// ---- Playback -------------------------------------------------------------------
// Opens pattern giPatternTarget and moves to its start; returns giRunMode
// (4 from the loop's pattern branch), or 0 after setting both modes to 0.
int32_t PatternStart(int32_t now_s, int32_t now_ms);
// Feeds the lines that are due to OnRunMode; starts over at the end.
void PatternStep(int32_t now_s, int32_t now_ms);
void PatternClose();
// Reads one line of a stored pattern into buf (kPatternLineSize bytes): at
// most 126 characters and its line feed; the rest of a longer line is passed
// over. False at the end of the file, or past kPatternLineScan characters.
bool ReadPatternLine(FILE* file, char* buf);

constexpr int kPatternLineSize = 128;
constexpr int kPatternLineScan = 4096;   // longest line looked through
constexpr int64_t kPatternRecLimitMs = 360000;  // six minutes of recording

extern std::atomic<int64_t> giPatternRecStart;  // ms stamp of the recording's start
