// The real-time tests' fixtures: in-process slewctl and camera, a real slewd, bounded waits.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <thread>

#include "bus/bus_client.h"
#include "bus/bus_protocol.h"
#include "core/core.h"
#include "realtime/realtime.h"

namespace fs = std::filesystem;

// Runs slewctl on the state folder with the words given; its status, out and err.
inline int RunSlewctl(const std::string& state, std::vector<std::string> words,
                      std::string* out = nullptr, std::string* err = nullptr) {
  std::vector<char*> argv{const_cast<char*>("slewctl")};
  for (std::string& w : words) argv.push_back(w.data());
  char* texts[2] = {};
  size_t lens[2];
  FILE* files[2] = {open_memstream(&texts[0], &lens[0]), open_memstream(&texts[1], &lens[1])};
  int status = sim::slewctl_run(state, static_cast<int>(argv.size()), argv.data(), files[0], files[1]);
  fclose(files[0]), fclose(files[1]);
  if (out) *out = texts[0];
  if (err) *err = texts[1];
  free(texts[0]), free(texts[1]);
  return status;
}

// How often what occurs in text.
inline int Count(const std::string& text, const std::string& what) {
  int n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}
inline std::string FileText(const std::string& path) { return (std::stringstream() << std::ifstream(path).rdbuf()).str(); }

// A shell command's standard output; its exit status in *status.
inline std::string Output(const std::string& command, int* status = nullptr) {
  FILE* pipe = popen(command.c_str(), "r");
  std::string out;
  char buf[65536];
  for (size_t n; pipe != nullptr && (n = fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
  int s = pipe != nullptr ? pclose(pipe) : -1;
  if (status) *status = WIFEXITED(s) ? WEXITSTATUS(s) : -1;
  return out;
}

// Whether done() comes true within seconds, polling every 10 ms.
inline bool Await(const std::function<bool()>& done, int seconds = 60) {
  for (int i = 0; i < seconds * 100; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(10))) if (done()) return true;
  return false;
}

// A scratch state folder, removed after the test; slewctl on it.
class ScratchState : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(mkdtemp((state_ = (getenv("TMPDIR") ? getenv("TMPDIR") : "/tmp") + std::string("/rtXXXXXX")).data()), nullptr); }
  void TearDown() override { fs::remove_all(state_); }
  int Ctl(std::vector<std::string> words, std::string* out = nullptr, std::string* err = nullptr) {
    return RunSlewctl(state_, std::move(words), out, err);
  }
  // A raw protocol connection with a 10 s receive timeout; -1 on failure.
  int Connect() const { std::string why; return sim::connect_socket(sim::socket_path(state_), 10, &why); }
  std::string state_;
};

// The real-time camera of this process.
class RealtimeCamera : public ScratchState {
 protected: void SetUp() override {
    std::string error;
    ScratchState::SetUp();
    ASSERT_EQ(sim::realtime_start(state_, &error), 0) << error;
  }
  void TearDown() override { sim::realtime_stop(), sim::clock_init(sim::ClockMode::Virtual), sim::bus_open(":memory:"), ScratchState::TearDown(); }
};

// A real slewd on a store with the tests' settings (calibration off: it moves at once).
class SlewdProcess : public ScratchState {
 protected: void SetUp() override { ScratchState::SetUp(), Put({std::begin(kSettings), std::end(kSettings)}); }
  void TearDown() override { Kill(SIGKILL), ScratchState::TearDown(); }
  // Writes rows into the store of the stopped slewd.
  void Put(const std::vector<std::pair<std::string, std::string>>& rows) {
    sim::clock_init(sim::ClockMode::Virtual);
    ASSERT_EQ(sim::bus_open((state_ + "/bus.db").c_str()), 0);
    for (const auto& [key, value] : rows) sim::bus_put(key.c_str(), value.c_str());
    sim::bus_close();
  }
  // Starts slewd on state; files > 0: that descriptor limit; err: its stderr file.
  static pid_t Spawn(const std::string& state, rlim_t files = 0, const std::string& err = "") {
    pid_t pid = fork();
    if (pid != 0) return pid;
    setenv("SLEWD_STATE", state.c_str(), 1), setenv("TSAN_OPTIONS", "halt_on_error=1", 1);
    rlimit limit{files, files};
    if (files > 0) setrlimit(RLIMIT_NOFILE, &limit);
    if (!err.empty()) dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
    if (freopen("/dev/null", "w", stdout) != nullptr) execl(SLEWD_PATH, "slewd", (char*)nullptr);
    _exit(127);
  }
  void StartAndAwaitLoop(const char* line = "out in loop", rlim_t files = 0) {
    fs::remove(state_ + "/transcript.log");  // or an earlier run answers
    pid_ = Spawn(state_, files);
    ASSERT_TRUE(AwaitTranscript(line));
  }
  // Sends signo and reaps slewd; its wait status.
  int Kill(int signo) {
    int status = 0;
    if (pid_ > 0 && kill(pid_, signo) == 0) waitpid(pid_, &status, 0);
    return pid_ = -1, status;
  }
  std::string Transcript() const { return FileText(state_ + "/transcript.log"); }
  bool AwaitTranscript(const char* text) { return Await([&] { return Transcript().find(text) != std::string::npos; }); }
  int Set(const std::string& key, const std::string& value) { return Ctl({"set", key, value}); }
  // A value on the running slewd's bus ("" when none).
  std::string Get(const char* key) { std::string out; Ctl({"get", key}, &out); return out.substr(0, out.find('\n')); }
  bool AwaitValue(const char* key, const char* value) { return Await([&] { return Get(key) == value; }); }
  // Every key of the store at path, as a restart loads it.
  static std::map<std::string, std::string> StoredRows(const std::string& path) {
    std::map<std::string, std::string> rows;
    sim::clock_init(sim::ClockMode::Virtual);
    if (sim::bus_open(path.c_str()) != 0) return rows;
    sim::bus_visit("", [](const char* key, const char* value, void* ctx) { (*static_cast<std::map<std::string, std::string>*>(ctx))[key] = value; }, &rows);
    return sim::bus_close(), rows;
  }
  // The preset list of a set of rows, in list order.
  static std::vector<std::string> Presets(const std::map<std::string, std::string>& rows) {
    std::vector<std::string> list;
    for (auto it = rows.begin(); (it = rows.find("ptz.preset.position." + std::to_string(list.size()))) != rows.end();)
      list.push_back(it->second);
    return list;
  }
  // The preset list the running slewd's bus shows.
  std::vector<std::string> ShownPresets() {
    std::string out, line;
    std::map<std::string, std::string> rows;
    Ctl({"list", "ptz.preset.position."}, &out);
    for (std::istringstream lines(out); std::getline(lines, line);) rows[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
    return Presets(rows);
  }
  // Starts slewd expecting it to end within 10 s: exit status (-1: did not), stderr in *err.
  static int RunSlewdToEnd(const std::string& state, std::string* err) {
    std::string err_path = state + ".err";
    pid_t pid = Spawn(state, 0, err_path);
    int status = 0;
    bool ended = Await([&] { return waitpid(pid, &status, WNOHANG) == pid; }, 10);
    if (!ended && kill(pid, SIGKILL) == 0) waitpid(pid, nullptr, 0);
    *err = FileText(err_path);
    fs::remove(err_path);
    return !ended ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  static constexpr std::pair<const char*, const char*> kSettings[] = {
      {"sim.pan.cali_s", "0"}, {"sim.tilt.cali_s", "0"}, {"ptz.system.max_speed", "720"}, {"ptz.manual.pan_speed", "90"},
      {"ptz.manual.tilt_speed", "90"}, {"ptz.system.recover_time", "off"}, {"ptz.manual.limit", "on"},
      {"ptz.manual.right_limit", "100"}, {"ptz.manual.left_limit", "60000"}};
  pid_t pid_ = -1;
};
