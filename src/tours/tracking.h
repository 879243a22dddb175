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
// Reads "PAN,TILT" of ptz.track.location or ptz.track.position: empty is
// 0,0; a missing tilt, or a number outside its axis's steps, is -1, which
// leaves that axis alone.
void ParseTrackPosition(const char* text, int32_t* pan, int32_t* tilt);
// One pass of run mode 9; sets giRunMode.
void TrackPass();
// One pass of run mode 10.
void TrackPositionPass();
