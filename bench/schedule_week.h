// One virtual week of a schedule with four go_preset: entries a day, each
// a different preset from the one before, so that every entry acts. Shared
// by the benchmark and the test that checks each entry's minute.
#pragma once

#include <string>

namespace schedule_week {

constexpr int kDays = 7;
constexpr int kEntryStarts[4] = {600, 1200, 1800, 2200};  // hhmm, each an hour long

// The day's value: presets 1, 2, 1, 2.
inline std::string DayValue() {
  std::string value;
  for (int i = 0; i < 4; i++) {
    int start = kEntryStarts[i];
    value += "go_preset:" + std::to_string(1 + i % 2) + "," + std::to_string(start) + "," +
             std::to_string(start + 59) + ";";
  }
  return value;
}

// The scenario: the daemon starts at 00:00:00 on weekday firstDay (0 is
// Sunday) and runs for the given days, a week by default. With enabled
// false the same time runs with the schedule off (the reference).
inline std::string Scenario(bool enabled, int firstDay = 0, int days = kDays) {
  static const char* const kDayNames[kDays] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};
  std::string date = std::to_string(4 + firstDay);  // 2026-01-04 is a Sunday
  std::string text = "bus sim.clock 2026-01-" + std::string(date.size() < 2 ? "0" : "") + date +
                     " 00:00:00\nbus ptz.system.max_speed 720\n";
  text += std::string("bus ptz.schedule.enable ") + (enabled ? "on" : "off") + "\n";
  for (const char* day : kDayNames) text += std::string("bus ptz.schedule.") + day + " " + DayValue() + "\n";
  text += "bus ptz.preset.position.0 id:1,pan:10000,tilt:6000,zoom:-1,focus:-1,pref:-1,name:A\n";
  text += "bus ptz.preset.position.1 id:2,pan:40000,tilt:7000,zoom:-1,focus:-1,pref:-1,name:B\n";
  text += "await out in loop 120\nwait " + std::to_string(days * 86400) + "\n";
  return text;
}

// Seconds after the start at which entry i of the start day + d falls due.
inline int EntrySecond(int day, int entry) {
  int start = kEntryStarts[entry];
  return day * 86400 + start / 100 * 3600 + start % 100 * 60;
}

}  // namespace schedule_week
