// slewsim repeats itself byte for byte (a scenario, with and without -v, a soak seed); the soak watch.
#include "runner/soak.h"
#include "sim_test.h"

namespace {

// Runs slewsim with args; its transcript ("" when it failed).
std::string TranscriptOf(const std::string& args, const std::string& out) {
  std::string command = std::string(SLEWSIM_PATH) + " " + args + " --transcript " + out + " > /dev/null";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  return simtest::ReadText(out);
}

TEST(Soak, SameScenarioOrSeedGivesTheSameTranscriptAndAnotherSeedAnother) {
  simtest::TempDir tmp;
  std::string dir = tmp.path, scenario = std::string(SLEWD_SOURCE_DIR) + "/tests/scenarios/runner_repeatable.scn";
  for (std::string flags : {"", "-v"}) {
    std::string first = TranscriptOf(flags + " " + scenario, dir + "/1.txt");
    EXPECT_NE(first.find(" exit 1\n"), std::string::npos) << flags;
    EXPECT_EQ(first, TranscriptOf(flags + " " + scenario, dir + "/2.txt")) << flags;
  }
  std::string first = TranscriptOf("--soak 5 --hours 0.1", dir + "/1.txt");
  EXPECT_GT(first.size(), 1000u);
  EXPECT_EQ(first, TranscriptOf("--soak 5 --hours 0.1", dir + "/2.txt"));
  EXPECT_NE(first, TranscriptOf("--soak 6 --hours 0.1", dir + "/3.txt"));
}

// Every bus value the plan writes fits the bus (its figures: soak.one_hour's report).
TEST(Soak, PlanHoldsCommandsSettingsFaultsAndPresetChecks) {
  sim::SoakCounts counts;
  for (const sim::Directive& d : sim::soak_plan(3, 1, &counts).steps) EXPECT_TRUE(d.op != sim::Op::Bus || d.text.size() <= 127) << d.source;
  EXPECT_EQ(counts.preset_checks, 7);  // every ten minutes and at the end
}

// Probes of a daemon held in place by the test.
int32_t g_tick = 0, g_run_mode = 0, g_new_mode = 0;
int32_t Tick() { return g_tick; }
int32_t RunMode() { return g_run_mode; }
int32_t NewMode() { return g_new_mode; }

class SoakWatch : public ::testing::Test {
 protected: void SetUp() override {
    sim::clock_init(sim::ClockMode::Virtual);
    g_tick = g_run_mode = g_new_mode = 0, watch_ = sim::soak_watch({Tick, RunMode, NewMode}, counts_);
  }
  // The watch between steps, at a virtual time in seconds.
  std::string Step(double seconds) { return watch_->on_step(static_cast<int64_t>(seconds * 1e9)); }
  // Ticks on once a second from t for n seconds; the first complaint.
  std::string Run(double t, int n) {
    std::string why;
    for (int i = 0; i < n && why.empty(); i++) why = (g_tick++, Step(t += 1));
    return why;
  }

  sim::SoakCounts counts_;
  const sim::RunWatch* watch_ = nullptr;
};

TEST_F(SoakWatch, PublishedValuesOutOfTheirRangesFail) {
  for (const char* good : {"set ptz.status=44", "set ptz.pan_pos=65535", "set ptz.tilt_pos=0",
                           "set ptz.angle.tilt=-27", "set ptz.mode_status=curise",
                           "set system.cam1.osd.direction=South-East", "ext ptz.status=7"})
    EXPECT_EQ(watch_->on_line(good), "") << good;
  for (const char* bad : {"set ptz.status=7", "set ptz.status=-1", "set ptz.pan_pos=65536",
                          "set ptz.tilt_pos=37682", "set ptz.angle.pan=-1", "set ptz.mode_status=idle",
                          "set system.cam1.osd.direction=Up", "exit 0"})
    EXPECT_NE(watch_->on_line(bad), "") << bad;
}

TEST_F(SoakWatch, ALoopThatStopsTickingFails) {
  g_tick = 1;
  EXPECT_EQ(Step(10), "");  // the first tick
  g_tick = 2;
  EXPECT_EQ(Step(10.01), "");
  g_run_mode = 1, g_tick = 3;  // manual: its longest wait is an auto flip, 128 s or so
  EXPECT_EQ(Step(10.02), "");
  EXPECT_EQ(Step(100), "");  // still in its bound, had a health pass run
  g_tick = 4;
  EXPECT_NE(Step(150), "");  // no health pass (the count went up): too long
}

TEST_F(SoakWatch, AStopMustEndInRestUnlessANewCommandFollows) {
  EXPECT_EQ((g_tick = 1, Step(1)), "");
  for (const char* line : {"set ptz.status=1", "ext ptz.run_mode=stop", "set ptz.status=0", "set ptz.status=1",
                           "ext ptz.run_mode=stop", "ext ptz.run_mode=manual:10,0,0"})
    EXPECT_EQ(watch_->on_line(line), "") << line;
  g_run_mode = 1;
  EXPECT_EQ(Run(1, 600), "");  // the manual command may keep it moving
  for (const char* line : {"set ptz.status=1", "ext ptz.run_mode=stop"}) watch_->on_line(line);
  EXPECT_NE(Run(601, 600), "");  // still moving long after the stop
}

}  // namespace
