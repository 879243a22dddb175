// What the tests of the real-time camera share: slewctl run in this process,
// and the in-process camera on a scratch state folder of its own.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bus/bus_client.h"
#include "core/core.h"
#include "realtime/realtime.h"

// Runs slewctl on the state folder with the words given; its status, and
// what it printed to out and err.
inline int RunSlewctl(const std::string& state, std::vector<std::string> words,
                      std::string* out = nullptr, std::string* err = nullptr) {
  std::vector<char*> argv{const_cast<char*>("slewctl")};
  for (std::string& w : words) argv.push_back(w.data());
  char* out_text = nullptr;
  char* err_text = nullptr;
  size_t out_len = 0, err_len = 0;
  FILE* out_file = open_memstream(&out_text, &out_len);
  FILE* err_file = open_memstream(&err_text, &err_len);
  int status = sim::slewctl_run(state, static_cast<int>(argv.size()), argv.data(), out_file, err_file);
  fclose(out_file);
  fclose(err_file);
  if (out) *out = out_text;
  if (err) *err = err_text;
  free(out_text);
  free(err_text);
  return status;
}

// The real-time camera of this process, started on a fresh folder under
// $TMPDIR (else /tmp) and stopped and removed after each test.
class RealtimeCamera : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (getenv("TMPDIR") ? getenv("TMPDIR") : "/tmp") + std::string("/rtXXXXXX");
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    state_ = pattern;
    std::string error;
    ASSERT_EQ(sim::realtime_start(state_, &error), 0) << error;
  }
  void TearDown() override {
    sim::realtime_stop();
    sim::clock_init(sim::ClockMode::Virtual);
    sim::bus_open(":memory:");
    std::filesystem::remove_all(state_);
  }

  std::string state_;
};
