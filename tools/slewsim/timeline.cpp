// Reading a transcript into a timeline: one pass, line by line, so that a
// week of lines never has to be held at once.
#include "timeline.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace slewsim {

namespace {

constexpr double kStepsPerTurn = 65535;
constexpr double kZoomRange = 16384;
constexpr double kHorizonDegrees = 27;  // tilt step 0 looks this far above the horizon

// What the command verbs are called in the table.
struct VerbName {
  const char* verb;
  const char* mode;
  bool numbered;
};
const VerbName kVerbs[] = {
    {"go_preset", "preset", true}, {"patrol", "patrol", true},   {"scan", "scan", true},
    {"pattern", "pattern", true},  {"track", "tracking", false}, {"manual", "manual", false},
    {"stop", "stop", false},       {"abs", "move", false},       {"rel", "move", false},
    {"view", "move", false},
};

// The number that follows "verb:" in a command, or "".
std::string command_number(const std::string& command) {
  size_t colon = command.find(':');
  if (colon == std::string::npos) return "";
  size_t end = command.find_first_of(",;", colon + 1);
  std::string number = command.substr(colon + 1, end == std::string::npos ? end : end - colon - 1);
  if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos) return "";
  return number;
}

// Fills mode and target of a change from its command text.
void describe(const std::map<int, std::string>& presets, ModeChange* change) {
  const std::string& c = change->command;
  std::string verb = c.substr(0, c.find_first_of(":,;"));
  change->mode = verb;
  for (const VerbName& v : kVerbs) {
    if (verb.rfind(v.verb, 0) != 0) continue;
    change->mode = v.mode;
    if (!v.numbered) break;
    change->target = command_number(c);
    if (v.mode == std::string("preset") && !change->target.empty()) {
      auto name = presets.find(atoi(change->target.c_str()));
      if (name != presets.end() && !name->second.empty()) change->target += " " + name->second;
    }
    break;
  }
}

// Appends a value to a band list, closing the band before it.
void add_band(std::vector<Band>* bands, double t, const std::string& text) {
  if (!bands->empty()) {
    if (bands->back().text == text) return;
    bands->back().to = t;
  }
  bands->push_back({t, t, text});
}

// The state carried from line to line.
struct Reader {
  const std::map<int, std::string>& presets;
  Timeline* out;
  bool in_loop = false;                 // start-up is over
  bool schedule_recover = false;        // the next self-command is the schedule's recovery
  std::map<std::string, std::string> schedule_actions;  // parsed entry code to action text
  double self_command_t = -1;           // time of the last command the daemon wrote itself

  // Records a change caused by command at t.
  void change(double t, const std::string& command, const char* why) {
    ModeChange c{t, "", "", why, command};
    describe(presets, &c);
    out->changes.push_back(c);
  }

  // A bus write of the daemon ("set KEY=VALUE").
  void daemon_write(double t, const std::string& key, const std::string& value) {
    double number = atof(value.c_str());
    if (key == "ptz.pan_pos") {
      out->pan.push_back({t, number * 360 / kStepsPerTurn});
    } else if (key == "ptz.tilt_pos") {
      out->tilt.push_back({t, number * 360 / kStepsPerTurn - kHorizonDegrees});
    } else if (key == "ptz.lens.set_pos.zoom") {
      out->zoom.push_back({t, number * 100 / kZoomRange});
    } else if (key == "ptz.status") {
      add_band(&out->status, t, value);
    } else if (key == "ptz.mode_status") {
      add_band(&out->mode, t, value);
    } else if (key == "ptz.run_mode") {
      const char* why = !in_loop ? "power-up" : schedule_recover ? "schedule recover" : "end of tracking";
      schedule_recover = false;
      change(t, value, why);
      self_command_t = t;
    }
  }

  // A line the daemon printed.
  void daemon_line(double t, const std::string& text) {
    if (text == "in loop") {
      in_loop = true;
    } else if (text.rfind("Sch Run mode:", 0) == 0) {
      size_t blank = text.find(' ', 13);
      if (blank != std::string::npos) schedule_actions[text.substr(13, blank - 13)] = text.substr(blank + 1);
    } else if (text.rfind("iScheduleOldMode=", 0) == 0) {
      size_t at = text.find("iScheduleMode=");
      auto action = at == std::string::npos ? schedule_actions.end() : schedule_actions.find(text.substr(at + 14));
      change(t, action == schedule_actions.end() ? "" : action->second, "schedule entry");
    } else if (text.rfind("Schedule recover run mode:", 0) == 0) {
      schedule_recover = true;
    } else if (text.rfind("Run Recover:", 0) == 0 && self_command_t == t && !out->changes.empty()) {
      out->changes.back().why = "recover timer";  // printed right after the command it wrote
    }
  }

  // One transcript line: "SECONDS KIND TEXT".
  void line(const std::string& line) {
    char* end = nullptr;
    double t = strtod(line.c_str(), &end);
    if (end == line.c_str() || *end != ' ') return;
    std::string rest(end + 1);
    size_t blank = rest.find(' ');
    if (blank == std::string::npos) return;
    std::string kind = rest.substr(0, blank), text = rest.substr(blank + 1);
    out->end = t;
    size_t eq = text.find('=');
    if (kind == "set" && eq != std::string::npos) {
      daemon_write(t, text.substr(0, eq), text.substr(eq + 1));
    } else if (kind == "out") {
      daemon_line(t, text);
    } else if (kind == "ext" && eq != std::string::npos && text.compare(0, eq, "ptz.run_mode") == 0) {
      change(t, text.substr(eq + 1), "a client");
    }
  }
};

}  // namespace

bool read_timeline(const std::string& path, const std::map<int, std::string>& presets,
                   Timeline* out, std::string* error) {
  std::ifstream in(path);
  if (!in) {
    *error = path + ": " + strerror(errno);
    return false;
  }
  *out = Timeline{};
  Reader reader{presets, out, false, false, {}, -1};
  std::string line;
  while (std::getline(in, line)) reader.line(line);
  if (!out->status.empty()) out->status.back().to = out->end;
  if (!out->mode.empty()) out->mode.back().to = out->end;
  return true;
}

std::map<int, std::string> preset_names(const std::map<std::string, std::string>& bus) {
  std::map<int, std::string> names;
  for (auto it = bus.lower_bound("ptz.preset.position."); it != bus.end(); ++it) {
    if (it->first.rfind("ptz.preset.position.", 0) != 0) break;
    const std::string& v = it->second;
    size_t id = v.find("id:"), name = v.find("name:");
    if (id == std::string::npos || name == std::string::npos) continue;
    std::string text = v.substr(name + 5);
    names[atoi(v.c_str() + id + 3)] = text.substr(0, text.find(','));
  }
  return names;
}

}  // namespace slewsim
