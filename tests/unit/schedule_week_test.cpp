// The benchmark's week of schedule entries, run through slewsim: every
// entry acts in the first second of its minute, and none acts twice.
#include <gtest/gtest.h>

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
  const char* scenario = "/tmp/schedule_week_test.scn";
  const char* transcript = "/tmp/schedule_week_test.txt";
  std::ofstream(scenario) << schedule_week::Scenario(true);
  std::string command = std::string(SLEWSIM_PATH) + " --transcript " + transcript + " " +
                        scenario + " >/dev/null";
  ASSERT_EQ(system(command.c_str()), 0);
  std::vector<double> acted = LineTimes(transcript, " out iScheduleOldMode=");
  std::vector<double> moved = LineTimes(transcript, " out @@@@@@@@@@2PRESET=");
  remove(scenario);
  remove(transcript);
  ASSERT_EQ(acted.size(), 28u);
  ASSERT_EQ(moved.size(), 28u);
  for (int day = 0; day < schedule_week::kDays; day++) {
    for (int entry = 0; entry < 4; entry++) {
      size_t i = day * 4 + entry;
      double due = schedule_week::EntrySecond(day, entry);
      EXPECT_GE(acted[i], due) << "day " << day << " entry " << entry;
      EXPECT_LT(acted[i], due + 1.0) << "day " << day << " entry " << entry;
      EXPECT_LT(moved[i], due + 1.0) << "day " << day << " entry " << entry;
    }
  }
}

}  // namespace
