// The pan/tilt head: two motor axes with their physics, soft limits,
// calibration and sleep. Every function here expects sim::big_lock() held.
#pragma once

#include <cstdint>

namespace sim {

// ---- scales and rates -------------------------------------------------------

constexpr int kPanTurn = 65535;     // pan steps to a full turn; step 65535 is step 0
constexpr int kTiltMax = 37681;     // last tilt step; tilt runs 0..kTiltMax, no wrap
constexpr int kFullTurnSpeed = 7200;  // driver speed that turns 65535 steps per second
constexpr int kSpeedMax = 72000;    // driver speeds above this run at this speed
constexpr int kControllerAsleep = 3;  // sleep-mode reading of a sleeping controller

enum class AxisKind { Pan, Tilt };
enum class Motion { Stopped, Continuous, Absolute };

// One motor axis and its controller's health.
struct Axis {
  AxisKind kind = AxisKind::Pan;

  // Motion
  int pos = 0;                  // pan 0..65534, tilt 0..kTiltMax
  Motion motion = Motion::Stopped;
  bool up = false;              // travelling towards higher steps
  int speed = 0;                // driver units, 0..kSpeedMax
  int target = 0;               // stop position of an absolute move
  int64_t carry = 0;            // travel not yet a whole step, in 1/kTravelDen steps

  // Soft limits: low/high bound in steps (pan: right/left, tilt: up/down)
  int limit_low = 0;
  int limit_high = 0;
  bool limit_enabled = false;
  int limit_step_speed = 0;     // last PanLimitstep/TiltLimitstep speed, recorded only

  // Controller health
  int64_t cali_ns = 3000000000LL;  // length of one calibration
  int64_t cali_left_ns = 0;        // calibration still to run; > 0 while calibrating
  bool asleep = false;
  int temp = 40;                   // degrees Celsius
  int prog_state = 0;              // 0: reset allowed
  int resets = 0;                  // resets accepted since power-on
};

// Puts the axis into its power-on state where it stands: stopped, limits
// off, calibrating.
void axis_power_on(Axis& axis);
// Places the axis at pos at once (pan taken modulo the turn, tilt clamped).
void axis_place(Axis& axis, int pos);

// Runs towards higher (up) or lower steps until stopped or a limit; speed 0
// stops. Returns -1 (and does nothing) while calibrating or asleep.
int axis_continuous(Axis& axis, bool up, int speed);
// Runs towards higher (up) or lower steps until target; pan wraps on the way,
// tilt stops at once if target lies behind.
int axis_absolute(Axis& axis, bool up, int speed, int target);
void axis_stop(Axis& axis);

// Soft limits; pan bounds are taken modulo the turn.
void axis_set_limits(Axis& axis, int low, int high);
void axis_enable_limits(Axis& axis, bool enabled);

// Controller restart: wakes, stops and calibrates again. -1 when the
// programming state forbids it.
int axis_reset(Axis& axis);
void axis_set_asleep(Axis& axis, bool asleep);

inline bool axis_moving(const Axis& axis) { return axis.motion != Motion::Stopped; }
inline bool axis_calibrating(const Axis& axis) { return axis.cali_left_ns > 0; }
// True when a step can change anything (moving or calibrating).
inline bool axis_active(const Axis& axis) { return axis_moving(axis) || axis_calibrating(axis); }
// Advances the axis by dt_ns (at most one world step).
void axis_step(Axis& axis, int64_t dt_ns);
// Nanoseconds until the axis changes by itself (arrives, stops at a bound or
// ends its calibration); -1 when nothing is due (idle, or turning for good).
int64_t axis_ns_to_event(const Axis& axis);

}  // namespace sim
