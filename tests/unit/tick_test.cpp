// The main loop driven one tick at a time against the simulated camera: mode
// changes, the tick counters at the 32-bit edge, the stabiliser timer.
#include <gtest/gtest.h>

#include "control/control.h"
#include "control/publish.h"
#include "daemon_fixture.h"
#include "motion/positioning.h"
#include "slewd/loop.h"
#include "supervisor/health.h"

namespace {

class Tick : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    giRunMode = kModeIdle;
    giNewMode = kModeIdle;
    giAbsPan = giAbsTilt = giAbsZoom = -1;
  }
  static void Ticks(int n) {
    for (int i = 0; i < n; i++) LoopTick(&gLoop);
  }
};

// Idle takes a request and its work waits a tick; a running mode leaves
// through idle (a blocking one ends there), except patrol, which hands over.
TEST_F(Tick, ModesStartFromIdleAndLeaveThroughIt) {
  giNewMode = kModeAbs;
  Ticks(1);
  EXPECT_EQ(giRunMode.load(), kModeAbs);
  EXPECT_EQ(Count("Go Preset:"), 0);
  Ticks(1);
  EXPECT_EQ(Count("Go Preset:-1 -1 -1 -1"), 1);
  EXPECT_EQ(giRunMode.load(), kModeIdle);
  EXPECT_EQ(giNewMode.load(), kModeIdle);
  giNewMode = kModeScan;
  Ticks(2);
  EXPECT_EQ(giRunMode.load(), kModeScan);  // the scan holds its mode
  giNewMode = kModeAbs;
  Ticks(1);
  EXPECT_EQ(giRunMode.load(), kModeIdle);  // the scan stops: idle, not abs
  Mark();
  Ticks(1);
  EXPECT_EQ(giRunMode.load(), kModeAbs);
  EXPECT_EQ(Count("Go Preset:"), 0);
  Ticks(1);
  EXPECT_EQ(Count("Go Preset:"), 1);
  giNewMode = kModePatrol;
  Ticks(1);
  EXPECT_EQ(giRunMode.load(), kModePatrol);
  giNewMode = kModePreset;
  Ticks(1);
  EXPECT_EQ(giRunMode.load(), kModePreset);  // no idle tick between
}

// After years of rest (2^31 ticks) the idle count stops at its limit and the
// holding gains, set once at tick 300, are not set again; a move restarts it.
TEST_F(Tick, IdleTickCountStopsAtItsLimitAfterYearsOfRest) {
  giRecoverDeadline = -1;
  giScheduleDeadline = -1;
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

// The publication count stops at its limit too; the next change still goes
// out at once, and the pace starts over.
TEST_F(Tick, PositionCountStopsAtItsLimitAndTheNextChangeGoesOut) {
  giPosTick = INT32_MAX - 3;
  for (int i = 0; i < 10; i++) UpdatePosition();
  EXPECT_EQ(giPosTick, INT32_MAX);
  sim::bus_write(sim::Origin::External, "sim.pan.pos", "1234");
  Mark();
  UpdatePosition();
  EXPECT_EQ(Count("Pos:P->1234"), 1);
  EXPECT_EQ(giPosTick, 0);
}

// The virtual clock stands still between sleeps, so the stabiliser's delay
// can be met to the microsecond; with EIS off the key is left alone.
TEST_F(Tick, EisTimerExactlyTheDelayIsNotYetMoreIs) {
  auto startedAgo = [](uint32_t us) { giEisRtStart = (int32_t)((uint32_t)MicrosecondStamp() - us); };
  giEisEnable = 0;
  giEisRtEnable = 0;
  startedAgo(100000000);
  EisRtTimer();
  EXPECT_EQ(Count("eis.rt_enable"), 0);
  giEisEnable = 1;
  startedAgo(1799999);
  EisRtTimer();
  EXPECT_EQ(giEisRtEnable, 0);
  EXPECT_EQ(Count("set encode.cam1.eis.rt_enable"), 0);
  startedAgo(1800000);
  EisRtTimer();
  EXPECT_EQ(giEisRtEnable, 1);
  EXPECT_EQ(Count("set encode.cam1.eis.rt_enable=on"), 1);
  EXPECT_EQ(Count("out [slewd]======= eis rt on"), 1);
  giEisEnable = 0;
}

}  // namespace
