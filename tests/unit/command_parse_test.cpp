// Parsers and arithmetic of the command language, the listeners and the publication.
#include <gtest/gtest.h>

#include <vector>

#include "control/control.h"
#include "control/listeners.h"
#include "control/publish.h"
#include "control/run_mode.h"
#include "motion/positioning.h"
#include "platform/exports.h"
#include "slewd/startup.h"
#include "tours/presets.h"

namespace {

// Blanks are skipped, '-' anywhere joins a field, any other character ends
// one, an empty field stores 0, a short list leaves the rest untouched.
TEST(NumberList, ParseAbsAndRelative) {
  const std::string nines(300, '9');
  const struct { std::string text; int32_t a, b, c; } rows[] = {
      {"1 2,3", 12, 3, 9},        {",5", 0, 5, 9},         {"1-2,x3,4,5", 1, 0, 3},
      {"7,8,9,10", 7, 8, 9},      {"10\n", 10, 8, 9},      {nines + "," + nines, INT32_MAX, INT32_MAX, 9},
      {std::string(300, '-'), 0, 8, 9}};
  for (const auto& r : rows) {
    int32_t a = 7, b = 8, c = 9;
    ParseAbs(r.text.c_str(), &a, &b, &c);
    EXPECT_EQ(std::vector<int32_t>({a, b, c}), std::vector<int32_t>({r.a, r.b, r.c})) << r.text;
  }
  int32_t pan = 11, tilt = 22;
  ParseRelative("500", &pan, &tilt);  // an open last field and every further one: tilt
  EXPECT_EQ(std::make_pair(pan, tilt), std::make_pair(11, 500));
  ParseRelative("1,2,3", &pan, &tilt);
  EXPECT_EQ(std::make_pair(pan, tilt), std::make_pair(1, 3));
}

// Manual speeds: the one-sided clamp, the magnitude bound with its own sign,
// mirror and flip negating before the clamp, also of a saturated number;
// proportional to the zoom, small speeds keep their sign.
TEST(ManualSpeed, ComputesDriverSpeeds) {
  const struct { const char* args; int32_t maxSpeed, turn, pan, tilt; } rows[] = {
      {"50,0,0", 720, 0, 450, 0},        {"100,0,0", 30, 0, 270, 0},     {"-100,0,0", 30, 0, -900, 0},
      {"-720,720,0", 720, 0, -900, 900}, {"10,20,0", 720, 1, -90, -180},
      {"-99999999999,-99999999999", 720, 1, -900, -900}};
  giManualPanSpeed = giManualTiltSpeed = 90;
  giManualProportion = 0;
  for (const auto& r : rows) {
    giMaxSpeed = r.maxSpeed;
    giImageMirror = giImageFlip = r.turn;
    ComputeManualSpeeds(r.args);
    EXPECT_EQ(std::make_pair(giManualPan.load(), giManualTilt.load()), std::make_pair(r.pan, r.tilt)) << r.args;
  }
  giImageMirror = giImageFlip = 0;
  giManualPanSpeed = giManualTiltSpeed = 100;
  giManualProportion = 1;
  gfBaseFocalLength = 0.0001f;  // far below the lens: a large divisor
  ComputeManualSpeeds("1,-1,0");
  EXPECT_EQ(std::make_pair(giManualPan.load(), giManualTilt.load()), std::make_pair(1, -1));
  ComputeManualSpeeds("0,0,0");
  EXPECT_EQ(giManualPan.load(), 0);
  giManualProportion = 0;
}

TEST(Angles, DegreesAndDirections) {
  EXPECT_EQ(std::vector<int32_t>({PanDegrees(65535), PanDegrees(32767), TiltDegrees(4915), TiltDegrees(4916),
                                  TiltDegrees(0)}),
            std::vector<int32_t>({360, 179, -1, 0, -27}));
  // The shorter way across the seam; the tie goes up; 0 or 65535 away: there.
  const int32_t ways[][3] = {{100, 65500, 1}, {65500, 100, 0}, {40000, 40000 - 32767, 0},
                             {0, 32767, 0},   {0, 32768, 1},   {500, 500, -1}, {0, 65535, -1}};
  for (const auto& w : ways) EXPECT_EQ(PanMoveDirection(w[0], w[1]), w[2]) << w[0] << "->" << w[1];
}

// Sector 0 East, 1 North-East, 2 North, 4 West, 6 South, 7 South-East; East
// takes the overlap, and an east at the int32 ends wraps safely.
TEST(Compass, SectorBoundaries) {
  const int32_t sectors[][3] = {
      {4208, 0, 0},  {4209, 0, 1},  {12399, 0, 1}, {12400, 0, 2},       {36972, 0, 4},
      {36973, 0, 5}, {53354, 0, 6}, {53355, 0, 7}, {61326, 0, 7},       {61327, 0, 0},
      {65535, 0, 0}, {100, 200, 0}, {32767, INT32_MIN, 0}, {0, INT32_MAX, 0}};
  for (const auto& s : sectors) EXPECT_EQ(CompassSector(s[0], s[1]), s[2]) << s[0] << "/" << s[1];
}

TEST(PresetText, KeysAndRecordsAtTheirLimits) {
  int32_t out = 5;
  EXPECT_EQ(ParseKeyInt("pan: 12 3,tilt:4", "pan:", &out), 0);
  EXPECT_EQ(out, 123);  // blanks inside a number are dropped
  EXPECT_EQ(ParseKeyInt("pan:,tilt:4", "pan:", &out), 0);
  EXPECT_EQ(out, 123);  // an empty field leaves the value
  EXPECT_EQ(ParseKeyInt("tilt:4", "pan:", &out), -1);
  EXPECT_EQ(ParseKeyInt(("pan:" + std::string(500, '7')).c_str(), "pan:", &out), 0);
  EXPECT_EQ(out, INT32_MAX);
  ClearPresets();
  ASSERT_EQ(GetPresetStr(("id:7,pan:1,tilt:2,zoom:3,focus:4,pref:5,name:" + std::string(80, 'n')).c_str()), 0);
  EXPECT_EQ(gPreset[7].name + std::to_string(gPreset[7].prefocus), std::string(63, 'n') + "5");
  char record[128];
  gPreset[7].pan = gPreset[7].tilt = gPreset[7].zoom = INT32_MIN;
  FormatPresetRecord(7, record, sizeof record);
  EXPECT_EQ(strlen(record), 127u);  // cut at the buffer, numbers first
  EXPECT_EQ(GetPresetStr("pan:1"), -1);  // no id
}

// Beyond listeners_edge_cases: the PID range's top, hex only with 0x, the upper speed clamp.
TEST(Listeners, PidAndMaxSpeedBounds) {
  const struct { const char* text; int32_t p, i, d; } pids[] = {{"0xffff,5,6", 0xffff, 5, 6}, {"0X10", 0, 5, 6}};
  for (const auto& r : pids) {
    char text[32];
    snprintf(text, sizeof text, "%s", r.text);
    OnPid(nullptr, text);
    EXPECT_EQ(std::vector<int32_t>({giPidP, giPidI, giPidD}), std::vector<int32_t>({r.p, r.i, r.d})) << r.text;
  }
  for (const auto& [value, expected] : {std::pair{"720", 720}, {"721", 720}}) {
    char text[16];
    snprintf(text, sizeof text, "%s", value);
    OnMaxSpeed(nullptr, text);
    EXPECT_EQ(giMaxSpeed.load(), expected) << value;
  }
}

// The step-rate tables the motor driver takes: both ends of every run. The
// rule is exact but in two tables, whose entries lie up to 1 from it.
TEST(PpsTables, RunEndsMatchTheDriverTables) {
  const struct {
    const uint32_t* table;
    int first, last;
    uint32_t first_value, last_value;
  } runs[] = {{PPS_1_2Phase_800, 0, 0, 1024, 1024},      {PPS_1_2Phase_800, 1, 9, 781, 156},
              {PPS_1_2Phase_800, 10, 127, 4208, 3170},   {PPS_1_2Phase_800, 128, 255, 8718, 7949},
              {PPS_2_2Phase, 0, 39, 781, 20},            {PPS_2_2Phase, 40, 199, 5730, 5245},
              {PPS_2_2Phase, 200, 255, 7666, 7559},      {PPS_1_2Phase, 0, 3, 1296, 324},
              {PPS_1_2Phase, 7, 13, 2696, 2418},         {PPS_1_2Phase, 138, 255, 8362, 7819},
              {PPS_512uStepPhase, 0, 2, 5768, 5336},     {PPS_512uStepPhase, 51, 255, 10639, 10330},
              {PPS_512uStepPhase1320, 0, 8, 7091, 6249}, {PPS_512uStepPhase1320, 9, 36, 8571, 8294},
              {PPS_512uStepPhase1320, 37, 255, 10639, 10299}};
  for (const auto& run : runs) {
    double near = run.table == PPS_1_2Phase || run.table == PPS_512uStepPhase ? 1 : 0;
    EXPECT_NEAR(run.table[run.first], run.first_value, near) << "index " << run.first;
    EXPECT_NEAR(run.table[run.last], run.last_value, near) << "index " << run.last;
  }
}

}  // namespace
