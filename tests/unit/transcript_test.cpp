// Transcript stamps, console text split into lines, the line hook, the virtual clock's start.
#include "platform/os.h"
#include "sim_test.h"

namespace {

std::vector<std::string> g_hooked;
void RecordLine(const char* line) { g_hooked.push_back(line); }

class Transcript : public ::testing::Test {
 protected: void SetUp() override {
    sim::clock_init(sim::ClockMode::Virtual), sim::set_verbose(false), sim::console_flush();
    sim::transcript_open(sink_ = tmpfile());
    first_ = sim::transcript_size(), g_hooked.clear();
  }
  void TearDown() override { sim::transcript_open(nullptr), sim::set_line_hook(nullptr), fclose(sink_); }
  std::vector<std::string> Added() const { return simtest::LinesSince(first_); }
  std::string Sink() const { return simtest::ReadAll(sink_); }
  FILE* sink_ = nullptr;
  size_t first_ = 0;
};

// Stamps round to the ms; long text kept whole; the clock boots Mon 2026-01-05 00:00 UTC, raw second 1000.
TEST_F(Transcript, StampsAndTheVirtualClock) {
  sim::mark_daemon_start(), sim::sleep_ns(1234567890);
  std::string record(3000, 'x');
  sim::trace(sim::Kind::Call, "Init_Setup_PID(%s)", record.c_str());
  EXPECT_EQ(Sink(), "1.235 call Init_Setup_PID(" + record + ")\n");
  struct timespec ts;
  os_sleep(2), os_clock_raw(&ts);
  EXPECT_EQ(ts.tv_sec * 1000000000 + ts.tv_nsec, 1003234567890);
  time_t now = os_time();
  struct tm tm;
  os_localtime(&now, &tm);
  EXPECT_EQ((std::vector<int>{tm.tm_year, tm.tm_wday, tm.tm_sec}), (std::vector<int>{126, 1, 3}));
}

TEST_F(Transcript, ConsoleTextIsSplitAtLineFeeds) {
  sim::set_line_hook(RecordLine);
  os_printf("in ");
  os_printf("loop\n\nWait Motor Init %d %d\nrest", 1, 0);
  std::vector<std::string> expected{"out in loop", "out ", "out Wait Motor Init 1 0"};
  EXPECT_EQ(Added(), expected);
  os_puts("done");  // the partial line goes on until its line feed
  sim::console_write("tail", 4), sim::console_flush();
  sim::console_flush();  // nothing pending: no empty line
  expected.insert(expected.end(), {"out restdone", "out tail"});
  EXPECT_EQ(Added(), expected);
  EXPECT_EQ(g_hooked, expected);
}

}  // namespace
