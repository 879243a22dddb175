// The transcript: line format, console text split into lines, the line
// hook, and the virtual clock's stepping.
#include <climits>

#include "platform/os.h"
#include "sim_test.h"

namespace {

std::vector<std::string> g_hooked;
void RecordLine(const char* line) { g_hooked.push_back(line); }

class Transcript : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::clock_init(sim::ClockMode::Virtual);
    sim::set_verbose(false);
    sim::console_flush();
    sink_ = tmpfile();
    sim::transcript_open(sink_);
    first_ = sim::transcript_size();
    g_hooked.clear();
  }
  void TearDown() override {
    sim::transcript_open(nullptr);
    sim::set_line_hook(nullptr);
    fclose(sink_);
  }
  // Lines added since SetUp, without their times.
  std::vector<std::string> Added() const { return simtest::LinesSince(first_); }
  // Everything written to the sink.
  std::string Sink() const {
    fflush(sink_);
    rewind(sink_);
    std::string text;
    for (int c; (c = fgetc(sink_)) != EOF;) text += static_cast<char>(c);
    return text;
  }
  FILE* sink_ = nullptr;
  size_t first_ = 0;
};

TEST_F(Transcript, LinesCarryTimeKindAndText) {
  sim::trace(sim::Kind::Set, "%s=%s", "ptz.status", "2");
  sim::trace(sim::Kind::Sh, "cp /tmp/a /tmp/b");
  sim::mark_daemon_start();
  sim::sleep_ns(1234567890);  // stamps round to the millisecond
  sim::trace(sim::Kind::Exit, "%d", 1);
  sim::trace(sim::Kind::File, "/tmp/x: %s", "");
  EXPECT_EQ(Sink(), "0.000 set ptz.status=2\n0.000 sh cp /tmp/a /tmp/b\n1.235 exit 1\n1.235 file /tmp/x: \n");
  std::string record(3000, 'x');  // long text is kept whole
  sim::trace(sim::Kind::Call, "Init_Setup_PID(%s)", record.c_str());
  EXPECT_EQ(Added(), (std::vector<std::string>{"set ptz.status=2", "sh cp /tmp/a /tmp/b", "exit 1",
                                               "file /tmp/x: ", "call Init_Setup_PID(" + record + ")"}));
}

TEST_F(Transcript, ConsoleTextIsSplitAtLineFeeds) {
  sim::set_line_hook(RecordLine);
  os_printf("in ");
  os_printf("loop\n\nWait Motor Init %d %d\nrest", 1, 0);
  std::vector<std::string> expected{"out in loop", "out ", "out Wait Motor Init 1 0"};
  EXPECT_EQ(Added(), expected);
  os_puts("done");  // the partial line goes on until its line feed
  sim::console_write("tail", 4);
  sim::console_flush();
  sim::console_flush();  // nothing pending: no empty line
  expected.insert(expected.end(), {"out restdone", "out tail"});
  EXPECT_EQ(Added(), expected);
  EXPECT_EQ(g_hooked, expected);
}

// Step hook of the clock test: records when it ran and, like the runner,
// drops the wake it has reached.
std::vector<int64_t> g_hook_times;
int64_t g_wake_at = INT64_MAX;
void RecordStep() {
  g_hook_times.push_back(sim::now_ns() - sim::kVirtualBootNs);
  if (sim::now_ns() >= g_wake_at) g_wake_at = INT64_MAX;
  sim::set_wake_ns(g_wake_at);
}
// Asks the clock to stop for the hook at boot + ns.
void WakeAt(int64_t ns) {
  g_wake_at = sim::kVirtualBootNs + ns;
  sim::set_wake_ns(g_wake_at);
}

TEST_F(Transcript, VirtualSleepStepsAndStopsAtTheWake) {
  sim::set_step_hook(RecordStep);
  WakeAt(15000000);  // the scenario acts at 15 ms
  g_hook_times.clear();
  sim::sleep_ns(25000000);
  EXPECT_EQ(g_hook_times, (std::vector<int64_t>{10000000, 15000000, 25000000}));
  g_hook_times.clear();
  WakeAt(25000000);  // due now: acts before time passes
  sim::sleep_ns(0);
  EXPECT_EQ(g_hook_times, (std::vector<int64_t>{25000000}));
  sim::set_step_hook(nullptr);
  os_sleep(3);
  struct timespec ts;
  os_clock_raw(&ts);
  EXPECT_EQ(ts.tv_sec * 1000000000 + ts.tv_nsec, 1003025000000);
  time_t now = os_time();
  struct tm tm;
  os_localtime(&now, &tm);  // 2026-01-05 00:00:03 UTC, a Monday
  EXPECT_EQ((std::vector<int>{tm.tm_year, tm.tm_wday, tm.tm_sec}), (std::vector<int>{126, 1, 3}));
}

}  // namespace
