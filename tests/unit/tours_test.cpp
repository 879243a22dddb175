// Tours: patrol lists and loader, scan keys, schedule days and actions, track positions.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "control/control.h"
#include "daemon_fixture.h"
#include "platform/exports.h"
#include "tours/patrol.h"
#include "tours/scan.h"
#include "tours/schedule.h"
#include "tours/tracking.h"

namespace {

// Pieces read as atoi, empty ones skipped, -1 stored (and so ending the
// list), at most a row's worth stored: two guard entries behind it stay.
TEST(PatrolList, ParsesIntoTheRowOnly) {
  const std::string nines(200, '9');
  std::string many;
  for (int i = 0; i < 300; i++) many += "1,";
  const struct { std::string text; std::vector<int32_t> head; } rows[] = {
      {"3,5,7", {3, 5, 7, -1}},          {",,12,,,4,", {12, 4, -1}}, {" 8,x9,-1,10abc,-7", {8, 0, -1, 10, -7}},
      {nines + ",-" + nines, {INT32_MAX, INT32_MIN, -1}}, {many, std::vector<int32_t>(kPatrolStops, 1)}};
  for (const auto& r : rows) {
    int32_t entries[kPatrolStops + 2];
    std::fill(std::begin(entries), std::end(entries), -1);
    entries[kPatrolStops] = entries[kPatrolStops + 1] = 777;
    std::string text = r.text;
    ParsePatrolList(entries, text.data());
    EXPECT_EQ(std::vector<int32_t>(entries, entries + r.head.size()), r.head) << r.text;
    EXPECT_EQ(entries[kPatrolStops] + entries[kPatrolStops + 1], 2 * 777) << r.text;
  }
}

class PatrolScan : public DaemonTest {};

TEST_F(PatrolScan, LoadFillsRowsOneToEightOnly) {
  sim::bus_put("ptz.patrol.set01", "3,5,7");
  sim::bus_put("ptz.patrol.time01", "20");
  sim::bus_put("ptz.patrol.speed08", "1,2");
  sim::bus_put("ptz.patrol.set08", "");
  LoadPatrol();
  EXPECT_EQ(std::vector<int32_t>({gPatrolSet[1][2], gPatrolSet[1][3], gPatrolTime[1][0], gPatrolTime[1][1],
                                  gPatrolSpeed[8][1], gPatrolSet[8][0], gPatrolSet[0][0], gPatrolSet[9][0],
                                  gPatrolSet[16][0]}),
            std::vector<int32_t>({7, -1, 20, -1, 2, -1, -1, -1, -1}));
}

// Direction by dir and mirror; words must match exactly; numbers read as
// atoi, without a clamp; numbers outside 1..4 read the defaults.
TEST_F(PatrolScan, ScanKeyReaders) {
  const struct { const char* dir; const char* mirror; int32_t result; } dirs[] = {
      {"left", "on", 1}, {"left", "off", 0}, {"right", "on", 0}, {"right", "", 1}, {"", "on", 0}, {"Left", "", 1}};
  for (const auto& c : dirs) {
    sim::bus_put("ptz.scan.scan1.dir", c.dir);
    sim::bus_put("image.cam1.mirror", c.mirror);
    EXPECT_EQ(ScanDirection(1), c.result) << c.dir << "/" << c.mirror;
  }
  sim::bus_put("image.cam1.mirror", "");
  const std::string nines(127, '9');
  const struct { const char* key; const char* value; int32_t (*read)(int32_t); int32_t result; } keys[] = {
      {"focus", "fix", GetFocus, 0},          {"focus", "fixed", GetFocus, 1},
      {"limit", "on", ScanLimitOn, 1},        {"limit", "ON", ScanLimitOn, 0},
      {"speed", "9000", ScanSpeed, 9000},     {"speed", nines.c_str(), ScanSpeed, INT32_MAX},
      {"zoom_position", "12ab", ScanZoomPosition, 12}};
  for (const auto& k : keys) {
    sim::bus_put((std::string("ptz.scan.scan2.") + k.key).c_str(), k.value);
    EXPECT_EQ(k.read(2), k.result) << k.key << "=" << k.value;
  }
  for (int32_t id : {0, 5, -1, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(std::vector<int32_t>({ScanDirection(id), ScanSpeed(id), ScanTiltAngle(id), GetFocus(id),
                                    ScanLimitOn(id), ScanZoomPosition(id)}),
              std::vector<int32_t>({1, 0, 0, 1, 0, 0}))
        << id;
  }
}

class Schedule : public DaemonTest {};

// Each value's four entries as "action start end": a last piece of 5
// characters is dropped, a bare ';' uses up an entry, times are not
// validated, a fifth entry and an action over 63 characters are dropped.
TEST_F(Schedule, DayValuesWellAndBadlyFormed) {
  const std::pair<std::string, const char*> days[] = {
      {"patrol:1,800,1200;go_preset:3,1300,1330", "patrol:1 800 1200|go_preset:3 1300 1330| 0 0| 0 0"},
      {"stop;a,1,2", "stop 0 0| 0 0| 0 0| 0 0"},
      {";,,scan:2,,,900,,1000,;go_preset:1;", " 0 0|scan:2 900 1000|go_preset:1 0 0| 0 0"},
      {"go_preset:1,2460,-5;go_preset:2,x,99999999999;", "go_preset:1 2460 -5|go_preset:2 0 2147483647| 0 0| 0 0"},
      {"stop,1,2;stop,3,4;stop,5,6;stop,7,8;go_preset:9,9,10;go_preset:9,11,12",
       "stop 1 2|stop 3 4|stop 5 6|stop 7 8"},
      {std::string(64, 'x') + "go_preset:5,100,200;", " 100 200| 0 0| 0 0| 0 0"},
      {std::string(127, ';'), " 0 0| 0 0| 0 0| 0 0"}};
  for (const auto& [value, expected] : days) {
    ScheduleEntry row[kScheduleEntries];
    ParseScheduleDay("mon", value.c_str(), row);
    std::string entries;
    for (const auto& e : row) entries += (entries.empty() ? "" : "|") + std::string(e.action) + " " +
                                         std::to_string(e.start) + " " + std::to_string(e.end);
    EXPECT_EQ(entries, expected) << value;
  }
  // The value of separators drops a fifth and a sixth entry too.
  const std::pair<const char*, int> lines[] = {{"out 2.mon,1,mode:go_preset:3 Start:1300 End:1330", 1},
                                               {"action over 63 characters", 1},
                                               {"out mon,4: only 4 entries a day, entry dropped", 2},
                                               {"out mon,5: only 4 entries a day, entry dropped", 2}};
  for (const auto& [line, n] : lines) EXPECT_EQ(Count(line), n) << line;
}

// Number times 256 plus mode; the first verb in the order of search wins; a
// huge number wraps without overflow, the low byte still the mode.
TEST_F(Schedule, ActionsEncodeNumberAndModeAndSetTargets) {
  const std::pair<const char*, int32_t> actions[] = {
      {"go_preset:3", 3 * 256 + 2}, {"pattern:2", 2 * 256 + 4}, {"xx patrol:7", 7 * 256 + 3},
      {"scan:-1", -256 + 5},        {"stop", 0},                {"nothing", -1},
      {"", -1},                     {"scan:go_preset:4", 4 * 256 + 2}};
  for (const auto& [text, code] : actions) EXPECT_EQ(ParseScheduleAction(text), code) << text;
  EXPECT_EQ(ParseScheduleAction("go_preset:99999999999") & 0xff, 2);
  for (const char* action : {"go_preset:600", "scan:-3", "patrol:4", "pattern:2"}) {
    ApplyScheduleTarget(ParseScheduleAction(action));
  }
  EXPECT_EQ(std::vector<int32_t>({giPresetTarget, giScanTarget, giPatrolTarget, giPatternTarget}),
            std::vector<int32_t>({512, -3, 4, 2}));
  giPresetTarget = 7;
  ApplyScheduleTarget(9);
  ApplyScheduleTarget(-1);
  EXPECT_EQ(giPresetTarget, 7);
}

TEST(TrackPosition, FieldsAndMalformedTexts) {
  const struct { const char* text; int32_t pan, tilt; } cases[] = {
      {"", 0, 0},         {"100,200", 100, 200}, {"100", 100, -1},   {"abc", 0, -1},
      {"a,b", 0, 0},      {"99999999999,5", -1, 5}, {"5,40000", 5, -1}, {"-7,-8", -1, -1},
      {"1,2,3", 1, 2},    {",300", 0, 300},      {"65535,37681", 65535, 37681}};
  for (const auto& c : cases) {
    int32_t pan = 1, tilt = 1;
    ParseTrackPosition(c.text, &pan, &tilt);
    EXPECT_EQ(std::make_pair(pan, tilt), std::make_pair(c.pan, c.tilt)) << c.text;
  }
}

}  // namespace
