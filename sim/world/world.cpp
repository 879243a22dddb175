// The simulated hardware as a whole: power-on, the physics step, and the bus
// writes it reacts to (knobs and lens commands).
#include "world/world.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "core/core.h"
#include "world/knobs.h"
#include "world/world_parse.h"

namespace sim {

namespace {

// A lens position stored on the bus, if it reads as a number.
bool stored_position(const char* key, int* out) {
  char text[kValueMax + 1];
  return bus_read(key, text, sizeof text) && parse_int(text, out);
}

// The lens resumes where the bus says it was, and says so again.
void lens_power_on_from_bus(World& w) {
  int zoom = 0;
  stored_position(w.lens.zoom.key, &zoom);
  int focus = lens_sharp_focus(zoom);
  stored_position(w.lens.focus.key, &focus);
  lens_power_on(w.lens, zoom, focus, w.elapsed_ns);
  for (const LensAxis* a : {&w.lens.zoom, &w.lens.focus}) {
    char text[16];
    snprintf(text, sizeof text, "%d", a->pos);
    bus_put(a->key, text);
  }
}

}  // namespace

void world_init() {
  std::lock_guard lock(big_lock());
  World& w = the_world();
  w = World{};
  w.power_on_ns = now_ns();
  knobs_load(w);
  axis_power_on(w.pan);
  axis_power_on(w.tilt);
  lens_power_on_from_bus(w);
  knobs_publish_lens(w);
}

void world_step(int64_t dt_ns) {
  std::lock_guard lock(big_lock());
  World& w = the_world();
  if (dt_ns <= 0) return;
  if (!world_active(w)) {
    w.elapsed_ns += dt_ns;
    return;
  }
  while (dt_ns > 0) {
    int64_t dt = std::min(dt_ns, kWorldStepNs);
    w.elapsed_ns += dt;
    axis_step(w.pan, dt);
    axis_step(w.tilt, dt);
    lens_step(w.lens, dt, w.elapsed_ns);
    firmware_step(w.controllers, dt);
    tracker_step(w.tracker, w.elapsed_ns);
    dt_ns -= dt;
  }
}

bool world_take_knob(const char* key, const char* value, std::string* why) {
  if (!key || !value || strncmp(key, "sim.", 4) != 0) return true;
  std::lock_guard lock(big_lock());
  world_catch_up();
  // Keys the camera has no knob for (sim.person of slewweb) are stored.
  bool taken = knob_apply(the_world(), key, value, why) || why->find(": no such knob") != std::string::npos;
  world_wake_if_changed();
  return taken;
}

void world_on_bus_write(Origin, const char* key, const char* value) {
  if (!key || !value) return;
  std::lock_guard lock(big_lock());
  World& w = the_world();
  world_catch_up();
  if (strncmp(key, "ptz.lens.", 9) == 0) lens_command(w.lens, key, value);
  world_wake_if_changed();
}

}  // namespace sim
