// A real slewd: commands from other processes while its loop runs (TSan), orderly ends, socket abuse.
#include <atomic>

#include "realtime_fixture.h"

namespace {


// From /proc/PID/FILE: CPU seconds ("stat") or resident MiB ("status").
double ProcFigure(pid_t pid, const std::string& file) {
  std::string all = FileText("/proc/" + std::to_string(pid) + "/" + file);
  if (file == "status") return std::stod(all.substr(all.find("VmRSS:") + 6)) / 1024.0;
  std::istringstream fields(all.substr(all.rfind(')') + 2));
  long user = 0, system = 0;
  for (int i = 0; i < 11; ++i) fields.ignore(1 << 20, ' ');  // fields 3..13
  fields >> user >> system;
  return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The first line each connection receives ("" if none came in its 10 s).
std::vector<std::string> FirstLines(const std::vector<int>& fds) {
  std::vector<std::string> lines(fds.size());
  for (size_t i = 0; i < fds.size(); ++i) if (!sim::LineReader(fds[i]).next(&lines[i])) lines[i].clear();
  return lines;
}

using RealtimeDaemon = SlewdProcess;

TEST_F(RealtimeDaemon, CommandsFromAnotherProcessWhileTheLoopRunsAndTheEndOnSigterm) {
  StartAndAwaitLoop();
  std::string out, err;
  ASSERT_EQ(Ctl({"run", "abs:12000,6000,-1", "--wait", "--timeout", "60"}, &out, &err), 0) << err;
  EXPECT_TRUE(out.rfind("pan 12000 tilt 6000 zoom ", 0) == 0 && out.find(" s\n") != std::string::npos) << "and the time: " << out;
  EXPECT_EQ(Get("ptz.pan_pos"), "12000");
  // No move, so no start: the wait times out.
  EXPECT_EQ(Ctl({"run", "lock:-1", "--wait", "--timeout", "0.5"}, &out, &err), sim::kCtlTimeout);
  EXPECT_EQ(err, "slewctl: the move did not start within 0.5 s\n");

  for (std::string set : {"ptz.run_mode=manual:50,20,1", "ptz.manual.left_limit=50000", "ptz.PID=0x10,32,0x20",
                          "ptz.run_mode=manual:-30,0,0", "ptz.system.east_pos=-1", "ptz.run_mode=stop",
                          "ptz.run_mode=abs:2000,6000,100", "ptz.run_mode=set_preset:id:4,name:x",
                          "ptz.run_mode=go_preset:4", "ptz.system.max_speed=300", "ptz.run_mode=relative:500,0",
                          "ptz.run_mode=patrol:1", "ptz.run_mode=scan:2", "ptz.run_mode=stop"}) {
    ASSERT_EQ(Set(set.substr(0, set.find('=')), set.substr(set.find('=') + 1)), 0) << set;
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
  }
  EXPECT_TRUE(AwaitTranscript("out Set Preset:4 "));
  EXPECT_EQ(Kill(SIGTERM), 1 << 8) << "the daemon's signal exit, no race report";
  EXPECT_TRUE(AwaitTranscript("exit 1") && !fs::exists(sim::socket_path(state_)));
}

TEST_F(RealtimeDaemon, KillDuringRecordingLeavesTheStoredPattern) {
  const std::string stored = state_ + "/root/mnt/nand/pattern3.path", kStoredText = "21000,4915,0\n1800\nmanual:-30,0,0\n2500\nstop\n640\n";
  fs::create_directories(state_ + "/root/mnt/nand");
  std::ofstream(stored) << kStoredText;
  StartAndAwaitLoop();
  for (auto [key, value, then] : {std::tuple{"ptz.pattern.action", "rec3", "set ptz.pattern.record_time=0"},
                                  {"ptz.run_mode", "manual:-30,0,0", "set ptz.status=1"},
                                  {"ptz.run_mode", "stop", "out Rec Pattern:save pos of ptz stop"}}) {
    ASSERT_EQ(Set(key, value), 0);
    ASSERT_TRUE(AwaitTranscript(then)) << then;
  }
  ASSERT_TRUE(WIFSIGNALED(Kill(SIGKILL)));
  EXPECT_TRUE(fs::exists(state_ + "/root/tmp/pattern3.path"));  // under way
  EXPECT_EQ(FileText(stored), kStoredText);  // untouched: no copy before the end
}

// set_track_run moves the head on the bus thread while the loop waits in its own move.
TEST_F(RealtimeDaemon, SetTrackRunMovesWhileTheLoopMovesAndTheEndOnSigint) {
  Put({{"ptz.preset.position.0", "id:6,pan:30000,tilt:8000,zoom:2000,focus:-1,pref:-1,name:T"},
       {"ptz.system.max_speed", "100"}});
  StartAndAwaitLoop();
  ASSERT_EQ(Set("ptz.run_mode", "abs:20000,9000,100"), 0);
  ASSERT_TRUE(AwaitTranscript("call PanABSMove(0,1000,20000)"));
  ASSERT_EQ(Set("ptz.run_mode", "set_track_run:6"), 0);
  for (const char* line : {"set ptz.track.preset_save_position=30000,8000", "call PanABSMove(0,1000,30000)", "sh FigureFollow -m"})
    EXPECT_TRUE(AwaitTranscript(line)) << line;
  EXPECT_EQ(Kill(SIGINT), 1 << 8) << "exit status 1";
  EXPECT_TRUE(AwaitTranscript("out Close Track sigstop") && !fs::exists(sim::socket_path(state_)));
}

using RealtimeAbuse = SlewdProcess;

TEST_F(RealtimeAbuse, OutOfDescriptorsNeitherSpinsNorLocksOut) {
#if defined(__SANITIZE_ADDRESS__)  // UBSan, out of descriptors, takes every virtual call for a bad one
  GTEST_SKIP() << "the sanitizer's own checks need descriptors";
#endif
  StartAndAwaitLoop("out in loop", 64);
  std::vector<int> fds;
  for (int i = 0; i < 60; ++i) {
    ASSERT_GE(fds.emplace_back(Connect()), 0);
    sim::proto_send(fds.back(), "get ptz.status\n");
  }
  int served = 0, refused = 0;
  for (const std::string& line : FirstLines(fds)) served += line.rfind("value ", 0) == 0, refused += line == "error too many open files";
  EXPECT_EQ(served + refused, 60) << "every client hears back";
  EXPECT_GT(refused, 0) << "the limit was met";
  for (int fd : fds) close(fd);
  double before = ProcFigure(pid_, "stat");
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_LT(ProcFigure(pid_, "stat") - before, 0.5) << "the accept thread does not spin";
  EXPECT_NE(Get("ptz.status"), "") << "a later client is served";
}

TEST_F(RealtimeAbuse, StopFromAnotherClientCutsThroughAFlood) {
  for (int id = 0; id < 16; ++id)
    Put({{"ptz.preset.position." + std::to_string(id), "id:" + std::to_string(id) + ",pan:0,tilt:0,zoom:0,focus:-1,pref:-1,name:p"}});
  StartAndAwaitLoop();
  ASSERT_EQ(Set("ptz.run_mode", "manual:50,0,0"), 0);
  ASSERT_TRUE(AwaitValue("ptz.status", "1")) << "moving";
  constexpr int kFlood = 2000;
  std::atomic<int> acked{0};
  int flood_fd = Connect();
  ASSERT_GE(flood_fd, 0);
  std::thread sender([flood_fd] { for (int i = 0; i < kFlood; ++i) sim::proto_send(flood_fd, "set ptz.run_mode lock:-1\n"); });
  std::thread reader([flood_fd, &acked] {
    sim::LineReader replies(flood_fd);
    for (std::string line; acked < kFlood && replies.next(&line);) ++acked;
  });
  while (acked < 20) std::this_thread::yield();
  auto sent = std::chrono::steady_clock::now();
  ASSERT_EQ(Set("ptz.run_mode", "stop"), 0);
  bool stopped = false;
  int acked_then = 0;
  while (!stopped && std::chrono::steady_clock::now() - sent < std::chrono::seconds(60)) stopped = Get("ptz.status") == "0", acked_then = acked;
  sender.join(), shutdown(flood_fd, SHUT_RDWR), reader.join(), close(flood_fd);
  ASSERT_TRUE(stopped);
  EXPECT_LT(acked_then, kFlood) << "stop acted only once the flood was over";
}

using StuckWatchers = SlewdProcess;

TEST_F(StuckWatchers, MemoryStaysBoundedAndEachCutOffWatcherIsTold) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  ASSERT_GE(limit.rlim_cur, 1100u) << "the test needs 1000 descriptors";
  StartAndAwaitLoop();
  constexpr int kWatchers = 1000;
  std::vector<int> watchers;
  for (int i = 0, small = 4096; i < kWatchers; ++i) {
    watchers.push_back(Connect());
    ASSERT_GE(watchers.back(), 0);
    setsockopt(watchers.back(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    ASSERT_TRUE(sim::proto_send(watchers.back(), "watch x.\n"));
  }
  for (const std::string& line : FirstLines(watchers)) ASSERT_EQ(line, "ok");

  // 100,000 writes from one client, pipelined 100 at a time.
  int writer = Connect();
  ASSERT_GE(writer, 0);
  sim::LineReader replies(writer);
  std::string reply, batch;
  for (int i = 0; i < 100000; i += 100) {
    batch.clear();
    for (int j = i; j < i + 100; ++j) batch += "set x.flood " + std::to_string(j) + "\n";
    ASSERT_TRUE(sim::proto_send(writer, batch));
    for (int j = 0; j < 100; ++j) ASSERT_TRUE(replies.next(&reply) && reply == "ok") << reply;
  }
  close(writer);
  // Sanitizers and an emulator hold memory of their own: the native bound only.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(SLEWD_EMULATED)
  EXPECT_LT(ProcFigure(pid_, "status"), 64.0) << "MiB resident with " << kWatchers << " stuck watchers";
#endif
  int told = 0;  // each watcher's changes end in the one error line
  for (int fd : watchers) {
    sim::set_socket_timeout(fd, 10);
    sim::LineReader reader(fd);
    std::string line;
    while (reader.next(&line) && line.rfind("change x.flood=", 0) == 0) {}
    told += line == "error too many changes unread";
    close(fd);
  }
  EXPECT_EQ(told, kWatchers);
}

}  // namespace
