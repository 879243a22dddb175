// Helpers shared by the library calls of the simulated camera
// (vendor_gimbal.cpp, vendor_camstate.cpp): the lock and the getter traces.
#pragma once

#include <mutex>

#include "core.h"

namespace sim {

// Holds the simulated camera's lock for the length of one call.
inline std::lock_guard<std::recursive_mutex> hold() {
  return std::lock_guard<std::recursive_mutex>(big_lock());
}

// A getter with an out-pointer: delivers v (if there is a pointer) and traces
// it as Name(v). -1 without a pointer.
inline int deliver(const char* name, int* out, int v) {
  if (out) *out = v;
  trace_call(true, "%s(%d)", name, v);
  return out ? 0 : -1;
}

// A getter that returns its value, traced as Name()=v.
inline int report(const char* name, int v) {
  trace_call(true, "%s()=%d", name, v);
  return v;
}

}  // namespace sim
