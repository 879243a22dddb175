// Moving the head so that a point of the picture comes to its centre.
#pragma once

#include <cstdint>

// Reads ptz.preset.view_move ("MoveW,MoveH", 0..10000 each, centre 5000)
// and fills the offsets in steps; always 0, which means run relative.
int32_t RunViewMove(int32_t* outPan, int32_t* outTilt);
// The geometry: the pan and tilt offsets that bring the picture point to
// the centre, from the head's position and the present field of view.
void ComputeViewMove(int32_t moveW, int32_t moveH, int32_t* outPan, int32_t* outTilt);
// The sensor width, as a line over focal length (out: slope, offset), that
// shows the full angle angleBase at focalBase and angleMax at focalMax.
void SensorWidthLine(float* out, float angleBase, float angleMax, float focalBase, float focalMax);
// Half angles of the field of view, in degrees, at focal length f (digital
// zoom included) for the lens type; EIS is not applied here.
void SensorHalfAngles(int32_t lensType, double f, double* angleH, double* angleW);
