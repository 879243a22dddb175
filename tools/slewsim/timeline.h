// What a transcript says the head did, over time: the position it
// published, its status and run mode as bands, and the changes of mode with
// what caused each. The preview's table and every plot are made from this.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace slewsim {

// One published value of an axis: seconds since the start, and the value.
struct Sample {
  double t;
  double value;
};

// A stretch of time during which a key held one text.
struct Band {
  double from, to;
  std::string text;
};

// A change of what the head does, and why.
struct ModeChange {
  double t;            // seconds since the start
  std::string mode;    // "patrol", "preset", "scan", "pattern", "tracking", "manual", ...
  std::string target;  // "1", "7 Gate", or "" when the mode has none
  std::string why;     // "power-up", "schedule entry", "schedule recover", "recover timer", ...
  std::string command; // the command text as the bus carried it
};

struct Timeline {
  std::vector<Sample> pan, tilt, zoom;  // degrees, degrees below the horizon, percent of the range
  std::vector<Band> status, mode;       // ptz.status and ptz.mode_status
  std::vector<ModeChange> changes;
  double end = 0;                       // the last line's time
};

// Reads a transcript file; presets names the stored presets by number
// (for "7 Gate"). False with a one-line reason when it cannot be read.
bool read_timeline(const std::string& path, const std::map<int, std::string>& presets,
                   Timeline* out, std::string* error);

// The preset names of a bus: number to name, from every
// ptz.preset.position.N value ("id:7,...,name:Gate").
std::map<int, std::string> preset_names(const std::map<std::string, std::string>& bus);

}  // namespace slewsim
