// The main loop driven one tick at a time against the simulated camera.
#include <gtest/gtest.h>

#include "control/control.h"
#include "daemon_fixture.h"
#include "slewd/loop.h"

namespace {

class Tick : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    giRunMode = kModeIdle;
    giNewMode = kModeIdle;
    giAbsPan = giAbsTilt = giAbsZoom = -1;
  }
};

TEST_F(Tick, ModeIsEnteredFromIdleOneTickAfterTheRequest) {
  giNewMode = kModeAbs;
  Mark();
  LoopTick(&gLoop);
  EXPECT_EQ(giRunMode.load(), kModeAbs);  // taken by the idle branch...
  EXPECT_EQ(Count("Go Preset:"), 0);  // ...whose work waits a tick
  LoopTick(&gLoop);
  EXPECT_EQ(Count("Go Preset:-1 -1 -1 -1"), 1);
  EXPECT_EQ(giRunMode.load(), kModeIdle);  // a blocking mode ends in idle
  EXPECT_EQ(giNewMode.load(), kModeIdle);
}

TEST_F(Tick, AModeLeavesThroughIdleBeforeTheNextStarts) {
  giNewMode = kModeScan;
  LoopTick(&gLoop);
  EXPECT_EQ(giRunMode.load(), kModeScan);
  LoopTick(&gLoop);
  EXPECT_EQ(giRunMode.load(), kModeScan);  // the scan holds its mode
  giNewMode = kModeAbs;
  LoopTick(&gLoop);
  EXPECT_EQ(giRunMode.load(), kModeIdle);  // the scan stops: idle, not abs
  Mark();
  LoopTick(&gLoop);
  EXPECT_EQ(giRunMode.load(), kModeAbs);   // idle takes the request
  EXPECT_EQ(Count("Go Preset:"), 0);
  LoopTick(&gLoop);
  EXPECT_EQ(Count("Go Preset:"), 1);
}

TEST_F(Tick, PatrolGoesStraightToTheNewMode) {
  giNewMode = kModePatrol;
  LoopTick(&gLoop);
  EXPECT_EQ(giRunMode.load(), kModePatrol);
  giNewMode = kModePreset;
  LoopTick(&gLoop);
  EXPECT_EQ(giRunMode.load(), kModePreset);  // no idle tick between
}

}  // namespace
