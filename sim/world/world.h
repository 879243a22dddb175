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

World& the_world();
// True when a step can change anything (moving, calibrating, publishing).
bool world_active(const World& w);

}  // namespace sim
