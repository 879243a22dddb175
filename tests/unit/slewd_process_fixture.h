// A real slewd process on the real-time camera, on a state folder of its
// own that starts with the settings the tests drive. Every wait is bounded.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bus/bus_client.h"
#include "bus/bus_protocol.h"
#include "core/core.h"
#include "realtime_fixture.h"

class SlewdProcess : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/slewd_process.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    state_ = pattern;
    // A camera that calibrates at once, with the settings the tests drive.
    sim::clock_init(sim::ClockMode::Virtual);
    ASSERT_EQ(sim::bus_open((state_ + "/bus.db").c_str()), 0);
    for (const auto& [key, value] : kSettings) sim::bus_put(key, value);
    sim::bus_close();
  }
  void TearDown() override {
    Kill(SIGKILL);
    std::filesystem::remove_all(state_);
  }
  // Starts slewd; with files > 0 its descriptor limit is that low.
  void StartDaemon(rlim_t files = 0) {
    // A transcript of an earlier start would answer AwaitTranscript early.
    std::filesystem::remove(state_ + "/transcript.log");
    pid_ = fork();
    if (pid_ == 0) {
      setenv("SLEWD_STATE", state_.c_str(), 1);
      setenv("TSAN_OPTIONS", "halt_on_error=1", 1);
      if (files > 0) {
        rlimit limit{files, files};
        setrlimit(RLIMIT_NOFILE, &limit);
      }
      if (freopen("/dev/null", "w", stdout) == nullptr) _exit(127);
      execl(SLEWD_PATH, "slewd", (char*)nullptr);
      _exit(127);
    }
  }
  // Sends signo and reaps slewd; its wait status.
  int Kill(int signo) {
    if (pid_ <= 0) return 0;
    kill(pid_, signo);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }
  std::string Transcript() const {
    std::ifstream in(state_ + "/transcript.log");
    std::stringstream all;
    all << in.rdbuf();
    return all.str();
  }
  // Whether the transcript holds text; polls up to a generous bound.
  bool AwaitTranscript(const char* text) {
    auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < give_up) {
      if (Transcript().find(text) != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }
  // Starts slewd and waits for its main loop.
  void StartAndAwaitLoop() {
    StartDaemon();
    ASSERT_TRUE(AwaitTranscript("out in loop"));
  }
  // Runs slewctl with the words given; returns its status, out and err.
  int Ctl(std::vector<std::string> words, std::string* out = nullptr, std::string* err = nullptr) {
    return RunSlewctl(state_, std::move(words), out, err);
  }
  int Set(const char* key, const char* value) { return Ctl({"set", key, value}); }
  // A raw protocol connection with a 10 s receive timeout; -1 on failure.
  int Connect() const {
    std::string why;
    return sim::connect_socket(sim::socket_path(state_), 10, &why);
  }
  // Sends request on a fresh connection and returns the first reply line
  // ("" when none came).
  std::string Ask(const std::string& request) const {
    int fd = Connect();
    if (fd < 0) return "";
    sim::LineReader reader(fd);
    std::string line;
    if (!sim::proto_send(fd, request) || !reader.next(&line)) line.clear();
    close(fd);
    return line;
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
