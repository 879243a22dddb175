// The real daemon on the real-time camera: commands from another process
// reach its listeners on the bus thread while its main loop runs. Under
// ThreadSanitizer this is the test of the shared control state.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "bus_client.h"
#include "core.h"

namespace {

class RealtimeDaemon : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/realtime_daemon.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    state_ = pattern;
    // A camera that calibrates at once, with the settings the test drives.
    sim::clock_init(sim::ClockMode::Virtual);
    ASSERT_EQ(sim::bus_open((state_ + "/bus.db").c_str()), 0);
    for (const auto& [key, value] : kSettings) sim::bus_put(key, value);
    sim::bus_close();
  }
  void TearDown() override {
    if (pid_ > 0) kill(pid_, SIGKILL), waitpid(pid_, nullptr, 0);
    std::filesystem::remove_all(state_);
  }
  void StartDaemon() {
    pid_ = fork();
    if (pid_ == 0) {
      setenv("SLEWD_STATE", state_.c_str(), 1);
      setenv("TSAN_OPTIONS", "halt_on_error=1", 1);
      freopen("/dev/null", "w", stdout);
      execl(SLEWD_PATH, "slewd", (char*)nullptr);
      _exit(127);
    }
  }
  // Whether the transcript holds text; polls up to a generous bound.
  bool AwaitTranscript(const char* text) {
    auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < give_up) {
      std::ifstream in(state_ + "/transcript.log");
      std::stringstream all;
      all << in.rdbuf();
      if (all.str().find(text) != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }
  int Set(const char* key, const char* value) {
    char* argv[] = {(char*)"slewctl", (char*)"set", (char*)key, (char*)value, nullptr};
    return sim::slewctl_run(state_, 4, argv, stdout, stderr);
  }

  static constexpr std::pair<const char*, const char*> kSettings[] = {
      {"sim.pan.cali_s", "0"},          {"sim.tilt.cali_s", "0"},
      {"ptz.system.max_speed", "720"},  {"ptz.manual.pan_speed", "90"},
      {"ptz.manual.tilt_speed", "90"},  {"ptz.system.recover_time", "off"},
      {"ptz.manual.limit", "on"},       {"ptz.manual.right_limit", "100"},
      {"ptz.manual.left_limit", "60000"},
  };
  std::string state_;
  pid_t pid_ = -1;
};

TEST_F(RealtimeDaemon, CommandsFromAnotherProcessWhileTheLoopRuns) {
  StartDaemon();
  ASSERT_TRUE(AwaitTranscript("out in loop"));
  const std::pair<const char*, const char*> commands[] = {
      {"ptz.run_mode", "manual:50,20,1"}, {"ptz.manual.left_limit", "50000"},
      {"ptz.PID", "0x10,32,0x20"},        {"ptz.run_mode", "manual:-30,0,0"},
      {"ptz.system.east_pos", "-1"},      {"ptz.run_mode", "stop"},
      {"ptz.run_mode", "abs:2000,6000,100"}, {"ptz.run_mode", "set_preset:id:4,name:x"},
      {"ptz.run_mode", "go_preset:4"},    {"ptz.system.max_speed", "300"},
      {"ptz.run_mode", "relative:500,0"}, {"ptz.run_mode", "patrol:1"},
      {"ptz.run_mode", "scan:2"},         {"ptz.run_mode", "stop"},
  };
  for (const auto& [key, value] : commands) {
    ASSERT_EQ(Set(key, value), 0) << key << "=" << value;
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
  }
  EXPECT_TRUE(AwaitTranscript("out Set Preset:4 "));
  kill(pid_, SIGTERM);
  int status = 0;
  ASSERT_EQ(waitpid(pid_, &status, 0), pid_);
  pid_ = -1;
  ASSERT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 1);  // the daemon's signal exit, no race report
  EXPECT_TRUE(AwaitTranscript("exit 1"));
}

// Reads a whole file; empty when it does not exist.
std::string FileText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream all;
  all << in.rdbuf();
  return all.str();
}

TEST_F(RealtimeDaemon, KillDuringRecordingLeavesTheStoredPattern) {
  const std::string stored = state_ + "/root/mnt/nand/pattern3.path";
  const std::string kStoredText = "21000,4915,0\n1800\nmanual:-30,0,0\n2500\nstop\n640\n";
  std::filesystem::create_directories(state_ + "/root/mnt/nand");
  std::ofstream(stored) << kStoredText;
  StartDaemon();
  ASSERT_TRUE(AwaitTranscript("out in loop"));
  ASSERT_EQ(Set("ptz.pattern.action", "rec3"), 0);
  ASSERT_TRUE(AwaitTranscript("set ptz.pattern.record_time=0"));
  ASSERT_EQ(Set("ptz.run_mode", "manual:-30,0,0"), 0);
  ASSERT_TRUE(AwaitTranscript("set ptz.status=1"));
  ASSERT_EQ(Set("ptz.run_mode", "stop"), 0);
  ASSERT_TRUE(AwaitTranscript("out Rec Pattern:save pos of ptz stop"));
  kill(pid_, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(pid_, &status, 0), pid_);
  pid_ = -1;
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(std::filesystem::exists(state_ + "/root/tmp/pattern3.path"));  // under way
  EXPECT_EQ(FileText(stored), kStoredText);  // untouched: no copy before the end
}

// set_track_run: moves the head on the bus thread, UpdatePosition and all,
// while the loop is in the wait of its own move: the two must not race.
TEST_F(RealtimeDaemon, SetTrackRunMovesWhileTheLoopMoves) {
  ASSERT_EQ(sim::bus_open((state_ + "/bus.db").c_str()), 0);
  sim::bus_put("ptz.preset.position.0", "id:6,pan:30000,tilt:8000,zoom:2000,focus:-1,pref:-1,name:T");
  sim::bus_put("ptz.system.max_speed", "100");
  sim::bus_close();
  StartDaemon();
  ASSERT_TRUE(AwaitTranscript("out in loop"));
  ASSERT_EQ(Set("ptz.run_mode", "abs:20000,9000,100"), 0);
  ASSERT_TRUE(AwaitTranscript("call PanABSMove(0,1000,20000)"));
  ASSERT_EQ(Set("ptz.run_mode", "set_track_run:6"), 0);
  EXPECT_TRUE(AwaitTranscript("set ptz.track.preset_save_position=30000,8000"));
  EXPECT_TRUE(AwaitTranscript("call PanABSMove(0,1000,30000)"));
  EXPECT_TRUE(AwaitTranscript("sh FigureFollow -m"));
  kill(pid_, SIGTERM);
  int status = 0;
  ASSERT_EQ(waitpid(pid_, &status, 0), pid_);
  pid_ = -1;
  ASSERT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_TRUE(AwaitTranscript("out Close Track sigstop"));
}

}  // namespace
