// slewsim as a program, against the real daemon: the same scenario twice
// gives byte-identical transcripts, with and without -v.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

// Runs slewsim on one scenario; returns its transcript ("" when it failed).
std::string TranscriptOf(const std::string& scenario, const std::string& out, const char* flags) {
  std::string command = std::string(SLEWSIM_PATH) + " " + flags + " --transcript " + out + " " + scenario + " > /dev/null";
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  std::ifstream in(out, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(RunnerSlewsim, SameScenarioTwiceGivesByteIdenticalTranscripts) {
  std::string scenario = std::string(SLEWD_SOURCE_DIR) + "/tests/scenarios/runner_repeatable.scn";
  std::string dir = std::filesystem::temp_directory_path() / ("runner_slewsim." + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  for (const char* flags : {"", "-v"}) {
    std::string first = TranscriptOf(scenario, dir + "/1.txt", flags);
    std::string second = TranscriptOf(scenario, dir + "/2.txt", flags);
    EXPECT_NE(first.find(" exit 1\n"), std::string::npos) << flags;
    EXPECT_EQ(first, second) << flags;
  }
  std::filesystem::remove_all(dir);
}

}  // namespace
