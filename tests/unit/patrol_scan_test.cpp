// Patrol lists and scan keys: the list parser and loader, the give-up of a
// patrol with nothing stored, the scan key readers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "control/control.h"
#include "daemon_fixture.h"
#include "motion/limits.h"
#include "platform/exports.h"
#include "tours/patrol.h"
#include "tours/scan.h"

namespace {

// Pieces read as atoi, empty ones skipped, -1 stored (and so ending the
// list), at most a row's worth stored: two guard entries behind it stay.
TEST(PatrolList, ParsesIntoTheRowOnly) {
  const std::string nines(200, '9');
  std::string many;
  for (int i = 0; i < 300; i++) many += "1,";
  const struct { std::string text; std::vector<int32_t> head; } rows[] = {
      {"3,5,7", {3, 5, 7, -1}},
      {",,12,,,4,", {12, 4, -1}},
      {" 8,x9,-1,10abc,-7", {8, 0, -1, 10, -7}},
      {nines + ",-" + nines, {INT32_MAX, INT32_MIN, -1}},
      {many, std::vector<int32_t>(kPatrolStops, 1)}};
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

class PatrolRun : public DaemonTest {};

TEST_F(PatrolRun, LoadFillsRowsOneToEightOnly) {
  sim::bus_put("ptz.patrol.set01", "3,5,7");
  sim::bus_put("ptz.patrol.time01", "20");
  sim::bus_put("ptz.patrol.speed08", "1,2");
  sim::bus_put("ptz.patrol.set08", "");
  LoadPatrol();
  EXPECT_EQ(gPatrolSet[1][2], 7);
  EXPECT_EQ(gPatrolSet[1][3], -1);
  EXPECT_EQ(gPatrolTime[1][0], 20);
  EXPECT_EQ(gPatrolTime[1][1], -1);
  EXPECT_EQ(gPatrolSpeed[8][1], 2);
  for (int row : {0, 8, 9, 16}) EXPECT_EQ(gPatrolSet[row][0], -1) << row;
}

// A list of unstored presets: one full round back to the step it started
// from, the next look a second later, and a dwell tick before it.
TEST_F(PatrolRun, ListOfUnstoredPresetsGivesUpAfterOneRound) {
  sim::bus_put("ptz.patrol.set02", "40,41,42");
  LoadPatrol();
  giRunMode = kModePatrol;
  giPatrolTarget = 2;
  giPatrolStep = 1;
  giPatrolNextTime = 0;
  EXPECT_EQ(RunPatrol(kModePatrol, 3000), kModePatrol);
  EXPECT_EQ(giPatrolStep, 1);
  EXPECT_EQ(giPatrolNextTime, 3000);
  EXPECT_EQ(RunPatrol(kModePatrol, 3000), kModePatrol);
  EXPECT_EQ(giPatrolNextTime, 3000);
  EXPECT_EQ(Count("Goto Preset"), 0);
}

class ScanKeys : public DaemonTest {};

TEST_F(ScanKeys, ReadersOfEveryKey) {
  const struct { const char* dir; const char* mirror; int32_t result; } dirs[] = {
      {"left", "on", 1}, {"left", "off", 0}, {"right", "on", 0},
      {"right", "", 1},  {"", "on", 0},      {"Left", "", 1}};
  for (const auto& c : dirs) {
    sim::bus_put("ptz.scan.scan1.dir", c.dir);
    sim::bus_put("image.cam1.mirror", c.mirror);
    EXPECT_EQ(ScanDirection(1), c.result) << c.dir << "/" << c.mirror;
  }
  sim::bus_put("image.cam1.mirror", "");
  // Words must match exactly; numbers read as atoi, without a clamp.
  sim::bus_put("ptz.scan.scan2.focus", "fix");
  sim::bus_put("ptz.scan.scan2.limit", "on");
  EXPECT_EQ(GetFocus(2), 0);
  EXPECT_EQ(ScanLimitOn(2), 1);
  sim::bus_put("ptz.scan.scan2.focus", "fixed");
  sim::bus_put("ptz.scan.scan2.limit", "ON");
  EXPECT_EQ(GetFocus(2), 1);
  EXPECT_EQ(ScanLimitOn(2), 0);
  sim::bus_put("ptz.scan.scan3.speed", "9000");
  sim::bus_put("ptz.scan.scan3.tilt_angle", "-27");
  sim::bus_put("ptz.scan.scan3.zoom_position", "12ab");
  EXPECT_EQ(ScanSpeed(3), 9000);
  EXPECT_EQ(ScanTiltAngle(3), -27);
  EXPECT_EQ(ScanZoomPosition(3), 12);
  sim::bus_put("ptz.scan.scan3.speed", std::string(127, '9').c_str());
  EXPECT_EQ(ScanSpeed(3), INT32_MAX);
  // Numbers outside 1..4 read the defaults.
  for (int32_t id : {0, 5, -1, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(std::vector<int32_t>({ScanDirection(id), ScanSpeed(id), ScanTiltAngle(id), GetFocus(id),
                                    ScanLimitOn(id), ScanZoomPosition(id)}),
              std::vector<int32_t>({1, 0, 0, 1, 0, 0}))
        << id;
  }
}

}  // namespace
