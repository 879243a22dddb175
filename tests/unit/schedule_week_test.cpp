// The benchmark's week of schedule entries, run through slewsim one day at
// a time (a whole week in one run is slow under the sanitizers): every
// entry acts in the first second of its minute, and none acts twice.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "../../bench/schedule_week.h"

namespace {

// Times (seconds since the daemon's start) of the lines that contain text.
std::vector<double> LineTimes(const char* transcript, const char* text) {
  std::vector<double> times;
  std::ifstream in(transcript);
  for (std::string line; std::getline(in, line);) {
    if (line.find(text) != std::string::npos) times.push_back(atof(line.c_str()));
  }
  return times;
}

TEST(ScheduleWeek, EveryEntryActsAtItsMinute) {
  // Named by process, so that builds testing side by side never share them.
  const std::string base = "/tmp/schedule_week_test." + std::to_string(getpid());
  const std::string scenario = base + ".scn", transcript = base + ".txt";
  for (int day = 0; day < schedule_week::kDays; day++) {
    std::ofstream(scenario) << schedule_week::Scenario(true, day, 1);
    std::string command = std::string(SLEWSIM_PATH) + " --transcript " + transcript + " " +
                          scenario + " >/dev/null";
    ASSERT_EQ(system(command.c_str()), 0) << "day " << day;
    std::vector<double> acted = LineTimes(transcript.c_str(), " out iScheduleOldMode=");
    std::vector<double> moved = LineTimes(transcript.c_str(), " out @@@@@@@@@@2PRESET=");
    ASSERT_EQ(acted.size(), 4u) << "day " << day;
    ASSERT_EQ(moved.size(), 4u) << "day " << day;
    for (int entry = 0; entry < 4; entry++) {
      double due = schedule_week::EntrySecond(0, entry);
      EXPECT_GE(acted[entry], due) << "day " << day << " entry " << entry;
      EXPECT_LT(acted[entry], due + 1.0) << "day " << day << " entry " << entry;
      EXPECT_LT(moved[entry], due + 1.0) << "day " << day << " entry " << entry;
    }
  }
  remove(scenario.c_str());
  remove(transcript.c_str());
}

}  // namespace
