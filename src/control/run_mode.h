// The command language on ptz.run_mode.
#pragma once

#include <cstdint>

// The listener of ptz.run_mode. `first` is null for a replayed pattern line.
void OnRunMode(char* first, char* value);
// Number list of up to three fields into three integers; returns 0.
int ParseAbs(const char* text, int32_t* first, int32_t* second, int32_t* third);
// Number list of two fields into two integers; returns 0.
int ParseRelative(const char* text, int32_t* first, int32_t* second);
// The manual speed computation of manual:, into giManualPan/Tilt/Zoom.
void ComputeManualSpeeds(const char* args);
