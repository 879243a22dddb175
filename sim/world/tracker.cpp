// The simulated person tracker.
#include "world/tracker.h"

#include <cstdio>
#include <cstring>

#include "core/core.h"
#include "world/world_parse.h"

namespace sim {

namespace {

// Tells the bus how many trackers run, as the process table would.
void publish_running(const Tracker& t) {
  char text[16];
  snprintf(text, sizeof text, "%d", t.running);
  bus_write(Origin::Sim, "sim.tracker.running", text);
}

// Reads up to three comma-separated integers; returns how many, or -1 when
// the text is anything else.
int parse_numbers(const char* value, int out[3]) {
  char field[32];
  int count = 0;
  const char* p = value;
  while (true) {
    const char* comma = strchr(p, ',');
    size_t len = comma ? static_cast<size_t>(comma - p) : strlen(p);
    if (count == 3 || len >= sizeof field) return -1;
    memcpy(field, p, len);
    field[len] = '\0';
    if (!parse_int(field, &out[count++])) return -1;
    if (!comma) return count;
    p = comma + 1;
  }
}

// Schedules a report no later than at.
void report_by(Tracker& t, int64_t at) {
  if (t.report_at < 0 || at < t.report_at) t.report_at = at;
}

}  // namespace

bool tracker_start(Tracker& t, int64_t now_ns) {
  if (t.running >= kTrackersMax) return false;
  t.running++;
  t.report_at = now_ns + kTrackerFirstReportNs;
  publish_running(t);
  return true;
}

void tracker_kill_all(Tracker& t) {
  t.report_at = -1;
  if (t.running == 0) return;
  t.running = 0;
  publish_running(t);
}

bool tracker_set_person(Tracker& t, const char* value, int64_t now_ns) {
  Person p;
  if (value[0] != '\0') {
    int v[3] = {0, 0, 0};
    int n = parse_numbers(value, v);
    if (n < 2) return false;
    p = Person{.present = true, .pan = v[0], .tilt = v[1], .has_zoom = n == 3, .zoom = v[2]};
  }
  t.person = p;
  if (t.running > 0) report_by(t, now_ns + kTrackerFollowNs);
  return true;
}

void tracker_step(Tracker& t, int64_t now_ns) {
  if (t.report_at < 0 || now_ns < t.report_at) return;
  t.report_at = -1;
  if (t.running == 0 || !t.person.present) return;
  char text[32];
  if (t.person.has_zoom) {
    snprintf(text, sizeof text, "%d", t.person.zoom);
    bus_write(Origin::Sim, "ptz.track.zoom", text);
  }
  snprintf(text, sizeof text, "%d,%d", t.person.pan, t.person.tilt);
  bus_write(Origin::Sim, "ptz.track.location", text);
}

}  // namespace sim
