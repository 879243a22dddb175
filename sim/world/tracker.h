// The simulated person tracker: shell lines start and kill its processes,
// and while one runs it reports where the simulated person stands
// (sim.person) on ptz.track.location and ptz.track.zoom. Every function here
// expects sim::big_lock() held.
#pragma once

#include <cstdint>

namespace sim {

constexpr int64_t kTrackerFirstReportNs = 500000000LL;  // after a start
constexpr int64_t kTrackerFollowNs = 50000000LL;        // after a move of the person
constexpr int kTrackersMax = 64;                        // the process table's room

// A person in the scene, as sim.person says.
struct Person {
  bool present = false;  // false: sim.person is empty
  int pan = 0;
  int tilt = 0;
  bool has_zoom = false;
  int zoom = 0;
};

struct Tracker {
  int running = 0;         // tracker processes alive
  Person person;
  int64_t report_at = -1;  // world time of the next report; -1 none due
};

// A shell command FigureFollow: one more process; false (nothing started)
// when kTrackersMax already run.
bool tracker_start(Tracker& t, int64_t now_ns);
// killall FigureFollow, or a crash: every process ends.
void tracker_kill_all(Tracker& t);
// sim.person: "PAN,TILT", "PAN,TILT,ZOOM" or empty; false for anything else.
bool tracker_set_person(Tracker& t, const char* value, int64_t now_ns);
// Sends a report that has fallen due.
void tracker_step(Tracker& t, int64_t now_ns);

}  // namespace sim
