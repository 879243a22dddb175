// Patrol lists and scan keys: the list parser, the patrol load and its
// refusals, the scan key readers, and a scan kept inside its pan window.
#include <gtest/gtest.h>

#include <string>

#include "control/control.h"
#include "daemon_fixture.h"
#include "motion/limits.h"
#include "platform/exports.h"
#include "platform/gimbal.h"
#include "slewd/loop.h"
#include "tours/patrol.h"
#include "tours/scan.h"

namespace {

// Parses text into a row with two guard entries behind its end.
struct GuardedRow {
  int32_t entries[kPatrolStops + 2];
  GuardedRow() {
    for (int32_t& e : entries) e = -1;
    entries[kPatrolStops] = entries[kPatrolStops + 1] = 777;
  }
  void Parse(std::string text) { ParsePatrolList(entries, text.data()); }
};

TEST(PatrolList, NumbersInOrderEmptyPiecesSkipped) {
  GuardedRow row;
  row.Parse("3,5,7");
  EXPECT_EQ(row.entries[0], 3);
  EXPECT_EQ(row.entries[1], 5);
  EXPECT_EQ(row.entries[2], 7);
  EXPECT_EQ(row.entries[3], -1);
  GuardedRow gaps;
  gaps.Parse(",,12,,,4,");
  EXPECT_EQ(gaps.entries[0], 12);
  EXPECT_EQ(gaps.entries[1], 4);
  EXPECT_EQ(gaps.entries[2], -1);
}

TEST(PatrolList, PiecesReadAsAtoi) {
  GuardedRow row;
  row.Parse(" 8,x9,-1,10abc,-7");
  EXPECT_EQ(row.entries[0], 8);
  EXPECT_EQ(row.entries[1], 0);   // no leading digit: 0
  EXPECT_EQ(row.entries[2], -1);  // stored, and so ends the list
  EXPECT_EQ(row.entries[3], 10);
  EXPECT_EQ(row.entries[4], -7);
}

TEST(PatrolList, LongTextStaysInsideTheRow) {
  std::string many;
  for (int i = 0; i < 300; i++) many += "1,";
  GuardedRow row;
  row.Parse(many);
  EXPECT_EQ(row.entries[kPatrolStops - 1], 1);
  EXPECT_EQ(row.entries[kPatrolStops], 777);
  EXPECT_EQ(row.entries[kPatrolStops + 1], 777);
  GuardedRow huge;
  huge.Parse(std::string(200, '9') + ",-" + std::string(200, '9'));
  EXPECT_EQ(huge.entries[0], INT32_MAX);
  EXPECT_EQ(huge.entries[1], INT32_MIN);
}

class PatrolRun : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    giRunMode = kModePatrol;
    giPatrolStep = 0;
    giPatrolNextTime = 0;
  }
};

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
  EXPECT_EQ(gPatrolSet[8][0], -1);
  for (int row : {0, 9, 16}) EXPECT_EQ(gPatrolSet[row][0], -1);
  EXPECT_EQ(Count("Patrol 1:0:3 1:5 2:7 "), 1);
  EXPECT_EQ(Count("Patrol 8:"), 0);  // an empty list prints nothing
}

TEST_F(PatrolRun, NumbersOutsideTheTablesNameNothing) {
  sim::bus_put("ptz.patrol.set01", "600,-5,99999999999");
  LoadPatrol();
  for (int32_t patrol : {1, 0, 17, -2, INT32_MAX, INT32_MIN}) {
    giPatrolTarget = patrol;
    giPatrolStep = 0;
    giPatrolNextTime = 0;
    EXPECT_EQ(RunPatrol(kModePatrol, 2000), kModePatrol);
  }
  EXPECT_EQ(Count("Goto Preset"), 0);
}

TEST_F(PatrolRun, ListOfUnstoredPresetsGivesUpAfterOneRound) {
  sim::bus_put("ptz.patrol.set02", "40,41,42");
  LoadPatrol();
  giPatrolTarget = 2;
  giPatrolStep = 1;
  EXPECT_EQ(RunPatrol(kModePatrol, 3000), kModePatrol);
  EXPECT_EQ(giPatrolStep, 1);         // one full round brings it back
  EXPECT_EQ(giPatrolNextTime, 3000);  // and the next look is a second later
  EXPECT_EQ(RunPatrol(kModePatrol, 3000), kModePatrol);  // a dwell tick
  EXPECT_EQ(giPatrolNextTime, 3000);
  EXPECT_EQ(Count("Goto Preset"), 0);
}

TEST_F(PatrolRun, AnotherModeEndsTheTourAndResetsItsStep) {
  giPatrolStep = 2;
  giPatrolNextTime = 5000;
  EXPECT_EQ(RunPatrol(kModePreset, 100), kModePreset);
  EXPECT_EQ(giPatrolStep, 0);
  EXPECT_EQ(giPatrolNextTime, 0);
}

class ScanKeys : public DaemonTest {};

TEST_F(ScanKeys, DirectionByDirAndMirror) {
  struct Case { const char* dir; const char* mirror; int32_t result; };
  const Case cases[] = {{"left", "on", 1}, {"left", "off", 0}, {"right", "on", 0},
                        {"right", "", 1},  {"", "on", 0},      {"Left", "", 1}};
  for (const Case& c : cases) {
    sim::bus_put("ptz.scan.scan1.dir", c.dir);
    sim::bus_put("image.cam1.mirror", c.mirror);
    EXPECT_EQ(ScanDirection(1), c.result) << c.dir << "/" << c.mirror;
  }
  sim::bus_put("image.cam1.mirror", "");
}

TEST_F(ScanKeys, WordsMustMatchExactly) {
  sim::bus_put("ptz.scan.scan2.focus", "fix");
  sim::bus_put("ptz.scan.scan2.limit", "on");
  EXPECT_EQ(GetFocus(2), 0);
  EXPECT_EQ(ScanLimitOn(2), 1);
  sim::bus_put("ptz.scan.scan2.focus", "fixed");
  sim::bus_put("ptz.scan.scan2.limit", "ON");
  EXPECT_EQ(GetFocus(2), 1);
  EXPECT_EQ(ScanLimitOn(2), 0);
}

TEST_F(ScanKeys, NumbersReadAsAtoiWithoutClamp) {
  sim::bus_put("ptz.scan.scan3.speed", "9000");
  sim::bus_put("ptz.scan.scan3.tilt_angle", "-27");
  sim::bus_put("ptz.scan.scan3.zoom_position", "12ab");
  EXPECT_EQ(ScanSpeed(3), 9000);
  EXPECT_EQ(ScanTiltAngle(3), -27);
  EXPECT_EQ(ScanZoomPosition(3), 12);
  sim::bus_put("ptz.scan.scan3.speed", std::string(127, '9').c_str());
  EXPECT_EQ(ScanSpeed(3), INT32_MAX);
}

TEST_F(ScanKeys, NumbersOutsideOneToFourReadTheDefaults) {
  for (int32_t id : {0, 5, -1, INT32_MAX, INT32_MIN}) {
    EXPECT_EQ(ScanDirection(id), 1);
    EXPECT_EQ(ScanSpeed(id), 0);
    EXPECT_EQ(ScanTiltAngle(id), 0);
    EXPECT_EQ(GetFocus(id), 1);
    EXPECT_EQ(ScanLimitOn(id), 0);
    EXPECT_EQ(ScanZoomPosition(id), 0);
  }
}

TEST(ScanTilt, AnglesToSteps) {
  EXPECT_EQ(TiltAngleToSteps(-27), 0);
  EXPECT_EQ(TiltAngleToSteps(0), 4915);
  EXPECT_EQ(TiltAngleToSteps(90), 21298);
}

// Ticks of a running scan with limits on: pan never leaves the window, and
// reaches both ends.
TEST_F(ScanKeys, ScanWithLimitsStaysInsideItsWindow) {
  sim::bus_put("ptz.scan.scan4.speed", "720");
  sim::bus_put("ptz.scan.scan4.limit", "on");
  sim::bus_put("ptz.scan.scan4.right_limit", "30000");
  sim::bus_put("ptz.scan.scan4.left_limit", "36000");
  sim::bus_write(sim::Origin::External, "sim.pan.pos", "33000");
  giRunMode = kModeIdle;
  giScanTarget = 4;
  giNewMode = kModeScan;
  LoopTick(&gLoop);
  ASSERT_EQ(giRunMode.load(), kModeScan);
  int lowest = 65535, highest = 0;
  for (int tick = 0; tick < 1000; tick++) {
    LoopTick(&gLoop);
    int pan = 0;
    GetPanPos(&pan);
    lowest = std::min(lowest, pan);
    highest = std::max(highest, pan);
  }
  EXPECT_EQ(lowest, 30000);
  EXPECT_EQ(highest, 36000);
  EXPECT_GE(Count("PanContinuousMove(1,7200)"), 3);
  giNewMode = kModeIdle;
  LoopTick(&gLoop);
  EXPECT_EQ(giRunMode.load(), kModeIdle);
  EXPECT_EQ(Count("PanLimitEn(0)"), 1);
}

}  // namespace
