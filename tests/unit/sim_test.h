// Shared pieces of the simulated camera's unit tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "core/core.h"

namespace simtest {

namespace fs = std::filesystem;

// A fresh folder under the temporary directory, removed with all in it.
struct TempDir {
  fs::path path;
  TempDir() {
    std::string pattern = (fs::temp_directory_path() / "simtest.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path = pattern;
  }
  ~TempDir() { fs::remove_all(path); }
};

inline std::string ReadText(const fs::path& path) {
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// Everything written to a FILE* so far.
inline std::string ReadAll(FILE* f) {
  fflush(f);
  rewind(f);
  std::string text;
  for (int c; (c = fgetc(f)) != EOF;) text += static_cast<char>(c);
  return text;
}

inline std::string Bus(const char* key) {
  char v[128] = "";
  return sim::bus_read(key, v, sizeof v) ? v : "<none>";
}

// Transcript lines ("KIND TEXT") from index first on.
inline std::vector<std::string> LinesSince(size_t first) {
  std::vector<std::string> lines;
  for (size_t i = first; i < sim::transcript_size(); ++i) lines.push_back(sim::transcript_line(i));
  return lines;
}

// A fresh in-memory bus in virtual time, getters left out of the transcript.
class SimTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::clock_init(sim::ClockMode::Virtual);
    sim::set_verbose(false);
    ASSERT_EQ(sim::bus_open(":memory:"), 0);
  }
  void TearDown() override { sim::set_verbose(false), sim::bus_close(); }
};

// Powers the camera on, calibration off unless the knobs say otherwise.
inline void PowerOn(std::vector<std::pair<const char*, const char*>> knobs = {}) {
  knobs.insert(knobs.begin(), {{"sim.pan.cali_s", "0"}, {"sim.tilt.cali_s", "0"}});
  for (auto& [key, value] : knobs) sim::bus_put(key, value);
  sim::world_init();
}

// n world steps of 10 ms.
inline void Steps(int n) {
  for (int i = 0; i < n; i++) sim::world_step(sim::kWorldStepNs);
}
inline void Seconds(double s) { Steps(static_cast<int>(s * 100 + 0.5)); }

}  // namespace simtest
