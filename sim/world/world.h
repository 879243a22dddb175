// The state of the simulated hardware, grouped by device. It is touched only
// under sim::big_lock(); world_init (core.h) puts it back to power-on.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "world/camstate.h"
#include "world/controllers.h"
#include "world/head.h"
#include "world/lens.h"
#include "world/tracker.h"

namespace sim {

// What the emulated shell has seen, for inspection.
struct ShellRecord {
  std::vector<std::string> killed;  // names given to killall, in order
  int lines = 0;                    // lines run
};

struct World {
  int64_t elapsed_ns = 0;   // simulated time since power-on
  int64_t power_on_ns = 0;  // now_ns() at power-on: elapsed_ns counts from there

  Axis pan{.kind = AxisKind::Pan};
  Axis tilt{.kind = AxisKind::Tilt};
  Controllers controllers;
  Lens lens;
  CamState cam;
  ShellRecord shell;
  Tracker tracker;
};

// The one world of the process.
inline World& the_world() {
  static World world;
  return world;
}
// True when a step can change anything (moving, calibrating, publishing).
inline bool world_active(const World& w) {
  return axis_active(w.pan) || axis_active(w.tilt) || lens_active(w.lens) ||
         firmware_active(w.controllers) || w.tracker.report_at >= 0;
}

}  // namespace sim
