// The command language's dispatch: the order of search, the in-replay rule,
// the clamps of the verbs; and the status code pairs of SetPtStatus.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

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
  static void Bus(const std::string& command) {
    char key[] = "ptz.run_mode";
    char value[128];
    snprintf(value, sizeof value, "%s", command.c_str());
    OnRunMode(key, value);
  }
};

TEST_F(RunMode, FirstVerbInOrderOfSearchWinsAnywhereInTheText) {
  Bus("set_preset:id:3,name:manual:x");  // manual: is searched first
  EXPECT_EQ(giNewMode.load(), kModeManual);
  Bus("clr_pattern:3");  // not taken for pattern:
  EXPECT_EQ(giNewMode.load(), kModeManual);
  Bus("xx pattern:3");
  EXPECT_EQ(giNewMode.load(), kModePattern);
  EXPECT_EQ(giPatternTarget.load(), 3);
  Bus("hello");  // no verb: nothing else changes
  EXPECT_EQ(giNewMode.load(), kModePattern);
}

TEST_F(RunMode, BusTextEndsPlaybackAndReplayedLinesSkipSomeVerbs) {
  giPatternRun = 1;
  char line[] = "scan:1";
  OnRunMode(nullptr, line);  // replayed: scan: is passed over
  EXPECT_EQ(giNewMode.load(), kModeIdle);
  EXPECT_EQ(giPatternRun.load(), 1);
  Bus("");  // any bus text ends the playback
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
    EXPECT_EQ(std::make_pair(giRelPan.load(), giRelTilt.load()), std::make_pair(r.pan, r.tilt)) << r.command;
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
  // The smallest number, negated by mirror and flip, within the manual limit.
  giImageMirror = giImageFlip = 1;
  Bus("manual:-2147483648,-2147483648,0");
  giImageMirror = giImageFlip = 0;
  EXPECT_EQ(giNewMode.load(), kModeManual);
  EXPECT_LE(abs(giManualPan.load()), 900);
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
