// The lens process: zoom and focus motors driven by bus commands.
#include "world/lens.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "core/core.h"
#include "world/world_parse.h"

namespace sim {

namespace {

// Sends the axis towards a position given as decimal text; negatives and
// non-numbers are ignored.
void set_target_text(LensAxis& axis, const char* value) {
  int v = 0;
  if (parse_int(value, &v) && v >= 0) axis.target = std::min(v, axis.max);
}

// Moves one axis towards its target for dt_ns.
void move_axis(LensAxis& axis, int64_t dt_ns) {
  if (axis.pos == axis.target) {
    axis.carry = 0;
    return;
  }
  int64_t travel = int64_t{axis.rate} * dt_ns + axis.carry;
  int64_t steps = travel / 1000000000LL;
  axis.carry = travel % 1000000000LL;
  int64_t gap = axis.target - axis.pos;
  if (steps >= (gap < 0 ? -gap : gap)) {
    axis.pos = axis.target;
    axis.carry = 0;
  } else {
    axis.pos += static_cast<int>(gap < 0 ? -steps : steps);
  }
}

// Writes the position to the bus if it changed and the last write is old enough.
void publish(LensAxis& axis, int64_t now_ns) {
  if (axis.pos == axis.published || now_ns - axis.published_at < kLensPublishNs) return;
  char text[16];
  snprintf(text, sizeof text, "%d", axis.pos);
  axis.published = axis.pos;
  axis.published_at = now_ns;
  bus_write(Origin::Sim, axis.key, text);
}

// Puts an axis at rest at pos, as if it had just been published.
void power_on_axis(LensAxis& axis, int pos, int64_t now_ns) {
  axis.pos = axis.target = axis.published = std::clamp(pos, 0, axis.max);
  axis.carry = 0;
  axis.published_at = now_ns - kLensPublishNs;
}

}  // namespace

void lens_power_on(Lens& lens, int zoom, int focus, int64_t now_ns) {
  power_on_axis(lens.zoom, zoom, now_ns);
  power_on_axis(lens.focus, focus, now_ns);
  lens.search_left_ns = 0;
  lens.one_pushes = 0;
}

void lens_command(Lens& lens, const char* key, const char* value) {
  if (!key || !value) return;
  if (strcmp(key, "ptz.lens.set_pos.zoom") == 0) {
    set_target_text(lens.zoom, value);
  } else if (strcmp(key, "ptz.lens.set_pos.focus") == 0) {
    set_target_text(lens.focus, value);
    lens.search_left_ns = 0;
  } else if (strcmp(key, "ptz.lens.manual.zoom") == 0) {
    if (strcmp(value, "tele") == 0) lens.zoom.target = kZoomMax;
    else if (strcmp(value, "wide") == 0) lens.zoom.target = 0;
    else if (strcmp(value, "stop") == 0) lens.zoom.target = lens.zoom.pos;
  } else if (strcmp(key, "ptz.lens.one_push") == 0 && strcmp(value, "run") == 0) {
    lens.focus.target = lens_sharp_focus(lens.zoom.pos);
    lens.search_left_ns = kFocusSearchNs;
    lens.one_pushes++;
  }
}

void lens_step(Lens& lens, int64_t dt_ns, int64_t now_ns) {
  lens.search_left_ns = std::max<int64_t>(lens.search_left_ns - dt_ns, 0);
  move_axis(lens.zoom, dt_ns);
  move_axis(lens.focus, dt_ns);
  publish(lens.zoom, now_ns);
  publish(lens.focus, now_ns);
}

namespace {

// Nanoseconds until one motor arrives or its next publication falls due. A
// moving motor whose publication is already due publishes at its next whole
// step.
int64_t axis_ns_to_event(const LensAxis& axis, int64_t now_ns) {
  if (axis.pos == axis.target && axis.pos == axis.published) return -1;
  int64_t due = axis.published_at + kLensPublishNs - now_ns;
  if (axis.pos == axis.target) return std::max<int64_t>(due, 1);
  auto travel_ns = [&](int64_t steps) {
    return std::max<int64_t>((steps * 1000000000LL - axis.carry + axis.rate - 1) / axis.rate, 1);
  };
  int64_t gap = axis.target > axis.pos ? axis.target - axis.pos : axis.pos - axis.target;
  return std::min(travel_ns(gap), due > 0 ? due : travel_ns(1));
}

}  // namespace

int64_t lens_ns_to_event(const Lens& lens, int64_t now_ns) {
  int64_t search = lens.search_left_ns > 0 ? lens.search_left_ns : -1;
  return sooner_ns(search, sooner_ns(axis_ns_to_event(lens.zoom, now_ns), axis_ns_to_event(lens.focus, now_ns)));
}

int lens_status(const Lens& lens) {
  bool moving = lens.zoom.pos != lens.zoom.target || lens.focus.pos != lens.focus.target ||
                lens.search_left_ns > 0 || lens.never_settles;
  return moving ? kLensMoving : kLensIdle;
}

double lens_focal_length(int zoom) {
  return kFocalWide + (kFocalTele - kFocalWide) * std::clamp(zoom, 0, kZoomMax) / kZoomMax;
}

int lens_sharp_focus(int zoom) { return std::clamp(zoom, 0, kZoomMax) / 4; }

}  // namespace sim
