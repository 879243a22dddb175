// Helpers shared by the library calls of the simulated camera
// (vendor_gimbal.cpp, vendor_camstate.cpp): the lock and the getter traces.
#pragma once

#include <mutex>

#include "core/core.h"
#include "world/world.h"

namespace sim {

// One library call: holds the simulated camera's lock, sees the world as of
// the moment of the call and, when the call may change the world, tells the
// world thread if it changed what the thread waits for.
class Call {
 public:
  // A world with nothing under way stays as it is until something changes
  // it, and whatever does catches it up first: a read needs no catch-up.
  explicit Call(bool changes) : guard_(big_lock()), changes_(changes) {
    if (changes || world_active(the_world())) world_catch_up();
  }
  ~Call() {
    if (changes_) world_wake_if_changed();
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

 private:
  std::lock_guard<std::recursive_mutex> guard_;
  PlatformCall platform_;
  bool changes_;
};

// A call that may change the world (a move, a reset, a register write).
inline Call hold() { return Call(true); }
// A call that only reads: catching the world up never changes the moment
// the world thread waits for, so the thread is left be.
inline Call look() { return Call(false); }

// A getter with an out-pointer: delivers v (if there is a pointer) and traces
// it as Name(v). -1 without a pointer.
inline int deliver(const char* name, int* out, int v) {
  if (out) *out = v;
  if (verbose()) trace_call(true, "%s(%d)", name, v);
  return out ? 0 : -1;
}

// A getter that returns its value, traced as Name()=v.
inline int report(const char* name, int v) {
  if (verbose()) trace_call(true, "%s()=%d", name, v);
  return v;
}

}  // namespace sim
