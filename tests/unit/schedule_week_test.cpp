// The benchmark's week of schedule entries, run through slewsim one day at
// a time (a whole week in one run is slow under the sanitizers): every
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
  for (int day = 0; day < schedule_week::kDays; day++) {
    std::ofstream(scenario) << schedule_week::Scenario(true, day, 1);
    std::string command = std::string(SLEWSIM_PATH) + " --transcript " + transcript + " " +
                          scenario + " >/dev/null";
    ASSERT_EQ(system(command.c_str()), 0) << "day " << day;
    std::vector<double> acted = LineTimes(transcript, " out iScheduleOldMode=");
    std::vector<double> moved = LineTimes(transcript, " out @@@@@@@@@@2PRESET=");
    ASSERT_EQ(acted.size(), 4u) << "day " << day;
    ASSERT_EQ(moved.size(), 4u) << "day " << day;
    for (int entry = 0; entry < 4; entry++) {
      double due = schedule_week::EntrySecond(0, entry);
      EXPECT_GE(acted[entry], due) << "day " << day << " entry " << entry;
      EXPECT_LT(acted[entry], due + 1.0) << "day " << day << " entry " << entry;
      EXPECT_LT(moved[entry], due + 1.0) << "day " << day << " entry " << entry;
    }
  }
  remove(scenario);
  remove(transcript);
}

}  // namespace
