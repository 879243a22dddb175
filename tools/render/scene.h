// The scene around the head and how the lens sees it: the landmarks, the
// picture's field of view from the lens keys, the projection of a direction
// onto the picture's 0..10000 scale (the one the view move inverts), and the
// drawing of a frame from a head view built from bus keys.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace render {

constexpr int kSteps = 65535;  // steps to the full turn, both axes

// A fixed landmark: where the head sees it (degrees; tilt below the horizon),
// how far it stands (metres, for the plan) and its colour.
struct Landmark {
  const char* name;
  double pan, tilt, dist;
  uint8_t r, g, b;
};
// Mast, Barn, Gate, Well, Tower.
extern const Landmark kLandmarks[5];

// Pan steps to degrees, growing to the left.
double pan_deg(double steps);
// Tilt steps to degrees below the horizon.
double tilt_deg(double steps);
// Degrees to pan steps, inside one turn.
int pan_steps(double deg);
// Degrees below the horizon to tilt steps.
int tilt_steps(double deg);

// The lens as the view move sees it.
struct Lens {
  int type = 1;
  double focal = 0, base_focal = 0, max_focal = 0, sensor_w = 0, sensor_h = 0, dzoom = 0;
  bool eis = false;
  double eis_fov = 0;
};

// Half angles of the picture in degrees.
struct HalfAngles {
  double w = 0, h = 0;
};
HalfAngles half_angles(const Lens& lens);

// Where the head looks and how the picture is turned.
struct View {
  double pan = 0, tilt = 0;  // degrees
  HalfAngles half;
  bool mirror = false, flip = false;
};

// A point of the picture on the 0..10000 scale (outside it when out of sight).
struct Point {
  double x, y;
};
// Where a direction (degrees) falls on the picture of view; none behind the camera.
std::optional<Point> project(double pan, double tilt, const View& view);

// Everything a frame shows, built from bus keys.
struct HeadView {
  View view;
  int east = 0;                       // pan step that is East
  std::optional<Point> person;        // pan, tilt in degrees of the simulated person
  std::string osd_preset, osd_direction;
  bool no_head = false;               // slewd is gone: the picture is the last one it gave
};
// The bus keys a head view is built from; a client keeps only these.
const std::vector<std::string>& view_keys();
// The head view of the bus values (missing keys take the camera's defaults).
HeadView head_view(const std::map<std::string, std::string>& bus);

// A frame: 32-bit pixels B, G, R, unused (in memory order), rows of stride bytes.
struct Frame {
  int width = 0, height = 0, stride = 0;
  std::vector<uint8_t> bgrx;
};
// Draws the head view into frame (sized width x height).
void render_frame(const HeadView& head, int width, int height, Frame* frame);
// The frame as packed RGB, three bytes a pixel.
std::vector<uint8_t> to_rgb(const Frame& frame);

}  // namespace render
