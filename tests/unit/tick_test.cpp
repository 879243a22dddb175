// The main loop driven one tick at a time against the simulated camera.
#include <gtest/gtest.h>

#include <string>

#include "control/control.h"
#include "core.h"
#include "slewd/loop.h"
#include "slewd/startup.h"

namespace {

class Tick : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    sim::clock_init(sim::ClockMode::Virtual);
    sim::bus_open(":memory:");
    sim::world_init();
    sim::mark_daemon_start();
    pthread_mutex_init(&gPanLimitMutex, nullptr);
  }
  void SetUp() override {
    giRunMode = kModeIdle;
    giNewMode = kModeIdle;
    giAbsPan = giAbsTilt = giAbsZoom = -1;
  }
  // Whether a transcript line after `from` contains text.
  static bool SeenSince(size_t from, const char* text) {
    for (size_t i = from; i < sim::transcript_size(); i++) {
      if (std::string(sim::transcript_line(i)).find(text) != std::string::npos) return true;
    }
    return false;
  }
};

TEST_F(Tick, ModeIsEnteredFromIdleOneTickAfterTheRequest) {
  giNewMode = kModeAbs;
  size_t start = sim::transcript_size();
  LoopTick(&gLoop);
  EXPECT_EQ(giRunMode.load(), kModeAbs);  // taken by the idle branch...
  EXPECT_FALSE(SeenSince(start, "Go Preset:"));  // ...whose work waits a tick
  LoopTick(&gLoop);
  EXPECT_TRUE(SeenSince(start, "Go Preset:-1 -1 -1 -1"));
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
  size_t start = sim::transcript_size();
  LoopTick(&gLoop);
  EXPECT_EQ(giRunMode.load(), kModeAbs);   // idle takes the request
  EXPECT_FALSE(SeenSince(start, "Go Preset:"));
  LoopTick(&gLoop);
  EXPECT_TRUE(SeenSince(start, "Go Preset:"));
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
