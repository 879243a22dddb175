// The lens process of the simulated camera: it takes commands from bus keys
// under ptz.lens., moves zoom and focus at fixed rates and publishes where
// they are. Every function here expects sim::big_lock() held.
#pragma once

#include <cstdint>

namespace sim {

constexpr int kZoomMax = 16384;      // zoom runs 0 (wide) .. kZoomMax (tele)
constexpr int kZoomRate = 4096;      // zoom steps per second: 4 s end to end
constexpr int kFocusMax = 4096;      // focus runs 0 .. kFocusMax
constexpr int kFocusRate = 4096;     // focus steps per second
constexpr int64_t kLensPublishNs = 100000000LL;  // at most one publication per 100 ms
constexpr int64_t kFocusSearchNs = 400000000LL;  // shortest one-push focus search
constexpr double kFocalWide = 4.7;   // mm at zoom 0
constexpr double kFocalTele = 94.0;  // mm at kZoomMax

constexpr int kLensIdle = 0;
constexpr int kLensMoving = 2;

// Zoom or focus: a motor running to a target, and its last publication.
struct LensAxis {
  const char* key = "";      // bus key it is published on
  int max = 0;
  int rate = 0;              // steps per second
  int pos = 0;
  int target = 0;
  int64_t carry = 0;         // travel not yet a whole step, in 1/1e9 steps
  int published = 0;         // last value written to the bus
  int64_t published_at = 0;  // world time of that write
};

struct Lens {
  LensAxis zoom{.key = "ptz.lens.get_pos.zoom", .max = kZoomMax, .rate = kZoomRate};
  LensAxis focus{.key = "ptz.lens.get_pos.focus", .max = kFocusMax, .rate = kFocusRate};
  int64_t search_left_ns = 0;  // one-push focus search still running
  int one_pushes = 0;
  bool never_settles = false;  // sim.lens.busy: reports moving whatever the motors do
};

// Power-on at the given positions (clamped), already published.
void lens_power_on(Lens& lens, int zoom, int focus, int64_t now_ns);
// Acts on a bus write to a ptz.lens. key; other keys and bad values are ignored.
void lens_command(Lens& lens, const char* key, const char* value);
// Advances the motors by dt_ns and publishes changed positions.
void lens_step(Lens& lens, int64_t dt_ns, int64_t now_ns);
// True when a step can change anything.
inline bool lens_active(const Lens& lens) {
  auto busy = [](const LensAxis& a) { return a.pos != a.target || a.pos != a.published; };
  return lens.search_left_ns > 0 || busy(lens.zoom) || busy(lens.focus);
}
// Nanoseconds until the lens changes by itself (a motor arriving, a
// publication falling due, a search ending); -1 when nothing is due.
int64_t lens_ns_to_event(const Lens& lens, int64_t now_ns);
// GetLensStatus: kLensMoving while zoom or focus moves (or the lens never
// settles), else kLensIdle.
int lens_status(const Lens& lens);

// Focal length in mm: linear from kFocalWide to kFocalTele over the zoom.
double lens_focal_length(int zoom);
// Where a focus search ends for a zoom position.
int lens_sharp_focus(int zoom);

}  // namespace sim
