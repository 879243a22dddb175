// Pattern files: the bounded line reader of playback, the number readers it
// shares with the view move, and a recording that takes replayed lines.
#include "control/bus_text.h"
#include "control/control.h"
#include "control/run_mode.h"
#include "daemon_fixture.h"
#include "sim_test.h"
#include "tours/pattern.h"

namespace {

// The lines ReadPatternLine hands out for a file of the given bytes.
std::vector<std::string> LinesOf(const std::string& bytes) {
  FILE* file = tmpfile();
  fwrite(bytes.data(), 1, bytes.size(), file);
  rewind(file);
  std::vector<std::string> lines;
  char buf[kPatternLineSize];
  memset(buf, 'x', sizeof buf);
  while (ReadPatternLine(file, buf)) {
    EXPECT_LT(strlen(buf), (size_t)kPatternLineSize);
    lines.push_back(buf);
  }
  fclose(file);
  return lines;
}

using Lines = std::vector<std::string>;

TEST(PatternLine, LinesKeepLineFeedsOverLongOnesTheirHeadAndEndlessOnesEndTheFile) {
  std::string longEvent = "abs:1,2,3" + std::string(300, ',') + "tail";
  struct {
    std::string bytes;
    Lines want;
  } cases[] = {
      {"", {}},
      {"21000,4915,120\n1800\nstop", {"21000,4915,120\n", "1800\n", "stop"}},  // a short last line
      {"\n\n", {"\n", "\n"}},
      {longEvent + "\n500\nstop\n0\n", {longEvent.substr(0, 126) + "\n", "500\n", "stop\n", "0\n"}},  // pairs in step
      {"stop\n" + std::string(kPatternLineScan + 1, 'a') + "\n0\n", {"stop\n"}},
      {std::string(kPatternLineScan, 'a') + "\n0\n", {std::string(126, 'a') + "\n", "0\n"}},  // the longest read
      {std::string("\x00\xff\x01\n7\n", 6), {"", "7\n"}},  // cut at its NUL: no command
  };
  for (auto& c : cases) EXPECT_EQ(LinesOf(c.bytes), c.want) << c.bytes.substr(0, 20);
}

TEST(NumberText, ListsReadAsScanfDoes) {
  struct {
    const char* text;
    int n;
    std::vector<int32_t> want;  // the rest untouched
  } cases[] = {{"21000,4915,120\n", 3, {21000, 4915, 120}},
               {" 7, -8 ;9", 2, {7, -8, -1}},  // stops at ';'
               {"abc,1", 0, {-1, -1, -1}},
               {"99999999999,-99999999999", 2, {INT32_MAX, INT32_MIN, -1}}};
  for (auto& c : cases) {
    std::vector<int32_t> v(3, -1);
    EXPECT_EQ(ScanIntList(c.text, ',', v.data(), 3), c.n) << c.text;
    EXPECT_EQ(v, c.want) << c.text;
  }
  EXPECT_EQ(TextToInt("-"), 0);
  EXPECT_EQ(TextToInt(" +12x"), 12);
}

class PatternRecording : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    sim::sandbox_set_root(tmp_.path.c_str());
    ASSERT_EQ(sim::sandbox_make_camera_folders(), 0);
  }
  void TearDown() override { sim::sandbox_set_root(old_root_.c_str()), giPatternRec = 0, giNewMode = kModeIdle; }
  simtest::TempDir tmp_;
  std::string old_root_ = sim::sandbox_root();
};

// Numbers below one are refused; one recording at a time; replayed lines are recorded one line each.
TEST_F(PatternRecording, ReplayedLinesAreRecordedOneLineEach) {
  char key[] = "ptz.pattern.action";
  for (std::string value : {"rec", "rec0", "rec-3", "recx"}) OnPatternAction(key, value.data());
  EXPECT_EQ(giPatternRec.load(), 0);
  EXPECT_EQ(Count("ptz.pattern.record_time"), 0);
  char rec[] = "rec6", stop[] = "stop", replayed[] = "abs:10,4915,0\n";
  OnPatternAction(key, rec);
  ASSERT_EQ(giPatternRec.load(), 1);
  EXPECT_EQ(PatternRecStart("rec6"), -1);
  OnRunMode(nullptr, replayed);
  OnPatternAction(key, stop);
  EXPECT_EQ(giPatternRec.load(), 0);
  std::string file = simtest::ReadText(tmp_.path / "mnt/nand/pattern6.path");
  EXPECT_NE(file.find("\nabs:10,4915,0\n0\n"), std::string::npos) << file;
  OnPatternAction(key, stop);  // nothing under way: no second "-1"
  EXPECT_EQ(Count("set ptz.pattern.record_time=-1"), 1);
}

}  // namespace
