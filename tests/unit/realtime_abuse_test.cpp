// The real-time slewd under abuse through its bus socket: descriptor
// exhaustion, a flooding client, stuck watchers, kill -9 during preset
// writes, orderly ends; and slewctl run --wait against it. Every wait is
// bounded; the only time figures are the flood's own ordering.
#include <poll.h>

#include <atomic>
#include <map>
#include <random>

#include "slewd_process_fixture.h"

namespace {

using Clock = std::chrono::steady_clock;

// CPU seconds slewd has used (user and system).
double CpuSeconds(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::istringstream fields(all.substr(all.rfind(')') + 2));
  std::string skip;
  for (int i = 0; i < 11; ++i) fields >> skip;  // fields 3..13
  long user = 0, system = 0;
  fields >> user >> system;
  return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Resident memory of a process in MiB.
double RssMiB(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stod(line.substr(6)) / 1024.0;
  }
  return 0;
}

// The first line each connection receives, all within one deadline ("" for
// a connection that got none).
std::vector<std::string> FirstLines(const std::vector<int>& fds, int seconds) {
  std::vector<std::string> lines(fds.size());
  std::vector<bool> done(fds.size(), false);
  auto deadline = Clock::now() + std::chrono::seconds(seconds);
  size_t left = fds.size();
  while (left > 0 && Clock::now() < deadline) {
    std::vector<pollfd> polls;
    for (int fd : fds) polls.push_back({fd, POLLIN, 0});
    if (poll(polls.data(), polls.size(), 100) <= 0) continue;
    for (size_t i = 0; i < fds.size(); ++i) {
      if (done[i] || !(polls[i].revents & (POLLIN | POLLHUP))) continue;
      char c;
      ssize_t n = recv(fds[i], &c, 1, MSG_DONTWAIT);
      if (n == 1 && c != '\n') lines[i] += c;
      if (n <= 0 || c == '\n') done[i] = true, --left;
    }
  }
  return lines;
}

using RealtimeAbuse = SlewdProcess;

TEST_F(RealtimeAbuse, OutOfDescriptorsNeitherSpinsNorLocksOut) {
#if defined(__SANITIZE_ADDRESS__)
  // UBSan tests memory it reports on through a pipe: out of descriptors, it
  // takes every virtual call for a bad one. The plain and TSan suites run it.
  GTEST_SKIP() << "the sanitizer's own checks need descriptors";
#endif
  StartDaemon(64);
  ASSERT_TRUE(AwaitTranscript("out in loop"));
  std::vector<int> fds;
  for (int i = 0; i < 60; ++i) {
    int fd = Connect();
    ASSERT_GE(fd, 0);
    fds.push_back(fd);
  }
  for (int fd : fds) sim::proto_send(fd, "get ptz.status\n");
  std::vector<std::string> first = FirstLines(fds, 20);
  int served = 0, refused = 0;
  for (const std::string& line : first) {
    served += line.rfind("value ", 0) == 0;
    refused += line == "error too many open files";
  }
  EXPECT_EQ(served + refused, 60) << "every client hears back";
  EXPECT_GT(refused, 0) << "the limit was met";
  for (int fd : fds) close(fd);

  double before = CpuSeconds(pid_);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_LT(CpuSeconds(pid_) - before, 0.5) << "the accept thread does not spin";
  EXPECT_EQ(Ask("get ptz.status\n").rfind("value ", 0), 0u) << "a later client is served";
}

TEST_F(RealtimeAbuse, StopFromAnotherClientCutsThroughAFlood) {
  for (int id = 0; id < 16; ++id) {
    std::string key = "ptz.preset.position." + std::to_string(id);
    std::string record = "id:" + std::to_string(id) + ",pan:0,tilt:0,zoom:0,focus:-1,pref:-1,name:p";
    sim::clock_init(sim::ClockMode::Virtual);
    ASSERT_EQ(sim::bus_open((state_ + "/bus.db").c_str()), 0);
    sim::bus_put(key.c_str(), record.c_str());
    sim::bus_close();
  }
  StartAndAwaitLoop();
  ASSERT_EQ(Set("ptz.run_mode", "manual:50,0,0"), 0);
  std::string status;
  for (int i = 0; i < 1000 && status != "1"; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    Ctl({"get", "ptz.status"}, &status);
    status = status.substr(0, status.find('\n'));
  }
  ASSERT_EQ(status, "1") << "moving";

  constexpr int kFlood = 2000;
  std::atomic<int> acked{0};
  int flood_fd = Connect();
  ASSERT_GE(flood_fd, 0);
  std::thread sender([flood_fd] {
    for (int i = 0; i < kFlood; ++i) sim::proto_send(flood_fd, "set ptz.run_mode lock:-1\n");
  });
  std::thread reader([flood_fd, &acked] {
    sim::LineReader replies(flood_fd);
    std::string line;
    while (acked < kFlood && replies.next(&line)) ++acked;
  });
  while (acked < 20) std::this_thread::yield();
  auto sent = Clock::now();
  ASSERT_EQ(Set("ptz.run_mode", "stop"), 0);
  bool stopped = false;
  int acked_then = 0;
  while (!stopped && Clock::now() - sent < std::chrono::seconds(60)) {
    Ctl({"get", "ptz.status"}, &status);
    stopped = status == "0\n";
    acked_then = acked;
  }
  double ms = std::chrono::duration<double, std::milli>(Clock::now() - sent).count();
  sender.join();
  shutdown(flood_fd, SHUT_RDWR);
  reader.join();
  close(flood_fd);
  ASSERT_TRUE(stopped);
  EXPECT_LT(acked_then, kFlood) << "stop acted on " << ms << " ms after it was sent, "
                                << "only once the flood was over";
  RecordProperty("stop_ms", std::to_string(ms));
}

TEST_F(RealtimeAbuse, SocketFileGoesOnEveryOrderlyEnd) {
  for (int signo : {SIGTERM, SIGINT}) {
    StartAndAwaitLoop();
    ASSERT_TRUE(std::filesystem::exists(sim::socket_path(state_)));
    int status = Kill(signo);
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << signo;
    EXPECT_FALSE(std::filesystem::exists(sim::socket_path(state_))) << "signal " << signo;
  }
}

using SlewctlRun = SlewdProcess;

TEST_F(SlewctlRun, WaitPrintsTheFinalPosition) {
  StartAndAwaitLoop();
  std::string out, err;
  ASSERT_EQ(Ctl({"run", "abs:12000,6000,-1", "--wait", "--timeout", "60"}, &out, &err), 0) << err;
  EXPECT_EQ(out.rfind("pan 12000 tilt 6000 zoom ", 0), 0u) << out;
  EXPECT_NE(out.find(" s\n"), std::string::npos) << "the time taken: " << out;
  std::string pan;
  Ctl({"get", "ptz.pan_pos"}, &pan);
  EXPECT_EQ(pan, "12000\n");

  // A command that does not move: no start, so the wait times out.
  EXPECT_EQ(Ctl({"run", "lock:-1", "--wait", "--timeout", "0.5"}, &out, &err), sim::kCtlTimeout);
  EXPECT_EQ(err, "slewctl: the move did not start within 0.5 s\n");
}

// A stored preset list, id -> name.
using PresetMap = std::map<int, std::string>;

// Parses the lines of `slewctl list ptz.preset.position`; false on an entry
// that is not a whole record.
bool ParsePresets(const std::string& listing, PresetMap* out) {
  out->clear();
  std::istringstream lines(listing);
  std::string line;
  while (std::getline(lines, line)) {
    size_t id_at = line.find("=id:");
    size_t name_at = line.find(",name:");
    if (id_at == std::string::npos || name_at == std::string::npos) return false;
    (*out)[std::stoi(line.substr(id_at + 4))] = line.substr(name_at + 6);
  }
  return true;
}

// Reads the preset list from the store file of a stopped slewd, and clears
// the last command so that the next start has nothing to repeat.
bool StoredPresets(const std::string& state, PresetMap* out) {
  sim::clock_init(sim::ClockMode::Virtual);
  if (sim::bus_open((state + "/bus.db").c_str()) != 0) return false;
  sim::bus_put("ptz.run_mode", "");
  std::string listing;
  sim::bus_visit("ptz.preset.position.", [](const char* key, const char* value, void* ctx) {
    *static_cast<std::string*>(ctx) += std::string(key) + "=" + value + "\n";
  }, &listing);
  sim::bus_close();
  return ParsePresets(listing, out);
}

using StoreUnderKill = SlewdProcess;

TEST_F(StoreUnderKill, PresetListIsAlwaysTheStateAfterSomePrefixOfTheCommands) {
  {
    sim::clock_init(sim::ClockMode::Virtual);
    ASSERT_EQ(sim::bus_open((state_ + "/bus.db").c_str()), 0);
    for (int id = 0; id < 12; ++id) {
      std::string record = "id:" + std::to_string(id) + ",pan:0,tilt:0,zoom:0,focus:-1,pref:-1,name:p" +
                           std::to_string(id);
      sim::bus_put(("ptz.preset.position." + std::to_string(id)).c_str(), record.c_str());
    }
    sim::bus_close();
  }
  std::mt19937 random(13);
  std::uniform_int_distribution<int> moment_us(0, 60000);
  int sequence = 0;
  constexpr int kKills = 100;
  for (int kill_no = 0; kill_no < kKills; ++kill_no) {
    // The listeners are in place from here; the burst need not wait for the
    // motors' bring-up.
    StartDaemon();
    ASSERT_TRUE(AwaitTranscript("out in main loop"));
    std::string listing;
    PresetMap state;
    ASSERT_EQ(Ctl({"list", "ptz.preset.position."}, &listing), 0);
    ASSERT_TRUE(ParsePresets(listing, &state)) << listing;
    // The burst: set_preset on ids 300..309 with fresh names, one at a time.
    std::vector<std::pair<int, std::string>> commands;
    std::atomic<int> sent{0};
    std::mutex commands_mutex;
    int fd = Connect();
    ASSERT_GE(fd, 0);
    std::thread burst([&] {
      sim::LineReader replies(fd);
      std::string reply;
      for (;;) {
        int id = 300 + sequence % 10;
        std::string name = "s" + std::to_string(sequence++);
        {
          std::lock_guard<std::mutex> guard(commands_mutex);
          commands.emplace_back(id, name);
        }
        ++sent;
        std::string line = "set ptz.run_mode set_preset:id:" + std::to_string(id) + ",name:" + name + "\n";
        if (!sim::proto_send(fd, line) || !replies.next(&reply) || reply != "ok") return;
      }
    });
    std::this_thread::sleep_for(std::chrono::microseconds(moment_us(random)));
    Kill(SIGKILL);
    burst.join();
    close(fd);
    PresetMap stored;
    ASSERT_TRUE(StoredPresets(state_, &stored)) << "kill " << kill_no << ": a torn record";
    bool matched = stored == state;
    for (const auto& [id, name] : commands) {
      if (matched) break;
      state[id] = name;
      matched = stored == state;
    }
    ASSERT_TRUE(matched) << "kill " << kill_no << ": the stored list (" << stored.size()
                         << " entries) is no state after a prefix of " << commands.size()
                         << " commands";
  }
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
  for (int i = 0; i < kWatchers; ++i) {
    int fd = Connect();
    ASSERT_GE(fd, 0);
    int small = 4096;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    ASSERT_TRUE(sim::proto_send(fd, "watch x.\n"));
    watchers.push_back(fd);
  }
  for (const std::string& line : FirstLines(watchers, 60)) ASSERT_EQ(line, "ok");

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
  double rss = RssMiB(pid_);
  RecordProperty("rss_mib", std::to_string(rss));
  // Sanitizers and an emulator hold memory of their own: the bound is the
  // native build's.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(SLEWD_EMULATED)
  EXPECT_LT(rss, 64.0) << "MiB resident with " << kWatchers << " stuck watchers";
#endif

  // Each watcher, read at last, finds its changes end in the one error line.
  int told = 0;
  for (int fd : watchers) {
    timeval bound{10, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
    sim::LineReader reader(fd);
    std::string line;
    while (reader.next(&line) && line.rfind("change x.flood=", 0) == 0) {
    }
    told += line == "error too many changes unread";
    close(fd);
  }
  EXPECT_EQ(told, kWatchers);
}

}  // namespace
