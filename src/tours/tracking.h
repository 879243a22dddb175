// Person tracking: the tracker process, the saved home, and the moves of
// run modes 9 and 10.
#pragma once

#include <cstdint>

void StartTracker();
void StopTracker();
// The verbs behind track:, set_track_position, go_track_position and
// set_track_run: (the named close has already run).
void TrackCommand(char* args);
void SetTrackPositionCommand();
void GoTrackPositionCommand();
void SetTrackRunCommand(const char* args);
// go_preset: to the tracking preset publishes its position as home in force.
void PublishTrackPreset(int32_t preset);
// One pass of run mode 9; sets giRunMode.
void TrackPass();
// One pass of run mode 10.
void TrackPositionPass();
