// The scene's geometry: landmarks, field of view and projection, and the
// head view read from bus values.
#include "render/scene.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace render {
namespace {

constexpr double kRad = M_PI / 180;
constexpr double kTableK = 3.1415926 / 180;  // the view move's own degree factor for lens tables
constexpr double kMinHalf = 0.01;            // degrees; a degenerate lens still gives a picture

// Full angles in degrees at the wide and tele ends, horizontal then vertical, by lens type.
struct LensRow {
  int type;
  float wide_w, tele_w, wide_h, tele_h;
};
constexpr LensRow kLensTable[] = {
    {7, 60.4f, 2.0f, 35.9f, 1.2f},
    {8, 65.4f, 2.0f, 39.0f, 1.1f},
    {9, 57.9f, 3.0f, 44.4f, 2.3f},
};

// Sensor size (mm) at focal f as the view move's straight line over focal
// length, in the same single precision so both agree to the last digit.
double sensor_line(float angle_base, float angle_max, float focal_base, float focal_max, double f) {
  float w1 = (float)((double)(focal_base + focal_base) * tan(angle_base * kTableK / 2));
  float w2 = (float)((double)(focal_max + focal_max) * tan(angle_max * kTableK / 2));
  float span = focal_base - focal_max;
  if (span == 0.0f) return w1;
  float slope = (w1 - w2) / span;
  float offset = w1 - ((w1 - w2) * focal_base) / span;
  return slope * f + offset;
}

// A number of the bus, or fallback when absent or not a number.
double num(const std::map<std::string, std::string>& bus, const char* key, double fallback) {
  auto it = bus.find(key);
  if (it == bus.end()) return fallback;
  char* end = nullptr;
  double v = strtod(it->second.c_str(), &end);
  return end != it->second.c_str() && std::isfinite(v) ? v : fallback;
}

// A text of the bus, empty when absent.
std::string text(const std::map<std::string, std::string>& bus, const char* key) {
  auto it = bus.find(key);
  return it == bus.end() ? std::string() : it->second;
}

}  // namespace

const Landmark kLandmarks[5] = {
    {"Mast", 20, -8, 80, 0xc0, 0x39, 0x2b},  {"Barn", 75, 4, 40, 0x8e, 0x5a, 0x2b},
    {"Gate", 150, 12, 25, 0x2c, 0x3e, 0x50}, {"Well", 230, 22, 15, 0x24, 0x71, 0xa3},
    {"Tower", 300, -15, 90, 0x7d, 0x3c, 0x98},
};

double pan_deg(double steps) { return steps * 360 / kSteps; }
double tilt_deg(double steps) { return steps * 360 / kSteps - 27; }
int pan_steps(double deg) {
  double d = fmod(fmod(deg, 360) + 360, 360);
  return (int)lround(d * kSteps / 360) % kSteps;
}
int tilt_steps(double deg) { return (int)lround(std::clamp((deg + 27) * kSteps / 360, -1e9, 1e9)); }

HalfAngles half_angles(const Lens& lens) {
  double f = lens.focal > 0.1 ? lens.focal : lens.base_focal > 0.1 ? lens.base_focal : 6.5;
  f *= lens.dzoom > 1 ? (lens.dzoom - 1) * 7 / 12 + 1 : 1;
  double w = 7.75, h = 4.36;
  if (lens.type == 0) {
    if (lens.sensor_w > 0) w = lens.sensor_w;
    if (lens.sensor_h > 0) h = lens.sensor_h;
  } else {
    LensRow row = {0, 0, 0, 0, 0};
    for (const LensRow& r : kLensTable) {
      if (r.type == lens.type) row = r;
    }
    float base = (float)lens.base_focal, max = (float)lens.max_focal;
    w = sensor_line(row.wide_w, row.tele_w, base, max, f);
    h = sensor_line(row.wide_h, row.tele_h, base, max, f);
  }
  HalfAngles a{atan(w / (f + f)) / kRad, atan(h / (f + f)) / kRad};
  if (lens.eis) {
    double e = sqrt(lens.eis_fov >= 0.1 ? lens.eis_fov : 0.75);
    a.w *= e;
    a.h *= e;
  }
  return a;
}

std::optional<Point> project(double pan, double tilt, const View& view) {
  double dp = (pan - view.pan) * kRad, t = tilt * kRad, T = view.tilt * kRad;
  double ahead = cos(t) * cos(dp), left = cos(t) * sin(dp), down = sin(t);
  double depth = ahead * cos(T) + down * sin(T);
  if (depth < 1e-6) return std::nullopt;
  double below = down * cos(T) - ahead * sin(T);
  double nx = left / depth / tan(std::max(view.half.w, kMinHalf) * kRad);
  double ny = below / depth / tan(std::max(view.half.h, kMinHalf) * kRad);
  return Point{view.mirror ? 5000 + 5000 * nx : 5000 - 5000 * nx, view.flip ? 5000 - 5000 * ny : 5000 + 5000 * ny};
}

const std::vector<std::string>& view_keys() {
  static const std::vector<std::string> keys = {
      "ptz.pan_pos", "ptz.tilt_pos", "ptz.lens.get_pos.zoom", "sim.lens.focal_wide", "sim.lens.focal_tele",
      "sim.lens.zoom_max", "sim.lens_type", "ptz.lens.base_focal_length", "ptz.lens.max_focal_length",
      "ptz.lens.sensor_w", "ptz.lens.sensor_h", "ptz.dzoom.factor", "encode.cam1.eis.enable",
      "encode.cam1.eis.fov", "image.cam1.mirror", "image.cam1.flip", "sim.person", "ptz.system.east_pos",
      "system.cam1.osd.preset_name", "system.cam1.osd.direction"};
  return keys;
}

HeadView head_view(const std::map<std::string, std::string>& bus) {
  Lens lens;
  double wide = num(bus, "sim.lens.focal_wide", 4.7), tele = num(bus, "sim.lens.focal_tele", 94);
  double zoom_max = num(bus, "sim.lens.zoom_max", 16384);
  lens.type = (int)std::clamp(num(bus, "sim.lens_type", 1), -1.0, 1000.0);  // only 0 and the table's types count
  lens.focal = wide + (tele - wide) * num(bus, "ptz.lens.get_pos.zoom", 0) / (zoom_max != 0 ? zoom_max : 16384);
  lens.base_focal = num(bus, "ptz.lens.base_focal_length", 0);
  lens.max_focal = num(bus, "ptz.lens.max_focal_length", 0);
  lens.sensor_w = num(bus, "ptz.lens.sensor_w", 0);
  lens.sensor_h = num(bus, "ptz.lens.sensor_h", 0);
  lens.dzoom = num(bus, "ptz.dzoom.factor", 0);
  lens.eis = text(bus, "encode.cam1.eis.enable") == "on";
  lens.eis_fov = num(bus, "encode.cam1.eis.fov", 0);

  HeadView head;
  head.view.pan = pan_deg(num(bus, "ptz.pan_pos", 0));
  head.view.tilt = tilt_deg(num(bus, "ptz.tilt_pos", 4915));
  head.view.half = half_angles(lens);
  head.view.mirror = text(bus, "image.cam1.mirror") == "on";
  head.view.flip = text(bus, "image.cam1.flip") == "on";
  head.east = (int)fmod(num(bus, "ptz.system.east_pos", 0), kSteps);
  // sim.person is "PAN,TILT[,ZOOM]" in steps.
  std::string person = text(bus, "sim.person");
  char* end = nullptr;
  double pan = strtod(person.c_str(), &end);
  if (end != person.c_str() && *end == ',') {
    const char* tilt_text = end + 1;
    double tilt = strtod(tilt_text, &end);
    if (end != tilt_text && std::isfinite(pan) && std::isfinite(tilt)) head.person = Point{pan_deg(pan), tilt_deg(tilt)};
  }
  head.osd_preset = text(bus, "system.cam1.osd.preset_name");
  head.osd_direction = text(bus, "system.cam1.osd.direction");
  return head;
}

}  // namespace render
