// Presets, the home position and preset tours (the head's patrols), on the
// bus keys the daemon keeps them in.
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "ptz_common.h"
#include "service.h"
#include "spaces.h"

namespace onvif {

using namespace ptz;

bool Service::read_presets(std::map<int, std::string>* records, Fault* fault) const {
  std::map<std::string, std::string> keys;
  std::string error;
  if (bus_.list("ptz.preset.position.", &keys, &error) != buslink::BusReply::kOk) {
    return *fault = bus_fault(error), false;
  }
  for (const auto& [key, value] : keys) {
    PresetRecord r;
    if (parse_record(value, &r) && r.id >= 0 && r.id <= kHomePreset) (*records)[r.id] = value;
  }
  return true;
}

// The stored preset the request's PresetToken names (the home slot is not one).
bool Service::stored_preset(const Call& call, int* id, Fault* fault) const {
  std::string token = text_of(child_any(call.req.operation, "PresetToken"));
  std::map<int, std::string> records;
  if (!read_presets(&records, fault)) return false;
  if (!token_number(token, 0, kHomePreset - 1, id) || records.count(*id) == 0) {
    return *fault = bad_arg("ter:NoToken", "no preset \"" + token + "\""), false;
  }
  return true;
}

bool Service::wait_presets(int id, bool present) {
  // The daemon rewrites the list once it has taken the command: wait for it, bounded.
  for (int i = 0; i < 100; ++i) {
    std::map<int, std::string> records;
    Fault ignored;
    if (read_presets(&records, &ignored) && (records.count(id) != 0) == present) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

bool Service::get_presets(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  std::map<int, std::string> records;
  if (!read_presets(&records, fault)) return false;
  *out = "<tptz:GetPresetsResponse>";
  for (const auto& [id, text] : records) {
    PresetRecord r;
    if (id == kHomePreset || !parse_record(text, &r)) continue;
    *out += "<tptz:Preset token=\"" + std::to_string(id) + "\"><tt:Name>" + escape(r.name) + "</tt:Name>" +
            position_xml("tt:PTZPosition", r.pan, r.tilt, r.zoom) + "</tptz:Preset>";
  }
  *out += "</tptz:GetPresetsResponse>";
  return true;
}

bool Service::set_preset(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  pugi::xml_node name_node = child_any(call.req.operation, "PresetName");
  pugi::xml_node token_node = child_any(call.req.operation, "PresetToken");
  std::string name = text_of(name_node);
  if (name.size() > kMaxNameChars) return *fault = bad_arg("ter:InvalidPresetName", "a preset name has at most 60 characters"), false;
  for (unsigned char c : name) {
    // A colon could make the name a command of its own; control characters have no place on the picture.
    if (c == ':' || c < 0x20 || c == 0x7f) {
      return *fault = bad_arg("ter:InvalidPresetName", "a preset name may not hold ':' or control characters"), false;
    }
  }
  std::lock_guard<std::mutex> lock(preset_mutex_);
  std::map<int, std::string> records;
  if (!read_presets(&records, fault)) return false;
  int id = -1;
  if (token_node) {
    if (!token_number(text_of(token_node), 0, kHomePreset - 1, &id) || records.count(id) == 0) {
      return *fault = bad_arg("ter:NoToken", "no preset \"" + text_of(token_node) + "\""), false;
    }
    PresetRecord old;
    if (name.empty() && parse_record(records[id], &old)) name = old.name;
  } else {
    for (int n = 1; n < kHomePreset && id < 0; ++n) {
      if (records.count(n) == 0) id = n;
    }
    if (id < 0) return *fault = sender_fault("ter:Action", "ter:TooManyPresets", "all 511 presets are in use"), false;
  }
  if (name.empty()) name = "Preset " + std::to_string(id);
  if (!command("set_preset:id:" + std::to_string(id) + ",name:" + name, false, fault)) return false;
  if (!wait_presets(id, true)) return *fault = bus_fault("the preset list did not change"), false;
  *out = "<tptz:SetPresetResponse><tptz:PresetToken>" + std::to_string(id) + "</tptz:PresetToken></tptz:SetPresetResponse>";
  return true;
}

bool Service::remove_preset(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  std::lock_guard<std::mutex> lock(preset_mutex_);
  int id = -1;
  if (!stored_preset(call, &id, fault)) return false;
  if (!command("clr_preset:" + std::to_string(id), false, fault)) return false;
  if (!wait_presets(id, false)) return *fault = bus_fault("the preset list did not change"), false;
  *out = "<tptz:RemovePresetResponse/>";
  return true;
}

bool Service::goto_preset(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  int id = -1;
  if (!stored_preset(call, &id, fault)) return false;
  if (!head_takes_moves(head_, fault) || !apply_speed(child_any(call.req.operation, "Speed"), fault)) return false;
  if (!command("go_preset:" + std::to_string(id), true, fault)) return false;
  *out = "<tptz:GotoPresetResponse/>";
  return true;
}

bool Service::goto_home_position(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  std::map<int, std::string> records;
  if (!read_presets(&records, fault)) return false;
  if (records.count(kHomePreset) == 0) {
    return *fault = bad_arg("ter:NoHomePosition", "no home position is set (SetHomePosition sets it)"), false;
  }
  if (!head_takes_moves(head_, fault) || !apply_speed(child_any(call.req.operation, "Speed"), fault)) return false;
  if (!command("go_preset:" + std::to_string(kHomePreset), true, fault)) return false;
  *out = "<tptz:GotoHomePositionResponse/>";
  return true;
}

bool Service::set_home_position(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  std::lock_guard<std::mutex> lock(preset_mutex_);
  if (!command("set_preset:id:" + std::to_string(kHomePreset) + ",name:home", false, fault)) return false;
  if (!wait_presets(kHomePreset, true)) return *fault = bus_fault("the preset list did not change"), false;
  *out = "<tptz:SetHomePositionResponse/>";
  return true;
}

std::string Service::tour_xml(int patrol) const {
  char key[32];
  std::string set, times, speeds, mode, error;
  snprintf(key, sizeof key, "ptz.patrol.set%02d", patrol);
  if (bus_.get(key, &set, &error) != buslink::BusReply::kOk || set.empty()) return "";
  snprintf(key, sizeof key, "ptz.patrol.time%02d", patrol);
  bus_.get(key, &times, &error);
  snprintf(key, sizeof key, "ptz.patrol.speed%02d", patrol);
  bus_.get(key, &speeds, &error);
  bus_.get("ptz.mode_status", &mode, &error);
  bool touring = mode == "sequence" && started_tour_ == patrol;
  std::string out = "<tptz:PresetTour token=\"" + std::to_string(patrol) + "\"><tt:Name>patrol " +
                    std::to_string(patrol) + "</tt:Name><tt:Status><tt:State>" + (touring ? "Touring" : "Idle") +
                    "</tt:State></tt:Status><tt:AutoStart>false</tt:AutoStart>"
                    "<tt:StartingCondition RandomPresetOrder=\"false\"><tt:Direction>Forward</tt:Direction>"
                    "</tt:StartingCondition>";
  // The three lists run side by side: stop i has preset, dwell and speed i.
  const char *p = set.c_str(), *t = times.c_str(), *s = speeds.c_str();
  for (int stop = 0; *p && stop < 64; ++stop) {
    char* end = nullptr;
    long preset = std::strtol(p, &end, 10);
    if (end == p) break;
    p = *end ? end + 1 : end;
    long dwell = std::strtol(t, &end, 10);
    t = *end ? end + 1 : end;
    long speed = std::strtol(s, &end, 10);
    s = *end ? end + 1 : end;
    std::string sp = num(units_to_speed(std::clamp(static_cast<int>(speed), kSpeedMin, kSpeedMax)));
    out += "<tt:TourSpot><tt:PresetDetail><tt:PresetToken>" + std::to_string(preset) +
           "</tt:PresetToken></tt:PresetDetail><tt:Speed><tt:PanTilt x=\"" + sp + "\" y=\"" + sp + "\" space=\"" +
           std::string(kSpeedPanTilt) + "\"/></tt:Speed><tt:StayTime>PT" + std::to_string(dwell) +
           "S</tt:StayTime></tt:TourSpot>";
  }
  return out + "</tptz:PresetTour>";
}

bool Service::get_preset_tours(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  std::lock_guard<std::mutex> lock(move_mutex_);
  *out = "<tptz:GetPresetToursResponse>";
  for (int n = 1; n <= kPatrols; ++n) *out += tour_xml(n);
  *out += "</tptz:GetPresetToursResponse>";
  return true;
}

bool Service::get_preset_tour(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  std::string token = text_of(child_any(call.req.operation, "PresetTourToken"));
  int n = 0;
  std::lock_guard<std::mutex> lock(move_mutex_);
  std::string tour = token_number(token, 1, kPatrols, &n) ? tour_xml(n) : "";
  if (tour.empty()) return *fault = bad_arg("ter:NoToken", "no preset tour \"" + token + "\""), false;
  *out = "<tptz:GetPresetTourResponse>" + tour + "</tptz:GetPresetTourResponse>";
  return true;
}

bool Service::operate_preset_tour(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  std::string token = text_of(child_any(call.req.operation, "PresetTourToken"));
  std::string op = text_of(child_any(call.req.operation, "Operation"));
  int n = 0;
  std::lock_guard<std::mutex> lock(move_mutex_);
  if (!token_number(token, 1, kPatrols, &n) || tour_xml(n).empty()) {
    return *fault = bad_arg("ter:NoToken", "no preset tour \"" + token + "\""), false;
  }
  if (op != "Start" && op != "Stop") {
    *fault = sender_fault("ter:ActionNotSupported", "ter:InvalidPresetTourOperation", "only Start and Stop are served, not " + op);
    return false;
  }
  if (op == "Start" && !head_takes_moves(head_, fault)) return false;
  if (!command(op == "Start" ? "patrol:" + std::to_string(n) : "stop", false, fault)) return false;
  started_tour_ = op == "Start" ? n : 0;
  *out = "<tptz:OperatePresetTourResponse/>";
  return true;
}

}  // namespace onvif
