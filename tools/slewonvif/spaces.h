// The PTZ spaces and their exact mappings onto the head's units (steps,
// lens positions, speed units, the 0..10000 picture scale); docs/onvif.md
// states each formula.
#pragma once

#include <string_view>

namespace onvif {

inline constexpr int kTurnSteps = 65535;     // pan steps to the full turn
inline constexpr int kTiltTopSteps = 0;      // generic tilt 1: 27 degrees above the horizon
inline constexpr int kTiltDownSteps = 21298; // generic tilt -1: straight down
inline constexpr int kZoomMax = 16384;       // lens position at the tele end
inline constexpr int kSpeedMin = 30, kSpeedMax = 720;  // speed units

// Generic position space: pan -1..1 (positive to the right) to steps and back.
int pan_to_steps(double x);
double steps_to_pan(int steps);
// Generic position space: tilt -1..1 (positive up) to steps and back.
int tilt_to_steps(double y);
double steps_to_tilt(int steps);
// Generic zoom 0..1 to lens positions and back.
int zoom_to_lens(double z);
double lens_to_zoom(int lens);
// Generic translation: pan and tilt offsets -1..1 to step offsets.
int pan_offset_steps(double dx);
int tilt_offset_steps(double dy);
// Generic velocity -1..1 to the signed percent of `manual:` (pan grows to
// the left and tilt downwards on the head, so both signs turn round).
int velocity_percent(double v);
// FOV translation -1..1 (1: the picture's right or top edge) to a point on
// the 0..10000 picture scale that `view:` brings to the centre.
int fov_to_picture_x(double dx);
int fov_to_picture_y(double dy);
// Generic speed 0..1 to speed units and back.
int speed_to_units(double s);
double units_to_speed(int units);

// An xs:float text: digits, sign, point, exponent only; false for INF,
// NaN, hex, blanks or anything beyond double.
bool parse_float(std::string_view text, double* value);
// An xs:duration of at most a day ("PT1S", "PT0.5S", "PT1M30S"), in ms.
bool parse_duration(std::string_view text, long* ms);

}  // namespace onvif
