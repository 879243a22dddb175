// Mappings between the PTZ spaces and the head's units.
#include "spaces.h"

#include <cmath>
#include <cstdlib>
#include <string>

namespace onvif {
namespace {

// Nearest integer, halves away from zero.
int nearest(double v) { return static_cast<int>(std::lround(v)); }

}  // namespace

int pan_to_steps(double x) {
  int s = nearest(-x * kTurnSteps / 2.0) % kTurnSteps;
  return s < 0 ? s + kTurnSteps : s;
}

double steps_to_pan(int steps) {
  int s = ((steps % kTurnSteps) + kTurnSteps) % kTurnSteps;
  if (s > kTurnSteps / 2) s -= kTurnSteps;
  return -s / (kTurnSteps / 2.0);
}

int tilt_to_steps(double y) { return nearest((1.0 - y) / 2.0 * (kTiltDownSteps - kTiltTopSteps)) + kTiltTopSteps; }

double steps_to_tilt(int steps) {
  return 1.0 - 2.0 * (steps - kTiltTopSteps) / static_cast<double>(kTiltDownSteps - kTiltTopSteps);
}

int zoom_to_lens(double z) { return nearest(z * kZoomMax); }

double lens_to_zoom(int lens) { return static_cast<double>(lens) / kZoomMax; }

int pan_offset_steps(double dx) { return nearest(-dx * kTurnSteps / 2.0); }

int tilt_offset_steps(double dy) { return nearest(-dy * (kTiltDownSteps - kTiltTopSteps) / 2.0); }

int velocity_percent(double v) {
  int p = -nearest(v * 100);
  // A velocity too small for a whole percent still turns, at the least.
  if (p == 0 && v != 0) p = v > 0 ? -1 : 1;
  return p;
}

int fov_to_picture_x(double dx) { return nearest(5000 + 5000 * dx); }

int fov_to_picture_y(double dy) { return nearest(5000 - 5000 * dy); }

int speed_to_units(double s) { return nearest(kSpeedMin + s * (kSpeedMax - kSpeedMin)); }

double units_to_speed(int units) { return static_cast<double>(units - kSpeedMin) / (kSpeedMax - kSpeedMin); }

bool parse_float(std::string_view text, double* value) {
  if (text.empty() || text.size() > 64) return false;
  for (char c : text) {
    if (!((c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E')) return false;
  }
  std::string copy(text);
  char* end = nullptr;
  double v = std::strtod(copy.c_str(), &end);
  if (end != copy.c_str() + copy.size() || !std::isfinite(v)) return false;
  *value = v == 0 ? 0.0 : v;  // -0 is 0
  return true;
}

bool parse_duration(std::string_view text, long* ms) {
  if (text.size() < 3 || text.size() > 32 || text.substr(0, 2) != "PT") return false;
  double total = 0;
  size_t i = 2;
  while (i < text.size()) {
    size_t start = i;
    while (i < text.size() && ((text[i] >= '0' && text[i] <= '9') || text[i] == '.')) ++i;
    if (i == start || i == text.size()) return false;
    double n = std::strtod(std::string(text.substr(start, i - start)).c_str(), nullptr);
    char unit = text[i++];
    if (unit == 'H') total += n * 3600;
    else if (unit == 'M') total += n * 60;
    else if (unit == 'S') total += n;
    else return false;
  }
  if (!(total <= 86400)) return false;
  *ms = std::lround(total * 1000);
  return true;
}

}  // namespace onvif
