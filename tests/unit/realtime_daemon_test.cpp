// The real daemon on the real-time camera: commands from another process
// reach its listeners on the bus thread while its main loop runs. Under
// ThreadSanitizer this is the test of the shared control state.
#include "slewd_process_fixture.h"

namespace {

using RealtimeDaemon = SlewdProcess;

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
  int status = Kill(SIGTERM);
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
