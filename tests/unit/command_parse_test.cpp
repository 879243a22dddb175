// Parsers and arithmetic of the command language, the listeners and the
// publication: number lists, speed computation, angles, PID text, compass.
#include <gtest/gtest.h>

#include "control/control.h"
#include "control/listeners.h"
#include "control/publish.h"
#include "control/run_mode.h"
#include "motion/limits.h"
#include "motion/positioning.h"
#include "slewd/startup.h"
#include "tours/presets.h"

namespace {

TEST(NumberList, ParseAbsFieldsAndMissingFields) {
  int32_t a = 7, b = 8, c = 9;
  ParseAbs("1 2,3", &a, &b, &c);  // blanks are skipped and end nothing
  EXPECT_EQ(a, 12);
  EXPECT_EQ(b, 3);
  EXPECT_EQ(c, 9);  // the list ended early: untouched
  ParseAbs(",5", &a, &b, &c);  // an empty field stores 0
  EXPECT_EQ(a, 0);
  EXPECT_EQ(b, 5);
  ParseAbs("1-2,x3,4,5", &a, &b, &c);  // '-' anywhere joins the field
  EXPECT_EQ(a, 1);
  EXPECT_EQ(b, 0);  // any other character ends a field, here an empty one
  EXPECT_EQ(c, 3);
  ParseAbs("7,8,9,10", &a, &b, &c);
  EXPECT_EQ(c, 9);  // the fourth field is dropped
  ParseAbs("10\n", &a, &b, &c);  // a line end ends the field like a comma
  EXPECT_EQ(a, 10);
}

TEST(NumberList, ParseRelativeSecondOutputRule) {
  int32_t pan = 11, tilt = 22;
  ParseRelative("500", &pan, &tilt);  // an open field at the end: second output
  EXPECT_EQ(pan, 11);
  EXPECT_EQ(tilt, 500);
  ParseRelative("1,2,3", &pan, &tilt);  // every further field: second output
  EXPECT_EQ(pan, 1);
  EXPECT_EQ(tilt, 3);
}

TEST(NumberList, OverlongFieldsAndHugeNumbersStayBounded) {
  std::string digits(300, '9');
  int32_t a = 0, b = 0, c = 0;
  ParseAbs((digits + "," + digits).c_str(), &a, &b, &c);
  EXPECT_EQ(a, INT32_MAX);
  EXPECT_EQ(b, INT32_MAX);
  std::string minus(300, '-');
  ParseAbs(minus.c_str(), &a, &b, &c);  // a field of only '-' reads 0
  EXPECT_EQ(a, 0);
}

struct SpeedCase {
  const char* args;
  int32_t maxSpeed, panPercent, mirror, flip;
  int32_t pan, tilt;
};

class ManualSpeed : public ::testing::TestWithParam<SpeedCase> {};

TEST_P(ManualSpeed, ComputesDriverSpeeds) {
  const SpeedCase& c = GetParam();
  giMaxSpeed = c.maxSpeed;
  giManualPanSpeed = c.panPercent;
  giManualTiltSpeed = 90;
  giImageMirror = c.mirror;
  giImageFlip = c.flip;
  giManualProportion = 0;
  ComputeManualSpeeds(c.args);
  EXPECT_EQ(giManualPan.load(), c.pan);
  EXPECT_EQ(giManualTilt.load(), c.tilt);
  giImageMirror = 0;
  giImageFlip = 0;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ManualSpeed,
    ::testing::Values(SpeedCase{"50,0,0", 720, 90, 0, 0, 450, 0},
                      // the one-sided clamp: +100 is cut to 30, -100 is not
                      SpeedCase{"100,0,0", 30, 90, 0, 0, 270, 0},
                      SpeedCase{"-100,0,0", 30, 90, 0, 0, -900, 0},
                      // the magnitude bound of step 7 with its own sign
                      SpeedCase{"-720,720,0", 720, 90, 0, 0, -900, 900},
                      // mirror and flip negate before the clamp
                      SpeedCase{"10,20,0", 720, 90, 1, 1, -90, -180},
                      // the lowest number negates to itself, without overflow
                      SpeedCase{"-99999999999,-99999999999", 720, 90, 1, 1, -900, -900}));

TEST(ManualSpeedProportion, SmallSpeedsKeepTheirSign) {
  giMaxSpeed = 720;
  giManualPanSpeed = 100;
  giManualTiltSpeed = 100;
  giManualProportion = 1;
  // The simulated lens reports its focal length; a base far below it makes
  // a large multiple, so 10 falls to 1 and -10 to -1, never to 0.
  gfBaseFocalLength = 0.0001f;
  ComputeManualSpeeds("1,-1,0");
  EXPECT_EQ(giManualPan.load(), 1);
  EXPECT_EQ(giManualTilt.load(), -1);
  ComputeManualSpeeds("0,0,0");
  EXPECT_EQ(giManualPan.load(), 0);
  giManualProportion = 0;
}

TEST(Angles, PublishedDegrees) {
  EXPECT_EQ(PanDegrees(65535), 360);
  EXPECT_EQ(PanDegrees(32767), 179);
  EXPECT_EQ(TiltDegrees(4915), -1);
  EXPECT_EQ(TiltDegrees(4916), 0);
  EXPECT_EQ(TiltDegrees(0), -27);
  EXPECT_EQ(TiltAngleToSteps(-20), 1274);
  EXPECT_EQ(TiltAngleToSteps(90), 21298);
  EXPECT_EQ(TiltAngleToSteps(0), 4915);
}

TEST(Compass, SectorBoundaries) {
  EXPECT_EQ(CompassSector(4208, 0), 0);   // East
  EXPECT_EQ(CompassSector(4209, 0), 1);   // North-East
  EXPECT_EQ(CompassSector(12399, 0), 1);
  EXPECT_EQ(CompassSector(12400, 0), 2);  // North
  EXPECT_EQ(CompassSector(36972, 0), 4);  // West
  EXPECT_EQ(CompassSector(36973, 0), 5);
  EXPECT_EQ(CompassSector(53354, 0), 6);  // South
  EXPECT_EQ(CompassSector(53355, 0), 7);  // South-East
  EXPECT_EQ(CompassSector(61326, 0), 7);
  EXPECT_EQ(CompassSector(61327, 0), 0);  // East takes the overlap
  EXPECT_EQ(CompassSector(65535, 0), 0);
  EXPECT_EQ(CompassSector(100, 200), 0);  // 65435: East
  // An east at the ends of the int32 range wraps without overflow: East.
  EXPECT_EQ(CompassSector(32767, INT32_MIN), 0);
  EXPECT_EQ(CompassSector(0, INT32_MAX), 0);
}

TEST(PanDirection, ShorterWayAcrossTheSeam) {
  EXPECT_EQ(PanMoveDirection(100, 65500), 1);  // down through 0
  EXPECT_EQ(PanMoveDirection(65500, 100), 0);  // up through the seam
  EXPECT_EQ(PanMoveDirection(40000, 40000 - 32767), 0);  // the tie goes up
  EXPECT_EQ(PanMoveDirection(0, 32767), 0);
  EXPECT_EQ(PanMoveDirection(0, 32768), 1);
  EXPECT_EQ(PanMoveDirection(500, 500), -1);   // there already
  EXPECT_EQ(PanMoveDirection(0, 65535), -1);   // 65535 away counts as there
}

TEST(PresetText, ParseKeyInt) {
  int32_t out = 5;
  EXPECT_EQ(ParseKeyInt("pan: 12 3,tilt:4", "pan:", &out), 0);
  EXPECT_EQ(out, 123);  // blanks inside a number are dropped
  EXPECT_EQ(ParseKeyInt("pan:,tilt:4", "pan:", &out), 0);
  EXPECT_EQ(out, 123);  // an empty field leaves the value
  EXPECT_EQ(ParseKeyInt("tilt:4", "pan:", &out), -1);
  std::string longField = "pan:" + std::string(500, '7');
  EXPECT_EQ(ParseKeyInt(longField.c_str(), "pan:", &out), 0);
  EXPECT_EQ(out, INT32_MAX);
}

TEST(PresetText, RecordsAtTheirLengthLimits) {
  ClearPresets();
  std::string name(80, 'n');
  std::string text = "id:7,pan:1,tilt:2,zoom:3,focus:4,pref:5,name:" + name;
  ASSERT_EQ(GetPresetStr(text.c_str()), 0);
  EXPECT_EQ(std::string(gPreset[7].name), std::string(63, 'n'));  // cut to 63
  EXPECT_EQ(gPreset[7].prefocus, 5);
  char record[128];
  gPreset[7].pan = gPreset[7].tilt = gPreset[7].zoom = INT32_MIN;
  FormatPresetRecord(7, record, sizeof record);
  EXPECT_EQ(strlen(record), 127u);  // cut at the buffer, numbers first
  EXPECT_EQ(GetPresetStr("id:512,pan:1"), -1);  // not loaded at start
  EXPECT_EQ(GetPresetStr("id:-3,pan:1"), -1);   // names no slot
  EXPECT_EQ(GetPresetStr("pan:1"), -1);
  ASSERT_EQ(GetPresetStr("id:9,tilt:4"), 0);    // valid without a pan
  EXPECT_EQ(gPreset[9].valid, 1);
  EXPECT_EQ(gPreset[9].pan, -1);
}

TEST(PidListener, FieldsHexAndBounds) {
  char text[128];
  auto run = [&](const char* value) {
    snprintf(text, sizeof text, "%s", value);
    OnPid(nullptr, text);
  };
  run("0x10,32,0x20");
  EXPECT_EQ(giPidP.load(), 16);
  EXPECT_EQ(giPidI.load(), 32);
  EXPECT_EQ(giPidD.load(), 32);
  run("0x10000,70000,-5");
  EXPECT_EQ(giPidP.load(), 0xfffe);
  EXPECT_EQ(giPidI.load(), 0xfffe);
  EXPECT_EQ(giPidD.load(), 0);
  run("0xffff,0,0");
  EXPECT_EQ(giPidP.load(), 0xffff);
  run("1,,3");  // a run of commas is one cut: D keeps its value
  EXPECT_EQ(giPidP.load(), 1);
  EXPECT_EQ(giPidI.load(), 3);
  EXPECT_EQ(giPidD.load(), 0);
  run("0X10");  // only a lower-case 0x is hexadecimal
  EXPECT_EQ(giPidP.load(), 0);
  run("");
  EXPECT_EQ(giPidP.load(), 0);
}

TEST(MaxSpeedListener, Clamps) {
  char text[16];
  const std::pair<const char*, int32_t> cases[] = {
      {"10", 30}, {"30", 30}, {"31", 31}, {"720", 720}, {"721", 720}, {"", 30}};
  for (const auto& [value, expected] : cases) {
    snprintf(text, sizeof text, "%s", value);
    OnMaxSpeed(nullptr, text);
    EXPECT_EQ(giMaxSpeed.load(), expected) << value;
  }
}

}  // namespace
