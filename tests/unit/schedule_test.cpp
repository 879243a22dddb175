// The schedule's day parser, action encoding and targets, and the track
// position reader: the arithmetic and the bounds of malformed values.
#include <string>

#include "control/control.h"
#include "daemon_fixture.h"
#include "tours/schedule.h"
#include "tours/tracking.h"

namespace {

class Schedule : public DaemonTest {
 protected:
  ScheduleEntry row_[kScheduleEntries];
  void Parse(const char* value) { ParseScheduleDay("mon", value, row_); }
};

TEST_F(Schedule, EntriesWithAndWithoutTheFinalSemicolon) {
  Parse("patrol:1,800,1200;go_preset:3,1300,1330");
  EXPECT_STREQ(row_[0].action, "patrol:1");
  EXPECT_EQ(row_[0].start, 800);
  EXPECT_EQ(row_[0].end, 1200);
  EXPECT_STREQ(row_[1].action, "go_preset:3");
  EXPECT_EQ(row_[1].end, 1330);
  EXPECT_EQ(Count("out 1.mon,0,mode:patrol:1 Start:800 End:1200"), 1);
  EXPECT_EQ(Count("out 2.mon,1,mode:go_preset:3 Start:1300 End:1330"), 1);
  Parse("stop;a,1,2");  // a last piece of 5 characters is dropped
  EXPECT_STREQ(row_[0].action, "stop");
  EXPECT_STREQ(row_[1].action, "");
}

TEST_F(Schedule, StrayCommasAndSemicolonsAndMissingFields) {
  Parse(";,,scan:2,,,900,,1000,;go_preset:1;");
  EXPECT_STREQ(row_[0].action, "");  // a bare ';' uses up an entry
  EXPECT_STREQ(row_[1].action, "scan:2");
  EXPECT_EQ(row_[1].start, 900);
  EXPECT_EQ(row_[1].end, 1000);
  EXPECT_STREQ(row_[2].action, "go_preset:1");
  EXPECT_EQ(row_[2].start, 0);
  EXPECT_EQ(row_[2].end, 0);
  Parse("go_preset:1,2460,-5;go_preset:2,x,99999999999;");
  EXPECT_EQ(row_[0].start, 2460);  // times are not validated
  EXPECT_EQ(row_[0].end, -5);
  EXPECT_EQ(row_[1].start, 0);
  EXPECT_EQ(row_[1].end, INT32_MAX);
}

TEST_F(Schedule, FifthEntryAndOverlongActionAreDropped) {
  Parse("stop,1,2;stop,3,4;stop,5,6;stop,7,8;go_preset:9,9,10;go_preset:9,11,12");
  EXPECT_EQ(row_[3].start, 7);
  EXPECT_EQ(Count("out mon,4: only 4 entries a day, entry dropped"), 1);
  EXPECT_EQ(Count("out mon,5: only 4 entries a day, entry dropped"), 1);
  std::string action(64, 'x');
  Parse((action + "go_preset:5,100,200;").c_str());
  EXPECT_STREQ(row_[0].action, "");
  EXPECT_EQ(row_[0].start, 100);
  EXPECT_EQ(Count("action over 63 characters"), 1);
  std::string longest(127, ';');  // a whole value of separators
  Parse(longest.c_str());
  EXPECT_STREQ(row_[3].action, "");
}

TEST_F(Schedule, ActionsEncodeNumberAndMode) {
  EXPECT_EQ(ParseScheduleAction("go_preset:3"), 3 * 256 + 2);
  EXPECT_EQ(ParseScheduleAction("pattern:2"), 2 * 256 + 4);
  EXPECT_EQ(ParseScheduleAction("xx patrol:7"), 7 * 256 + 3);
  EXPECT_EQ(ParseScheduleAction("scan:-1"), -256 + 5);
  EXPECT_EQ(ParseScheduleAction("stop"), 0);
  EXPECT_EQ(ParseScheduleAction("nothing"), -1);
  EXPECT_EQ(ParseScheduleAction(""), -1);
  EXPECT_EQ(ParseScheduleAction("scan:go_preset:4"), 4 * 256 + 2);  // order of tests
  // A huge number wraps without overflow; the low byte is still the mode.
  EXPECT_EQ(ParseScheduleAction("go_preset:99999999999") & 0xff, 2);
}

TEST_F(Schedule, TargetsAndThePresetBound) {
  ApplyScheduleTarget(ParseScheduleAction("go_preset:600"));
  EXPECT_EQ(giPresetTarget, 512);
  ApplyScheduleTarget(ParseScheduleAction("scan:-3"));
  EXPECT_EQ(giScanTarget, -3);
  ApplyScheduleTarget(ParseScheduleAction("patrol:4"));
  EXPECT_EQ(giPatrolTarget, 4);
  ApplyScheduleTarget(ParseScheduleAction("pattern:2"));
  EXPECT_EQ(giPatternTarget, 2);
  giPresetTarget = 7;
  ApplyScheduleTarget(9);
  ApplyScheduleTarget(-1);
  EXPECT_EQ(giPresetTarget, 7);
}

TEST(TrackPosition, FieldsAndMalformedTexts) {
  struct Case {
    const char* text;
    int32_t pan, tilt;
  } cases[] = {
      {"", 0, 0},           {"100,200", 100, 200},     {"100", 100, -1},
      {"abc", 0, -1},       {"a,b", 0, 0},             {"99999999999,5", -1, 5},
      {"5,40000", 5, -1},   {"-7,-8", -1, -1},         {"1,2,3", 1, 2},
      {",300", 0, 300},     {"65535,37681", 65535, 37681},
  };
  for (const Case& c : cases) {
    int32_t pan = 1, tilt = 1;
    ParseTrackPosition(c.text, &pan, &tilt);
    EXPECT_EQ(pan, c.pan) << c.text;
    EXPECT_EQ(tilt, c.tilt) << c.text;
  }
}

}  // namespace
