// Physics of the head's two axes: constant-speed travel with no ramp, stops
// at an absolute target, a soft limit or (tilt) the end of travel.
#include "world/head.h"

#include <algorithm>
#include <climits>

#include "core/core.h"

namespace sim {

namespace {

// Travel per ns at speed s is s * kPanTurn / (kFullTurnSpeed * 1e9) steps;
// carrying the remainder keeps long runs exact.
constexpr int64_t kTravelDen = int64_t{kFullTurnSpeed} * 1000000000LL;
constexpr int64_t kUnbounded = INT64_MAX;

// Reduces any pan value to 0..kPanTurn-1.
int wrap_pan(int64_t v) {
  int64_t m = v % kPanTurn;
  return static_cast<int>(m < 0 ? m + kPanTurn : m);
}

// Steps from pos to to, travelling in the axis's direction (0 if behind, tilt).
int64_t distance_to(const Axis& a, int to) {
  if (a.kind == AxisKind::Pan) return a.up ? wrap_pan(int64_t{to} - a.pos) : wrap_pan(int64_t{a.pos} - to);
  int64_t d = a.up ? int64_t{to} - a.pos : int64_t{a.pos} - to;
  return std::max<int64_t>(d, 0);
}

// Steps the axis may still travel before it has to stop.
int64_t room(const Axis& a) {
  int64_t r = kUnbounded;
  if (a.kind == AxisKind::Tilt) r = a.up ? kTiltMax - a.pos : a.pos;
  if (a.motion == Motion::Absolute) r = std::min(r, distance_to(a, a.target));
  if (a.limit_enabled) r = std::min(r, distance_to(a, a.up ? a.limit_high : a.limit_low));
  return std::max<int64_t>(r, 0);
}

// Stops the axis if it has no room left (a move that is already there).
void settle(Axis& a) {
  if (a.motion != Motion::Stopped && room(a) == 0) axis_stop(a);
}

// Common start of a move; false when the controller can't move now.
bool start_move(Axis& a, Motion motion, bool up, int speed) {
  if (a.asleep || axis_calibrating(a)) return false;
  a.speed = std::clamp(speed, 0, kSpeedMax);
  a.up = up;
  a.carry = 0;
  a.motion = a.speed == 0 ? Motion::Stopped : motion;
  return true;
}

}  // namespace

void axis_power_on(Axis& axis) {
  axis_stop(axis);
  axis.limit_enabled = false;
  axis.cali_left_ns = axis.cali_ns;
}

void axis_place(Axis& axis, int pos) {
  axis.pos = axis.kind == AxisKind::Pan ? wrap_pan(pos) : std::clamp(pos, 0, kTiltMax);
  settle(axis);
}

int axis_continuous(Axis& axis, bool up, int speed) {
  if (!start_move(axis, Motion::Continuous, up, speed)) return -1;
  settle(axis);
  return 0;
}

int axis_absolute(Axis& axis, bool up, int speed, int target) {
  if (!start_move(axis, Motion::Absolute, up, speed)) return -1;
  axis.target = axis.kind == AxisKind::Pan ? wrap_pan(target) : target;
  settle(axis);
  return 0;
}

void axis_stop(Axis& axis) {
  axis.motion = Motion::Stopped;
  axis.speed = 0;
  axis.carry = 0;
}

void axis_set_limits(Axis& axis, int low, int high) {
  bool pan = axis.kind == AxisKind::Pan;
  axis.limit_low = pan ? wrap_pan(low) : low;
  axis.limit_high = pan ? wrap_pan(high) : high;
  settle(axis);
}

void axis_enable_limits(Axis& axis, bool enabled) {
  axis.limit_enabled = enabled;
  settle(axis);
}

int axis_reset(Axis& axis) {
  if (axis.prog_state != 0) return -1;
  axis_stop(axis);
  axis.asleep = false;
  axis.cali_left_ns = axis.cali_ns;
  axis.resets++;
  return 0;
}

void axis_set_asleep(Axis& axis, bool asleep) {
  if (asleep) axis_stop(axis);
  axis.asleep = asleep;
}

void axis_step(Axis& axis, int64_t dt_ns) {
  if (axis.cali_left_ns > 0) axis.cali_left_ns = std::max<int64_t>(axis.cali_left_ns - dt_ns, 0);
  if (!axis_moving(axis)) return;
  int64_t travel = int64_t{axis.speed} * kPanTurn * dt_ns + axis.carry;
  int64_t steps = travel / kTravelDen;
  axis.carry = travel % kTravelDen;
  int64_t r = room(axis);
  bool arrives = steps >= r;
  if (arrives) steps = r;
  int64_t signed_steps = axis.up ? steps : -steps;
  if (axis.kind == AxisKind::Pan) axis.pos = wrap_pan(axis.pos + signed_steps);
  else axis.pos = static_cast<int>(axis.pos + signed_steps);
  if (arrives) axis_stop(axis);
}

int64_t axis_ns_to_event(const Axis& axis) {
  int64_t soonest = axis_calibrating(axis) ? axis.cali_left_ns : -1;
  if (!axis_moving(axis)) return soonest;
  int64_t r = room(axis);
  if (r == kUnbounded) return soonest;
  // The first instant at which the travel covers the room; at least 1 ns so
  // that a waiter always moves on.
  int64_t per_ns = int64_t{axis.speed} * kPanTurn;
  int64_t needed = r * kTravelDen - axis.carry;
  int64_t arrival = std::max<int64_t>((needed + per_ns - 1) / per_ns, 1);
  return sooner_ns(soonest, arrival);
}

}  // namespace sim
