// The command language's dispatch: the order of search, the in-replay rule,
// the clamps of the verbs; and the status code pairs of SetPtStatus.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "control/control.h"
#include "control/publish.h"
#include "control/run_mode.h"
#include "daemon_fixture.h"
#include "tours/presets.h"

namespace {

class RunMode : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    giNewMode = kModeIdle;
    giPatternRun = 0;
  }
  // Delivers a command as the bus does (non-null key).
  static void Bus(const char* command) {
    char key[] = "ptz.run_mode";
    char value[128];
    snprintf(value, sizeof value, "%s", command);
    OnRunMode(key, value);
  }
};

TEST_F(RunMode, FirstVerbInOrderOfSearchWinsAnywhereInTheText) {
  Bus("set_preset:id:3,name:manual:x");  // manual: is searched first
  EXPECT_EQ(giNewMode.load(), kModeManual);
  Bus("clr_pattern:3");                  // not taken for pattern:
  EXPECT_EQ(giNewMode.load(), kModeManual);
  Bus("xx pattern:3");
  EXPECT_EQ(giNewMode.load(), kModePattern);
  EXPECT_EQ(giPatternTarget.load(), 3);
  Bus("hello");                           // no verb: nothing else changes
  EXPECT_EQ(giNewMode.load(), kModePattern);
}

TEST_F(RunMode, BusTextEndsPlaybackAndReplayedLinesSkipSomeVerbs) {
  giPatternRun = 1;
  char line[] = "scan:1";
  OnRunMode(nullptr, line);  // replayed: scan: is passed over
  EXPECT_EQ(giNewMode.load(), kModeIdle);
  EXPECT_EQ(giPatternRun.load(), 1);
  Bus("");                   // any bus text ends the playback
  EXPECT_EQ(giPatternRun.load(), 0);
  Bus("scan:1");
  EXPECT_EQ(giNewMode.load(), kModeScan);
}

TEST_F(RunMode, TargetsAndTheirClamps) {
  Bus("go_preset:9999");
  EXPECT_EQ(giPresetTarget.load(), 512);
  EXPECT_EQ(Count("out Go Point:9999"), 1);
  Bus("go_preset:511");
  EXPECT_EQ(giPresetTarget.load(), 511);
  Bus("abs:70000,100,200");
  EXPECT_EQ(giAbsPan.load(), 65535);
  Bus("abs:-5,100,200");
  EXPECT_EQ(giAbsPan.load(), -1);
  EXPECT_EQ(giAbsTilt.load(), 100);
  Bus("abs:300");  // replaces the pan target only
  EXPECT_EQ(giAbsPan.load(), 300);
  EXPECT_EQ(giAbsZoom.load(), 200);
  Bus("angle:100");  // tilt 0 degrees: step 4915
  EXPECT_EQ(giAbsPan.load(), 100 * 65535 / 360);
  EXPECT_EQ(giAbsTilt.load(), 4915);
  Bus("angle:0,-20");
  EXPECT_EQ(giAbsTilt.load(), 1274);
  Bus("angle:-5,-21");  // negative pan keeps the last value
  EXPECT_EQ(giAbsTilt.load(), -1);
  EXPECT_EQ(giAbsPan.load(), 0);
  Bus("relative:40000,0");
  EXPECT_EQ(giRelPan.load(), 32767);
  Bus("relative:-40000,0");
  EXPECT_EQ(giRelPan.load(), -32767);
  Bus("relative:500");  // one open field goes to tilt
  EXPECT_EQ(giRelPan.load(), -32767);
  EXPECT_EQ(giRelTilt.load(), 500);
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

TEST_F(RunMode, LongAndMalformedValuesStayInsideTheirBuffers) {
  std::string digits(126, '7');
  Bus(("abs:" + digits).c_str());
  Bus(("set_preset:id:1,name:" + std::string(120, 'n')).c_str());
  EXPECT_EQ(strlen(gPreset[1].name), 63u);
  Bus(("relative:" + std::string(118, '-')).c_str());
  Bus("manual:\xff\xfe,\x01,,,,,");
  SUCCEED();
}

TEST_F(RunMode, StatusPublishesOnlyChangedPairs) {
  SetPtStatus(0, 4);
  SetPtStatus(0, 4);
  EXPECT_EQ(Count("set ptz.status=4"), 1);
  SetPtStatus(2, 4);
  EXPECT_EQ(Count("set ptz.status=24"), 1);
  EXPECT_EQ(Count("out PutPTStatus: 24 start"), 1);
  EXPECT_EQ(Count("call PutPTStatus(24)"), 1);
}

}  // namespace
