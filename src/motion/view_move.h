// Moving the head so that a point of the picture comes to its centre.
#pragma once

#include <cstdint>

// Reads ptz.preset.view_move and fills the offsets; 0 means run relative.
int32_t RunViewMove(int32_t* relPan, int32_t* relTilt);
