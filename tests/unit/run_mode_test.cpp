// The daemon in-process: command clamps, 32-bit edges, the stabiliser timer, view geometry scenarios leave open.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "control/control.h"
#include "control/publish.h"
#include "control/run_mode.h"
#include "daemon_fixture.h"
#include "motion/positioning.h"
#include "motion/view_move.h"
#include "platform/camstate.h"
#include "platform/kvlink.h"
#include "slewd/loop.h"
#include "slewd/startup.h"
#include "supervisor/health.h"
#include "tours/presets.h"

namespace {

// Nothing requested, lens type 0 at 10 mm without sensor keys, the head at 10000/10000.
class RunMode : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    giRunMode = giNewMode = kModeIdle;
    giPatternRun = 0;
    giAbsPan = giAbsTilt = giAbsZoom = -1;
    giImageMirror = giImageFlip = giEisEnable = 0;
    kvlink_set("sim.lens_type", "0");
    kvlink_set("sim.focal_mm", "10");
    gfSensorH = gfSensorW = 0.0f;
    gfEisFov = 0.0;
    PutPan(10000);
    PutTilt(10000);
  }
  void TearDown() override {
    kvlink_set("ptz.dzoom.factor", "");
    kvlink_set("sim.focal_mm", "0");
    kvlink_set("sim.lens_type", "1");
    giImageMirror = giImageFlip = giEisEnable = 0;
  }
  // Delivers a command as the bus does (non-null key).
  static void Bus(const std::string& command) {
    char key[] = "ptz.run_mode", value[128];
    snprintf(value, sizeof value, "%s", command.c_str());
    OnRunMode(key, value);
  }
  static void Ticks(int n) {
    for (int i = 0; i < n; i++) LoopTick(&gLoop);
  }
  // Offsets of the picture point (pan, tilt).
  static std::pair<int32_t, int32_t> Offsets(int32_t moveW, int32_t moveH) {
    int32_t pan = 12345, tilt = 12345;
    ComputeViewMove(moveW, moveH, &pan, &tilt);
    return {pan, tilt};
  }
};
using Tick = RunMode;
using EdgeOfRange = RunMode;  // values at the 32-bit edges, found by long random runs
using ViewMove = RunMode;
using P = std::pair<int32_t, int32_t>;

// manual: is searched first, clr_pattern: is not pattern:, no verb: no change.
TEST_F(RunMode, FirstVerbInOrderOfSearchWinsAnywhereInTheText) {
  const std::pair<const char*, int32_t> verbs[] = {
      {"set_preset:id:3,name:manual:x", kModeManual}, {"clr_pattern:3", kModeManual},
      {"xx pattern:3", kModePattern},                 {"hello", kModePattern}};
  for (const auto& [command, mode] : verbs) {
    Bus(command);
    EXPECT_EQ(giNewMode.load(), mode) << command;
  }
  EXPECT_EQ(giPatternTarget.load(), 3);
}

TEST_F(RunMode, TargetsAndTheirClamps) {
  Bus("go_preset:511");  // the last slot below the clamp to 512
  EXPECT_EQ(giPresetTarget.load(), 511);
  // Each row after the one before: abs: replaces only the fields it has,
  // angle: turns degrees to steps and keeps the pan for a negative one.
  const struct { const char* command; int32_t pan, tilt, zoom; } abs[] = {
      {"abs:70000,100,200", 65535, 100, 200}, {"abs:-5,100,200", -1, 100, 200},
      {"abs:300", 300, 100, 200},             {"angle:100", 100 * 65535 / 360, 4915, 200},
      {"angle:0,-20", 0, 1274, 200},          {"angle:-5,-21", 0, -1, 200}};
  for (const auto& r : abs) {
    Bus(r.command);
    EXPECT_EQ(std::vector<int32_t>({giAbsPan, giAbsTilt, giAbsZoom}), std::vector<int32_t>({r.pan, r.tilt, r.zoom}))
        << r.command;
  }
  const struct { const char* command; int32_t pan, tilt; } rel[] = {
      {"relative:40000,0", 32767, 0}, {"relative:-40000,0", -32767, 0}, {"relative:500", -32767, 500}};
  for (const auto& r : rel) {
    Bus(r.command);
    EXPECT_EQ(P(giRelPan.load(), giRelTilt.load()), P(r.pan, r.tilt)) << r.command;
  }
}

TEST_F(RunMode, SetPresetOutOfRangeStillEndsTrackingAndArmsTimers) {
  iTrackStatus = 1;
  giRecoverTime = 5;
  giRecoverDeadline = -1;
  Bus("set_preset:513");
  EXPECT_EQ(Count("Set Preset:"), 0);  // nothing stored
  EXPECT_EQ(iTrackStatus.load(), 0);
  EXPECT_EQ(Count("sh killall -9 FigureFollow &"), 1);
  EXPECT_GT(giRecoverDeadline.load(), 0);
  giRecoverTime = 0;
}

// Under the sanitizers: long and malformed values stay inside their buffers.
TEST_F(RunMode, LongAndMalformedValuesStayInsideTheirBuffers) {
  Bus("abs:" + std::string(126, '7'));
  Bus("set_preset:id:1,name:" + std::string(120, 'n'));
  EXPECT_EQ(strlen(gPreset[1].name), 63u);
  Bus("relative:" + std::string(118, '-'));
  Bus("manual:\xff\xfe,\x01,,,,,");
}

// The virtual clock stands still between sleeps, so the stabiliser's delay
// can be met to the microsecond; with EIS off the key is left alone.
TEST_F(Tick, EisTimerExactlyTheDelayIsNotYetMoreIs) {
  auto timerAfter = [](uint32_t us) { giEisRtStart = (int32_t)((uint32_t)MicrosecondStamp() - us); EisRtTimer(); };
  giEisRtEnable = 0;
  timerAfter(100000000);
  EXPECT_EQ(Count("eis.rt_enable"), 0);
  giEisEnable = 1;
  timerAfter(1799999);
  EXPECT_EQ(giEisRtEnable, 0);
  EXPECT_EQ(Count("set encode.cam1.eis.rt_enable"), 0);
  timerAfter(1800000);
  EXPECT_EQ(giEisRtEnable, 1);
  EXPECT_EQ(Count("set encode.cam1.eis.rt_enable=on") + Count("out [slewd]======= eis rt on"), 2);
}

// INT32_MIN negated by mirror and flip wraps, within the manual limit.
TEST_F(EdgeOfRange, MirrorAndFlipOfTheSmallestNumberStayWithinTheManualLimit) {
  giMaxSpeed = 720;
  giManualPanSpeed = giManualTiltSpeed = 90;
  giManualProportion = 0;
  giImageMirror = giImageFlip = 1;
  Bus("manual:-2147483648,-2147483648,0");
  EXPECT_EQ(giNewMode.load(), kModeManual);
  EXPECT_EQ(P(giManualPan.load(), giManualTilt.load()), P(-900, -900));
  Bus("manual:-2147483647,-2147483647,0");
  EXPECT_EQ(P(giManualPan.load(), giManualTilt.load()), P(900, 900));
}

// After years of rest (2^31 ticks) the idle count stops at its limit and the
// holding gains, set once at tick 300, are not set again; a move restarts it.
TEST_F(EdgeOfRange, IdleTickCountStopsAtItsLimitAfterYearsOfRest) {
  giRecoverDeadline = giScheduleDeadline = -1;
  gLoop.iIdleTick = INT32_MAX - 3;
  Ticks(10);
  EXPECT_EQ(gLoop.iIdleTick, INT32_MAX);
  EXPECT_EQ(Count("Set_stop_PID"), 0);
  giNewMode = kModeManual;
  giManualPan = 100;
  Ticks(2);
  EXPECT_LT(gLoop.iIdleTick, 300);
  giNewMode = kModeIdle;
  Ticks(5);
}

// The publication count stops at its limit too; the next change goes out at once.
TEST_F(EdgeOfRange, PositionCountStopsAtItsLimitAndTheNextChangeGoesOut) {
  giPosTick = INT32_MAX - 3;
  for (int i = 0; i < 10; i++) UpdatePosition();
  EXPECT_EQ(giPosTick, INT32_MAX);
  sim::bus_write(sim::Origin::External, "sim.pan.pos", "1234");
  Mark();
  UpdatePosition();
  EXPECT_EQ(Count("Pos:P->1234"), 1);
  EXPECT_EQ(giPosTick, 0);
}

// With EIS on, a digital zoom of 1 or less, or none, leaves the field.
TEST_F(ViewMove, StabiliserAndDigitalZoomNarrowTheField) {
  gfEisFov = 0.5;
  for (const char* none : {"", "0", "1", "x"}) {
    kvlink_set("ptz.dzoom.factor", none);
    EXPECT_EQ(Offsets(7500, 5000), P(-2252, -101)) << "factor '" << none << "'";
  }
}

// Type 7 gives half the full angles of its table, the wide one when both
// ends are equal; degenerate lenses leave the head where it is.
TEST_F(ViewMove, LensTableAndDegenerateLenses) {
  const struct { float base, max; double focal, w, h; } rows[] = {
      {4.5f, 135.0f, 4.5, 30.2, 17.95}, {4.5f, 135.0f, 135.0, 1.0, 0.6}, {8.0f, 8.0f, 8.0, 30.2, 17.95}};
  for (const auto& r : rows) {
    gfBaseFocalLength = r.base;
    gfMaxFocalLength = r.max;
    double h = 0.0, w = 0.0;
    SensorHalfAngles(7, r.focal, &h, &w);
    EXPECT_NEAR(w, r.w, 1e-5) << r.focal;
    EXPECT_NEAR(h, r.h, 1e-5) << r.focal;
  }
  gfBaseFocalLength = gfMaxFocalLength = 0.0f;
  kvlink_set("sim.lens_type", "5");  // a type the table does not know
  EXPECT_EQ(Offsets(9000, 1000), P(0, 0));
  kvlink_set("sim.lens_type", "7");  // both focal lengths 0
  EXPECT_EQ(Offsets(9000, 1000), P(0, 0));
}

// The mirror turns the picture's width only, the flip its height only.
TEST_F(ViewMove, MirrorTurnsTheWidthAndFlipTheHeight) {
  const P across = Offsets(2500, 2500), down = Offsets(7500, 7500);
  giImageMirror = 1;
  EXPECT_EQ(Offsets(7500, 2500), across);
  giImageMirror = 0;
  giImageFlip = 1;
  EXPECT_EQ(Offsets(7500, 2500), down);
}

TEST_F(ViewMove, PointBeyondStraightDownFoldsBack) {
  PutTilt((85 + 27) * 65535 / 360);       // tilt 85 degrees
  kvlink_set("sim.focal_mm", "12.3635");  // half height angle 10 degrees
  auto [pan, tilt] = Offsets(5000, 10000);  // bottom edge: 95 degrees
  EXPECT_EQ(pan, 0);        // not half a turn
  EXPECT_NEAR(tilt, 0, 1);  // asin folds 95 back to 85
}

TEST_F(ViewMove, RequestEndsTrackingFirstAndReadsMissingNumbersAsZero) {
  iTrackStatus = 1;
  kvlink_set("ptz.preset.view_move", "7500,5000");
  int32_t pan = 0, tilt = 0;
  EXPECT_EQ(RunViewMove(&pan, &tilt), 0);
  EXPECT_EQ(iTrackStatus.load(), 0);
  EXPECT_EQ(Count("out Close Track"), 1);
  EXPECT_EQ(Count("sh killall -9 FigureFollow &"), 1);
  EXPECT_EQ(pan, -2252);
  kvlink_set("ptz.preset.view_move", "7500");  // MoveH 0: the top edge
  EXPECT_EQ(RunViewMove(&pan, &tilt), 0);
  EXPECT_EQ(Count("out MoveH:0 MoveW:7500"), 1);
  EXPECT_EQ(Count("out Close Track"), 1);  // tracking has already ended
}

}  // namespace
