// The sim.* bus keys that set up and break the simulated camera. Each is
// read at power-on and again whenever it is written; a bad value is refused
// (a warning on stderr at power-on) and the world keeps what it had. Expects
// sim::big_lock() held.
#pragma once

#include <string>

#include "world/world.h"

namespace sim {

// Reads every knob that the bus holds and applies it.
void knobs_load(World& w);
// Applies one knob write; false for an unknown key or a bad value, with the
// reason in *why (on stderr when why is null).
bool knob_apply(World& w, const char* key, const char* value, std::string* why = nullptr);
// Publishes the read-only sim.lens.* keys: what the simulated lens is, for
// clients that draw its picture (no notification; they never change).
void knobs_publish_lens(const World& w);

}  // namespace sim
