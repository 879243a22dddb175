// The knob table: one entry per sim.* key, with what a value does.
#include "world/knobs.h"

#include <cstdio>
#include <cstring>

#include "core/core.h"
#include "world/world_parse.h"

namespace sim {

namespace {

using KnobApply = bool (*)(World& w, const char* value);

struct Knob {
  const char* key;
  KnobApply apply;
};

// Stores a decimal integer in a field; false for anything else.
bool set_int(int& field, const char* value) { return parse_int(value, &field); }

// Stores a decimal integer in lo..hi in a field.
bool set_int_in(int& field, const char* value, int lo, int hi) {
  int v = 0;
  if (!parse_int(value, &v) || v < lo || v > hi) return false;
  field = v;
  return true;
}

bool set_cali(Axis& a, const char* value) { return parse_seconds(value, &a.cali_ns); }

bool set_asleep(Axis& a, const char* value) {
  int v = 0;
  if (!parse_int(value, &v)) return false;
  axis_set_asleep(a, v != 0);
  return true;
}

bool set_pos(Axis& a, const char* value, int hi) {
  int v = 0;
  if (!set_int_in(v, value, 0, hi)) return false;
  axis_place(a, v);
  return true;
}

// A focal length in mm; empty or 0 lets it follow the zoom again.
bool set_focal(double& field, const char* value) {
  if (*value == '\0') {
    field = 0;
    return true;
  }
  return parse_decimal(value, &field);
}

bool set_clock(const char* value) {
  int64_t epoch = 0;
  if (!parse_utc_time(value, &epoch)) return false;
  if (virtual_mode()) set_wall_start(epoch);
  return true;
}

bool set_flag(bool& field, const char* value) {
  int v = 0;
  if (!parse_int(value, &v)) return false;
  field = v != 0;
  return true;
}

// 1 ends every tracker as a crash would; other numbers do nothing.
bool set_crash(Tracker& t, const char* value) {
  int v = 0;
  if (!parse_int(value, &v)) return false;
  if (v == 1) tracker_kill_all(t);
  return true;
}

const Knob kKnobs[] = {
    {"sim.model_id", [](World& w, const char* v) { w.cam.model_id = intern_text(v); return true; }},
    {"sim.motor_type", [](World& w, const char* v) { return set_int(w.cam.motor_type, v); }},
    {"sim.tilt_hall", [](World& w, const char* v) { return set_int(w.cam.tilt_hall, v); }},
    {"sim.lens_type", [](World& w, const char* v) { return set_int(w.cam.lens_type_feature, v); }},
    {"sim.dzoom", [](World& w, const char* v) { return set_int(w.cam.dzoom, v); }},
    {"sim.focal_mm", [](World& w, const char* v) { return set_focal(w.cam.focal_mm, v); }},
    {"sim.i2c_nacks", [](World& w, const char* v) { return set_int_in(w.controllers.nacks_left, v, 0, 1 << 30); }},
    {"sim.pan.cali_s", [](World& w, const char* v) { return set_cali(w.pan, v); }},
    {"sim.tilt.cali_s", [](World& w, const char* v) { return set_cali(w.tilt, v); }},
    {"sim.pan.asleep", [](World& w, const char* v) { return set_asleep(w.pan, v); }},
    {"sim.tilt.asleep", [](World& w, const char* v) { return set_asleep(w.tilt, v); }},
    {"sim.pan.temp", [](World& w, const char* v) { return set_int(w.pan.temp, v); }},
    {"sim.tilt.temp", [](World& w, const char* v) { return set_int(w.tilt.temp, v); }},
    {"sim.pan.prog_state", [](World& w, const char* v) { return set_int(w.pan.prog_state, v); }},
    {"sim.tilt.prog_state", [](World& w, const char* v) { return set_int(w.tilt.prog_state, v); }},
    {"sim.pan.pos", [](World& w, const char* v) { return set_pos(w.pan, v, kPanTurn); }},
    {"sim.tilt.pos", [](World& w, const char* v) { return set_pos(w.tilt, v, kTiltMax); }},
    {"sim.clock", [](World&, const char* v) { return set_clock(v); }},
    {"sim.person", [](World& w, const char* v) { return tracker_set_person(w.tracker, v, w.elapsed_ns); }},
    {"sim.lens.busy", [](World& w, const char* v) { return set_flag(w.lens.never_settles, v); }},
    {"sim.tracker.crash", [](World& w, const char* v) { return set_crash(w.tracker, v); }},
    // Written by the camera itself; a write from outside changes nothing.
    {"sim.tracker.running", [](World&, const char*) { return true; }},
};

// Keys the camera writes about itself and nobody else may write.
const char* const kReadOnly[] = {"sim.lens.focal_wide", "sim.lens.focal_tele", "sim.lens.zoom_max",
                                 "sim.store", "sim.store.calls"};

}  // namespace

bool world_key_read_only(const char* key) {
  if (!key) return false;
  for (const char* k : kReadOnly) {
    if (strcmp(k, key) == 0) return true;
  }
  return false;
}

void knobs_load(World& w) {
  bus_visit("sim.", [](const char* key, const char* value, void* ctx) {
    if (!world_key_read_only(key)) knob_apply(*static_cast<World*>(ctx), key, value);
  }, &w);
}

void knobs_publish_lens(const World&) {
  char text[32];
  snprintf(text, sizeof text, "%g", kFocalWide);
  bus_put("sim.lens.focal_wide", text);
  snprintf(text, sizeof text, "%g", kFocalTele);
  bus_put("sim.lens.focal_tele", text);
  snprintf(text, sizeof text, "%d", kZoomMax);
  bus_put("sim.lens.zoom_max", text);
}

bool knob_apply(World& w, const char* key, const char* value, std::string* why) {
  if (!key || !value) return false;
  int applied = firmware_knob(w.controllers, key, value);  // 1 applied, 0 bad, -1 not one of its
  for (const Knob& k : kKnobs) {
    if (applied < 0 && strcmp(k.key, key) == 0) applied = k.apply(w, value) ? 1 : 0;
  }
  if (applied == 1) return true;
  std::string reason = std::string(key) + (applied == 0 ? ": bad value \"" + std::string(value) +
                                                               "\", knob unchanged"
                                                         : ": no such knob");
  if (why != nullptr) {
    *why = reason;
  } else {
    fprintf(stderr, "%s\n", reason.c_str());
  }
  return false;
}

}  // namespace sim
