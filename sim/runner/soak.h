// The soak: a long scenario of random commands, settings writes and camera
// faults, built from a seed, and the invariants checked all through its run.
// It is an ordinary scenario for the runner; only the invariants need a look
// inside the daemon, through the probes its program hands in.
#pragma once

#include <cstdint>
#include <string>

#include "runner/run.h"
#include "runner/scenario.h"

namespace sim {

// Counts of what a plan holds.
struct SoakCounts {
  long commands = 0;  // writes of ptz.run_mode
  long settings = 0;  // writes of other daemon keys
  long faults = 0;    // faults of the camera injected (and healed)
  long preset_checks = 0;  // comparisons of the stored presets with the model
};

// Builds the soak of the given seed and virtual length as a scenario.
Scenario soak_plan(uint64_t seed, double hours, SoakCounts* counts);

// The invariants of a soak, for RunOptions::watch; counts reported at the
// end come from counts.
const RunWatch* soak_watch(const DaemonProbes& probes, const SoakCounts& counts);

}  // namespace sim
