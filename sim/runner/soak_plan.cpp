// The soak's plan: from a seed, a scenario of random commands (valid and
// malformed), settings writes and camera faults, with waits between them and
// a check of the stored presets against the model the plan keeps. Commands,
// settings and faults are tables: a new verb, key or knob is one more row.
#include <map>

#include "runner/soak.h"

namespace sim {

namespace {

// splitmix64: the same numbers from the same seed on every machine.
struct Random {
  uint64_t state;
  uint64_t next() {
    uint64_t z = (state += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  // 0 .. n-1.
  int below(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }
  // lo .. hi.
  int between(int lo, int hi) { return lo + below(hi - lo + 1); }
  template <typename T, size_t N>
  const T& pick(const T (&table)[N]) { return table[below(static_cast<int>(N))]; }
};

// Numbers at the edges of what the parsers and the arithmetic meet.
const char* const kEdgeNumbers[] = {"0",          "-1",          "2147483647", "-2147483648",
                                    "2147483648", "99999999999", "-99999999999", "65535",
                                    "65536",      "-32768",      "37681",       "",
                                    "x",          "1-2",         " 7",          "+5"};

// A number: mostly from the range, sometimes from the edges.
std::string number(Random& r, int lo, int hi) {
  if (r.below(5) == 0) return r.pick(kEdgeNumbers);
  return std::to_string(r.between(lo, hi));
}

// Up to 127 characters of printable garbage.
std::string garbage(Random& r) {
  std::string text;
  int length = r.below(4) == 0 ? 127 : r.between(0, 40);
  for (int i = 0; i < length; ++i) text += static_cast<char>(r.between(32, 126));
  return text;
}

// The preset store as the plan's commands leave it: id -> name.
using PresetModel = std::map<int, std::string>;

// Names without a verb inside, short enough for the record text.
const char* const kPresetNames[] = {"Gate", "Door 2", "a,b", "", "north yard", "X"};

// One command: its text, and what it does to the preset model.
using CommandMaker = std::string (*)(Random& r, PresetModel& presets);

std::string manual_command(Random& r, PresetModel&) {
  return "manual:" + number(r, -100, 100) + "," + number(r, -100, 100) + "," + number(r, -1, 1);
}
std::string go_preset_command(Random& r, PresetModel&) { return "go_preset:" + number(r, 0, 12); }
std::string abs_command(Random& r, PresetModel&) {
  return "abs:" + number(r, 0, 65535) + "," + number(r, 0, 37681) + "," + number(r, 0, 16384);
}
std::string angle_command(Random& r, PresetModel&) {
  return "angle:" + number(r, 0, 359) + "," + number(r, -30, 90) + "," + number(r, 0, 16384);
}
std::string relative_command(Random& r, PresetModel&) {
  return "relative:" + number(r, -40000, 40000) + "," + number(r, -5000, 5000);
}
std::string scan_command(Random& r, PresetModel&) { return "scan:" + number(r, 0, 5); }
std::string patrol_command(Random& r, PresetModel&) { return "patrol:" + number(r, 0, 3); }
std::string pattern_command(Random& r, PresetModel&) { return "pattern:" + number(r, 0, 5); }
std::string clr_pattern_command(Random& r, PresetModel&) { return "clr_pattern:" + number(r, 0, 5); }
std::string stop_command(Random&, PresetModel&) { return "stop"; }
std::string word_command(Random& r, PresetModel&) {
  const char* const kWords[] = {"shock", "ois_test", "set_track_position", "go_track_position",
                                "track:on", "track:off", "lock:all", "auto:all"};
  return r.pick(kWords);
}
std::string limit_command(Random& r, PresetModel&) {
  const char* const kSides[] = {"m_right", "m_left", "s1_right", "s1_left", "s4_left", "sx", ""};
  return std::string("limit:") + r.pick(kSides);
}
std::string view_command(Random& r, PresetModel&) {
  return "view:" + number(r, 0, 10000) + "," + number(r, 0, 10000);
}
std::string track_run_command(Random& r, PresetModel&) { return "set_track_run:" + number(r, -1, 12); }
std::string lock_command(Random& r, PresetModel&) {
  return (r.below(2) ? "lock:" : "auto:") + number(r, 0, 520);
}
// A store in one of its two grammars; ids out of 0..512 store nothing.
std::string set_preset_command(Random& r, PresetModel& presets) {
  int id = r.between(-3, 515);
  std::string name = r.pick(kPresetNames);
  std::string text;
  if (r.below(2)) {
    text = "set_preset:" + std::to_string(id);
    name = "";
  } else {
    text = "set_preset:id:" + std::to_string(id) + (r.below(2) ? ",focus:1" : "") + ",name:" + name;
  }
  if (id >= 0 && id <= 512) presets[id] = name;
  return text;
}
std::string clr_preset_command(Random& r, PresetModel& presets) {
  int id = r.between(-3, 515);
  if (id >= 0 && id <= 512) presets.erase(id);
  return "clr_preset:" + std::to_string(id);
}
// A verb with garbage behind it, or garbage alone (no store can hide in it:
// the printable garbage never spells a preset verb in practice, and a store
// it did spell would show as a finding of the preset check).
std::string malformed_command(Random& r, PresetModel&) {
  const char* const kVerbs[] = {"manual:", "go_preset:", "abs:", "angle:", "relative:", "scan:",
                                "view:", "limit:", "track:", "patrol:", ""};
  return (r.pick(kVerbs) + garbage(r)).substr(0, 127);
}

// What a stored pattern file may hold: commands a playback hands back to the
// daemon, none of which stores a preset (the model would not see it).
const CommandMaker kPatternLines[] = {manual_command, go_preset_command, abs_command, angle_command,
                                      relative_command, stop_command, view_command, malformed_command};

struct CommandRow {
  int weight;
  CommandMaker make;
};

// Every verb of the command language, valid and malformed, by weight.
const CommandRow kCommands[] = {
    {10, manual_command},     {6, go_preset_command},  {5, abs_command},
    {3, angle_command},       {4, relative_command},   {3, scan_command},
    {3, patrol_command},      {2, pattern_command},    {1, clr_pattern_command},
    {8, stop_command},        {2, word_command},       {2, limit_command},
    {2, view_command},        {1, track_run_command},  {2, lock_command},
    {5, set_preset_command},  {2, clr_preset_command}, {6, malformed_command},
};

// A settings key and the values it is given.
struct SettingRow {
  const char* key;
  std::string (*value)(Random& r);
};

std::string on_off(Random& r) {
  const char* const kValues[] = {"on", "off", "ON", "", "on "};
  return r.pick(kValues);
}
std::string speed_value(Random& r) { return number(r, 0, 720); }
std::string percent_value(Random& r) { return number(r, 0, 100); }
std::string recover_time_value(Random& r) {
  const char* const kValues[] = {"off", "1", "2", "0", "-1", "abc"};
  return r.pick(kValues);
}
std::string recover_mode_value(Random& r) {
  const char* const kValues[] = {"stop", "go_preset:1", "scan:1", "patrol:1", "abs:100,5000,0", ""};
  return r.pick(kValues);
}
std::string pan_value(Random& r) { return number(r, 0, 65535); }
std::string degrees_value(Random& r) { return number(r, -30, 100); }
std::string list_value(Random& r) {
  std::string list;
  for (int i = r.between(0, 6); i > 0; --i) list += number(r, 0, 12) + ",";
  return r.below(6) == 0 ? garbage(r) : list;
}
std::string number_value(Random& r) { return number(r, 0, 12); }
std::string minutes_value(Random& r) { return number(r, 0, 10); }
std::string view_value(Random& r) { return number(r, 0, 10000) + "," + number(r, 0, 10000); }
// Recording starts and stops, and names of no pattern.
std::string pattern_action_value(Random& r) {
  const char* const kValues[] = {"stop", "stop", "rec", "rec0", "rec6", "rec-1", "stop "};
  if (r.below(3) == 0) return r.pick(kValues);
  return "rec" + std::to_string(r.between(1, 5));
}
// A day of the schedule: up to five entries, some malformed.
std::string schedule_day_value(Random& r) {
  const char* const kActions[] = {"patrol:1", "go_preset:1", "go_preset:7", "scan:1",
                                  "pattern:1", "abs:1000,5000,0", "stop", "jump"};
  if (r.below(8) == 0) return garbage(r);
  std::string day;
  for (int i = r.between(0, 5); i > 0; --i) {
    int start = r.between(0, 23) * 100 + r.between(0, 59);
    day += std::string(r.pick(kActions)) + "," + std::to_string(start) + "," +
           (r.below(5) ? std::to_string(start + r.between(0, 300)) : number(r, 0, 2359)) + ";";
  }
  return day.substr(0, 127);
}
std::string pid_value(Random& r) {
  return number(r, 0, 500) + "," + number(r, 0, 500) + "," + number(r, 0, 500);
}

// Settings the daemon listens to or reads, with plausible and bad values.
const SettingRow kSettings[] = {
    {"ptz.system.max_speed", speed_value},       {"ptz.manual.pan_speed", percent_value},
    {"ptz.manual.tilt_speed", percent_value},    {"image.cam1.mirror", on_off},
    {"image.cam1.flip", on_off},                 {"ptz.system.auto_flip", on_off},
    {"ptz.manual.proportion", on_off},           {"ptz.system.freeze", on_off},
    {"encode.cam1.eis.enable", on_off},          {"ptz.system.recover_time", recover_time_value},
    {"ptz.system.recover_mode", recover_mode_value}, {"ptz.system.east_pos", pan_value},
    {"ptz.system.up_limit", degrees_value},      {"ptz.system.down_limit", degrees_value},
    {"ptz.manual.limit", on_off},                {"ptz.manual.right_limit", pan_value},
    {"ptz.manual.left_limit", pan_value},        {"ptz.scan.scan1.limit", on_off},
    {"ptz.scan.scan1.right_limit", pan_value},   {"ptz.scan.scan1.left_limit", pan_value},
    {"ptz.scan.scan1.speed", speed_value},       {"ptz.scan.scan1.dir", on_off},
    {"ptz.patrol.set01", list_value},            {"ptz.patrol.time01", list_value},
    {"ptz.patrol.speed01", list_value},          {"ptz.PID", pid_value},
    // Twice: a recording wants a start and, later, a stop.
    {"ptz.pattern.action", pattern_action_value}, {"ptz.pattern.action", pattern_action_value},
    {"ptz.preset.view_move", view_value},        {"ptz.preset.track_enable", on_off},
    {"ptz.preset.track_id", number_value},       {"ptz.schedule.enable", on_off},
    {"ptz.schedule.recover_time", minutes_value}, {"ptz.schedule.mon", schedule_day_value},
    {"ptz.schedule.tue", schedule_day_value},    {"ptz.schedule.wed", schedule_day_value},
    {"ptz.schedule.thu", schedule_day_value},    {"ptz.schedule.fri", schedule_day_value},
    {"ptz.schedule.sat", schedule_day_value},    {"ptz.schedule.sun", schedule_day_value},
};

// A fault of the camera: the knob writes that break it and those that heal.
struct FaultRow {
  const char* name;
  const char* const* breaks;  // knob, value, knob, value, ..., nullptr
  const char* const* heals;
};

const char* const kPanAsleep[] = {"sim.pan.asleep", "1", nullptr};
const char* const kPanAwake[] = {"sim.pan.asleep", "0", nullptr};
const char* const kTiltAsleep[] = {"sim.tilt.asleep", "1", nullptr};
const char* const kTiltAwake[] = {"sim.tilt.asleep", "0", nullptr};
const char* const kPanHot[] = {"sim.pan.temp", "70", "sim.pan.asleep", "1", nullptr};
const char* const kPanCool[] = {"sim.pan.temp", "40", nullptr};
const char* const kTiltHot[] = {"sim.tilt.temp", "70", "sim.tilt.asleep", "1", nullptr};
const char* const kTiltCool[] = {"sim.tilt.temp", "40", nullptr};
// Calibration that never ends: the next reset (of a sleeping axis) starts it.
const char* const kPanEndless[] = {"sim.pan.cali_s", "1000000", "sim.pan.asleep", "1", nullptr};
const char* const kPanCalibrates[] = {"sim.pan.cali_s", "3", "sim.pan.asleep", "1", nullptr};
const char* const kTiltEndless[] = {"sim.tilt.cali_s", "1000000", "sim.tilt.asleep", "1", nullptr};
const char* const kTiltCalibrates[] = {"sim.tilt.cali_s", "3", "sim.tilt.asleep", "1", nullptr};
const char* const kPanLocked[] = {"sim.pan.prog_state", "1", "sim.pan.asleep", "1", nullptr};
const char* const kPanUnlocked[] = {"sim.pan.prog_state", "0", nullptr};
const char* const kPanByHand[] = {"sim.pan.pos", "40000", nullptr};
const char* const kTiltByHand[] = {"sim.tilt.pos", "30000", nullptr};
const char* const kLensBusy[] = {"sim.lens.busy", "1", nullptr};
const char* const kLensSettles[] = {"sim.lens.busy", "0", nullptr};
const char* const kTrackerCrash[] = {"sim.tracker.crash", "1", nullptr};
const char* const kPersonInView[] = {"sim.person", "30000,12000", nullptr};
const char* const kNobody[] = {"sim.person", "", nullptr};
const char* const kNothing[] = {nullptr};

// Every fault the running camera can meet.
const FaultRow kFaults[] = {
    {"pan asleep", kPanAsleep, kPanAwake},
    {"tilt asleep", kTiltAsleep, kTiltAwake},
    {"pan too hot to reset", kPanHot, kPanCool},
    {"tilt too hot to reset", kTiltHot, kTiltCool},
    {"pan calibration never ends", kPanEndless, kPanCalibrates},
    {"tilt calibration never ends", kTiltEndless, kTiltCalibrates},
    {"pan controller programming", kPanLocked, kPanUnlocked},
    {"pan turned by hand", kPanByHand, kNothing},
    {"tilt turned by hand", kTiltByHand, kNothing},
    {"lens never settles", kLensBusy, kLensSettles},
    {"tracker crash", kTrackerCrash, kNothing},
    {"a person walks through", kPersonInView, kNobody},
};

// Waits between actions, in seconds: mostly short, sometimes long.
const double kWaits[] = {0.01, 0.05, 0.1, 0.2, 0.5, 1, 1, 2, 3, 5, 10, 20, 60};

// Builds the plan: the directives and the preset model.
class Planner {
 public:
  Planner(uint64_t seed, SoakCounts* counts) : random_{seed}, counts_(counts) {}

  Scenario build(uint64_t seed, double hours) {
    Scenario s;
    s.name = "soak-" + std::to_string(seed);
    s.path = s.name;
    prologue();
    s.start = steps_.size();
    add_text(Op::Await, "out in loop", 200);
    double end = hours * 3600;
    double next_check = 600;
    while (now_ < end) {
      action();
      wait(random_.pick(kWaits));
      if (now_ >= next_check) {
        check_presets();
        next_check += 600;
      }
    }
    add_bus("ptz.run_mode", "stop");
    ++counts_->commands;
    heal_all();
    wait(400);  // the longest blocking wait, health pass included
    check_presets();
    s.steps = std::move(steps_);
    return s;
  }

 private:
  Random random_;
  SoakCounts* counts_;
  std::vector<Directive> steps_;
  PresetModel presets_;
  double now_ = 0;

  // The settings a camera is shipped with, and a few failing I2C starts.
  void prologue() {
    const char* const kShipped[] = {"ptz.system.max_speed", "720", "ptz.manual.pan_speed", "90",
                                    "ptz.manual.tilt_speed", "90", "ptz.system.recover_time", "off",
                                    "ptz.system.recover_mode", "stop", "ptz.system.up_limit", "-20",
                                    "ptz.system.down_limit", "90"};
    for (size_t i = 0; i < std::size(kShipped); i += 2) add_bus(kShipped[i], kShipped[i + 1]);
    int nacks = random_.below(4);
    if (nacks) {
      add_bus("sim.i2c_nacks", std::to_string(nacks));
      ++counts_->faults;
    }
  }

  void add_bus(const std::string& key, const std::string& value) {
    Directive d{};
    d.op = Op::Bus;
    d.line = static_cast<int>(steps_.size()) + 1;
    d.source = "bus " + key + " " + value;
    d.key = key;
    d.text = value;
    steps_.push_back(std::move(d));
  }

  void add_text(Op op, const std::string& text, double seconds) {
    Directive d{};
    d.op = op;
    d.line = static_cast<int>(steps_.size()) + 1;
    d.source = op == Op::Await ? "await " + text : "wait";
    d.text = text;
    d.ns = static_cast<int64_t>(seconds * 1e9);
    steps_.push_back(std::move(d));
  }

  void wait(double seconds) {
    add_text(Op::Wait, "", seconds);
    now_ += seconds;
  }

  // One random action: a command, a settings write or a fault.
  void action() {
    int roll = random_.below(100);
    if (roll < 70) command();
    else if (roll < 89) setting();
    else if (roll < 98) fault();
    else bad_pattern_file();
  }

  void command() {
    int total = 0;
    for (const CommandRow& row : kCommands) total += row.weight;
    int roll = random_.below(total);
    for (const CommandRow& row : kCommands) {
      if ((roll -= row.weight) >= 0) continue;
      add_bus("ptz.run_mode", row.make(random_, presets_));
      ++counts_->commands;
      return;
    }
  }

  void setting() {
    const SettingRow& row = random_.pick(kSettings);
    add_bus(row.key, row.value(random_));
    ++counts_->settings;
  }

  // Breaks the camera for a while, then heals it.
  void fault() {
    const FaultRow& row = random_.pick(kFaults);
    for (const char* const* kv = row.breaks; *kv; kv += 2) add_bus(kv[0], kv[1]);
    ++counts_->faults;
    wait(random_.pick(kWaits));
    for (const char* const* kv = row.heals; *kv; kv += 2) add_bus(kv[0], kv[1]);
  }

  // A stored pattern written behind the daemon's back, then played: a start
  // line and pairs of delay and command, any of them malformed.
  void bad_pattern_file() {
    std::string id = std::to_string(random_.between(1, 5));
    Directive d{};
    d.op = Op::File;
    d.line = static_cast<int>(steps_.size()) + 1;
    d.key = "/mnt/nand/pattern" + id + ".path";
    d.source = "file " + d.key;
    PresetModel untouched;
    d.lines.push_back(random_.below(4) == 0 ? garbage(random_)
                                           : number(random_, 0, 65535) + "," + number(random_, 0, 37681) +
                                                 "," + number(random_, 0, 16384));
    for (int i = random_.between(0, 8); i > 0; --i) {
      d.lines.push_back(number(random_, 0, 5000));
      d.lines.push_back(random_.pick(kPatternLines)(random_, untouched));
    }
    steps_.push_back(std::move(d));
    ++counts_->faults;
    add_bus("ptz.run_mode", "pattern:" + id);
    ++counts_->commands;
  }

  void heal_all() {
    for (const FaultRow& row : kFaults)
      for (const char* const* kv = row.heals; *kv; kv += 2) add_bus(kv[0], kv[1]);
  }

  // The preset list on the bus must be the model, after the last store has
  // been delivered.
  void check_presets() {
    wait(1);
    std::string listing;
    for (const auto& [id, name] : presets_) listing += std::to_string(id) + " " + name + "\n";
    add_text(Op::ExpectPresets, listing, 0);
    ++counts_->preset_checks;
    steps_.back().source = "expect presets";
  }
};

}  // namespace

Scenario soak_plan(uint64_t seed, double hours, SoakCounts* counts) {
  return Planner(seed, counts).build(seed, hours);
}

}  // namespace sim
