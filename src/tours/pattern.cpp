// Patterns. Until recording and playback land, nothing is recorded and a
// pattern fails to start, which the loop handles as a failed start.
#include "tours/pattern.h"

#include "control/control.h"

int32_t giPatternRecStart = 0;

void OnPatternAction(char*, char*) {}

int32_t PatternStart(int32_t, int32_t) {
  giRunMode = kModeIdle;
  giNewMode = kModeIdle;
  return kModeIdle;
}

void PatternStep(int32_t, int32_t) {}

void PatternClose() {}

int PatternRecLine(const char*) { return -1; }

void PatternRecStop() {}

void PatternDelete(int32_t) {}

void PatternRecordWatch(int32_t, int32_t) {}

void PatternRecordRestReset() {}
