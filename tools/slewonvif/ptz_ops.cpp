// The PTZ service: the node and its spaces, status, moves, presets, home
// and preset tours, each turned into bus commands (docs/onvif.md).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

#include "service.h"
#include "spaces.h"

namespace onvif {
namespace {

constexpr std::string_view kPosPanTilt = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/PositionGenericSpace";
constexpr std::string_view kPosZoom = "http://www.onvif.org/ver10/tptz/ZoomSpaces/PositionGenericSpace";
constexpr std::string_view kTransPanTilt = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/TranslationGenericSpace";
constexpr std::string_view kTransFov = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/TranslationSpaceFov";
constexpr std::string_view kTransZoom = "http://www.onvif.org/ver10/tptz/ZoomSpaces/TranslationGenericSpace";
constexpr std::string_view kVelPanTilt = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/VelocityGenericSpace";
constexpr std::string_view kVelZoom = "http://www.onvif.org/ver10/tptz/ZoomSpaces/VelocityGenericSpace";
constexpr std::string_view kSpeedPanTilt = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/GenericSpeedSpace";
constexpr std::string_view kSpeedZoom = "http://www.onvif.org/ver10/tptz/ZoomSpaces/ZoomGenericSpeedSpace";
constexpr int kPatrols = 8;
constexpr int kMaxNameChars = 60;  // what a preset record on the bus leaves room for

// A number as xs:float text, without a negative zero.
std::string num(double v) {
  char text[32];
  snprintf(text, sizeof text, "%.6f", v + 0.0);
  std::string t = text;
  if (t == "-0.000000") t = "0.000000";
  return t;
}

// <tt:XRange> (or YRange) from min to max.
std::string range(const char* axis, double lo, double hi) {
  return std::string("<tt:") + axis + "><tt:Min>" + num(lo) + "</tt:Min><tt:Max>" + num(hi) + "</tt:Max></tt:" + axis + ">";
}

// One space of the node: its URI and ranges.
std::string space(const char* element, std::string_view uri, double lo, double hi, bool two_axes) {
  return std::string("<tt:") + element + "><tt:URI>" + std::string(uri) + "</tt:URI>" + range("XRange", lo, hi) +
         (two_axes ? range("YRange", lo, hi) : "") + "</tt:" + element + ">";
}

// Every space the head accepts.
std::string supported_spaces(const char* element) {
  return std::string("<") + element + ">" + space("AbsolutePanTiltPositionSpace", kPosPanTilt, -1, 1, true) +
         space("AbsoluteZoomPositionSpace", kPosZoom, 0, 1, false) +
         space("RelativePanTiltTranslationSpace", kTransPanTilt, -1, 1, true) +
         space("RelativePanTiltTranslationSpace", kTransFov, -1, 1, true) +
         space("RelativeZoomTranslationSpace", kTransZoom, -1, 1, false) +
         space("ContinuousPanTiltVelocitySpace", kVelPanTilt, -1, 1, true) +
         space("ContinuousZoomVelocitySpace", kVelZoom, -1, 1, false) +
         space("PanTiltSpeedSpace", kSpeedPanTilt, 0, 1, false) + space("ZoomSpeedSpace", kSpeedZoom, 0, 1, false) +
         "</" + element + ">";
}

// A PTZVector in the generic position space.
std::string position_xml(const char* element, int pan, int tilt, int zoom) {
  return std::string("<") + element + "><tt:PanTilt x=\"" + num(steps_to_pan(pan)) + "\" y=\"" +
         num(steps_to_tilt(tilt)) + "\" space=\"" + std::string(kPosPanTilt) + "\"/><tt:Zoom x=\"" +
         num(lens_to_zoom(zoom)) + "\" space=\"" + std::string(kPosZoom) + "\"/></" + element + ">";
}

// An argument fault with InvalidArgVal and a detail code.
Fault bad_arg(const char* detail, std::string reason) { return sender_fault("ter:InvalidArgVal", detail, std::move(reason)); }

// Reads attribute name of node as a number within lo..hi.
bool read_number(pugi::xml_node node, const char* name, double lo, double hi, double* v, Fault* fault) {
  pugi::xml_attribute a = node.attribute(name);
  std::string what = std::string(local_name(node)) + " " + name;
  if (!a) return *fault = bad_arg("ter:InvalidPosition", what + " is missing"), false;
  if (!parse_float(a.value(), v)) return *fault = bad_arg("ter:InvalidPosition", what + " is not a number"), false;
  if (*v < lo || *v > hi) {
    *fault = bad_arg("ter:InvalidPosition", what + " " + a.value() + " is outside " + num(lo) + ".." + num(hi));
    return false;
  }
  return true;
}

// Checks that a vector's space, when named, is the one expected.
bool check_space(pugi::xml_node node, std::string_view expected, Fault* fault) {
  pugi::xml_attribute s = node.attribute("space");
  if (!s || s.value() == expected) return true;
  *fault = bad_arg("ter:SpaceNotSupported", std::string("space ") + s.value() + " is not accepted here");
  return false;
}

// A preset or tour token: a decimal number in lo..hi.
bool token_number(const std::string& text, int lo, int hi, int* n) {
  if (text.empty() || text.size() > 3) return false;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
  }
  *n = std::atoi(text.c_str());
  return *n >= lo && *n <= hi;
}

// The fields of a preset record on the bus.
struct PresetRecord {
  int id = -1, pan = 0, tilt = 0, zoom = 0;
  std::string name;
};

// Parses "id:%d,pan:%d,tilt:%d,zoom:%d,focus:%d,pref:%d,name:%s".
bool parse_record(const std::string& text, PresetRecord* r) {
  int focus = 0, pref = 0, used = 0;
  if (sscanf(text.c_str(), "id:%d,pan:%d,tilt:%d,zoom:%d,focus:%d,pref:%d,name:%n", &r->id, &r->pan, &r->tilt,
             &r->zoom, &focus, &pref, &used) != 6 || used == 0) {
    return false;
  }
  r->name = text.substr(used);
  return true;
}

// The bus failed us: the fault for it.
Fault bus_fault(const std::string& error) {
  Fault f = sender_fault("ter:Action", "", "the head's bus did not answer: " + error);
  f.code = "env:Receiver";
  f.http_status = 500;
  return f;
}

}  // namespace

std::string Service::ptz_configuration_xml(const char* element) const {
  std::string speed_text, error;
  int units = kSpeedMax;
  if (bus_.get("ptz.system.max_speed", &speed_text, &error) == buslink::BusReply::kOk && !speed_text.empty()) {
    units = std::clamp(std::atoi(speed_text.c_str()), kSpeedMin, kSpeedMax);
  }
  std::string s = num(units_to_speed(units));
  return std::string("<") + element + " token=\"ptz_head\"><tt:Name>head</tt:Name><tt:UseCount>1</tt:UseCount>"
         "<tt:NodeToken>node_head</tt:NodeToken>"
         "<tt:DefaultAbsolutePantTiltPositionSpace>" + std::string(kPosPanTilt) + "</tt:DefaultAbsolutePantTiltPositionSpace>"
         "<tt:DefaultAbsoluteZoomPositionSpace>" + std::string(kPosZoom) + "</tt:DefaultAbsoluteZoomPositionSpace>"
         "<tt:DefaultRelativePanTiltTranslationSpace>" + std::string(kTransPanTilt) + "</tt:DefaultRelativePanTiltTranslationSpace>"
         "<tt:DefaultRelativeZoomTranslationSpace>" + std::string(kTransZoom) + "</tt:DefaultRelativeZoomTranslationSpace>"
         "<tt:DefaultContinuousPanTiltVelocitySpace>" + std::string(kVelPanTilt) + "</tt:DefaultContinuousPanTiltVelocitySpace>"
         "<tt:DefaultContinuousZoomVelocitySpace>" + std::string(kVelZoom) + "</tt:DefaultContinuousZoomVelocitySpace>"
         "<tt:DefaultPTZSpeed><tt:PanTilt x=\"" + s + "\" y=\"" + s + "\" space=\"" + std::string(kSpeedPanTilt) +
         "\"/><tt:Zoom x=\"1.000000\" space=\"" + std::string(kSpeedZoom) + "\"/></tt:DefaultPTZSpeed>"
         "<tt:DefaultPTZTimeout>PT" + std::to_string(kDefaultMoveTimeoutMs / 1000) + "S</tt:DefaultPTZTimeout>"
         "<tt:PanTiltLimits><tt:Range><tt:URI>" + std::string(kPosPanTilt) + "</tt:URI>" + range("XRange", -1, 1) +
         range("YRange", -1, 1) + "</tt:Range></tt:PanTiltLimits><tt:ZoomLimits><tt:Range><tt:URI>" +
         std::string(kPosZoom) + "</tt:URI>" + range("XRange", 0, 1) + "</tt:Range></tt:ZoomLimits></" + element + ">";
}

std::string Service::node_xml(const char* element) const {
  return std::string("<") + element + " token=\"node_head\" FixedHomePosition=\"false\" GeoMove=\"false\">"
         "<tt:Name>head</tt:Name>" + supported_spaces("tt:SupportedPTZSpaces") +
         "<tt:MaximumNumberOfPresets>511</tt:MaximumNumberOfPresets><tt:HomeSupported>true</tt:HomeSupported>"
         "<tt:Extension><tt:SupportedPresetTour><tt:MaximumNumberOfPresetTours>" + std::to_string(kPatrols) +
         "</tt:MaximumNumberOfPresetTours><tt:PTZPresetTourOperation>Start</tt:PTZPresetTourOperation>"
         "<tt:PTZPresetTourOperation>Stop</tt:PTZPresetTourOperation></tt:SupportedPresetTour></tt:Extension></" +
         element + ">";
}

bool Service::ptz_service_capabilities(const Call&, std::string* out, Fault*) {
  *out = "<tptz:GetServiceCapabilitiesResponse><tptz:Capabilities EFlip=\"false\" Reverse=\"false\""
         " GetCompatibleConfigurations=\"false\" MoveStatus=\"true\" StatusPosition=\"true\"/>"
         "</tptz:GetServiceCapabilitiesResponse>";
  return true;
}

bool Service::get_nodes(const Call&, std::string* out, Fault*) {
  *out = "<tptz:GetNodesResponse>" + node_xml("tptz:PTZNode") + "</tptz:GetNodesResponse>";
  return true;
}

bool Service::get_node(const Call& call, std::string* out, Fault* fault) {
  if (text_of(child_any(call.req.operation, "NodeToken")) != "node_head") {
    *fault = bad_arg("ter:NoEntity", "no such node (node_head is the one)");
    return false;
  }
  *out = "<tptz:GetNodeResponse>" + node_xml("tptz:PTZNode") + "</tptz:GetNodeResponse>";
  return true;
}

bool Service::get_configurations(const Call&, std::string* out, Fault*) {
  *out = "<tptz:GetConfigurationsResponse>" + ptz_configuration_xml("tptz:PTZConfiguration") +
         "</tptz:GetConfigurationsResponse>";
  return true;
}

bool Service::get_configuration(const Call& call, std::string* out, Fault* fault) {
  if (text_of(child_any(call.req.operation, "PTZConfigurationToken")) != "ptz_head") {
    *fault = bad_arg("ter:NoConfig", "no such configuration (ptz_head is the one)");
    return false;
  }
  *out = "<tptz:GetConfigurationResponse>" + ptz_configuration_xml("tptz:PTZConfiguration") +
         "</tptz:GetConfigurationResponse>";
  return true;
}

bool Service::get_configuration_options(const Call& call, std::string* out, Fault* fault) {
  if (text_of(child_any(call.req.operation, "ConfigurationToken")) != "ptz_head") {
    *fault = bad_arg("ter:NoConfig", "no such configuration (ptz_head is the one)");
    return false;
  }
  *out = "<tptz:GetConfigurationOptionsResponse><tptz:PTZConfigurationOptions>" + supported_spaces("tt:Spaces") +
         "<tt:PTZTimeout><tt:Min>PT1S</tt:Min><tt:Max>PT" + std::to_string(kMaxMoveTimeoutMs / 1000) +
         "S</tt:Max></tt:PTZTimeout></tptz:PTZConfigurationOptions></tptz:GetConfigurationOptionsResponse>";
  return true;
}

bool Service::get_status(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  HeadReading r = head_.read(Clock::now());
  if (!r.up) return *fault = bus_fault("no slewd is running"), false;
  *out = "<tptz:GetStatusResponse><tptz:PTZStatus>" + position_xml("tt:Position", r.pan, r.tilt, r.zoom) +
         "<tt:MoveStatus><tt:PanTilt>" + (r.pan_tilt_moving ? "MOVING" : "IDLE") + "</tt:PanTilt><tt:Zoom>" +
         (r.zoom_moving ? "MOVING" : "IDLE") + "</tt:Zoom></tt:MoveStatus>" +
         (r.error.empty() ? "" : "<tt:Error>" + escape(r.error) + "</tt:Error>") + "<tt:UtcTime>" +
         utc_time_text(time(nullptr)) + "</tt:UtcTime></tptz:PTZStatus></tptz:GetStatusResponse>";
  return true;
}

bool Service::apply_speed(pugi::xml_node speed, Fault* fault) {
  pugi::xml_node pt = child_any(speed, "PanTilt");
  if (!speed || !pt) return true;  // zoom speed is the lens's own: nothing to set
  double x = 0;
  if (!check_space(pt, kSpeedPanTilt, fault) || !read_number(pt, "x", 0, 1, &x, fault)) return false;
  std::string error;
  if (bus_.set("ptz.system.max_speed", std::to_string(speed_to_units(x)), &error) != buslink::BusReply::kOk) {
    return *fault = bus_fault(error), false;
  }
  return true;
}

// Refuses a move while the head is in a state that does not take one.
static bool head_takes_moves(const HeadState& head, Fault* fault) {
  HeadReading r = head.read(Clock::now());
  if (!r.up) return *fault = bus_fault("no slewd is running"), false;
  if (r.error.empty()) return true;
  *fault = sender_fault("ter:Action", "", r.error + ": no move now");
  fault->code = "env:Receiver";
  fault->http_status = 500;
  return false;
}

bool Service::continuous_move(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  pugi::xml_node velocity = child_any(call.req.operation, "Velocity");
  pugi::xml_node pt = child_any(velocity, "PanTilt"), zoom = child_any(velocity, "Zoom");
  double x = 0, y = 0, z = 0;
  if (pt && (!check_space(pt, kVelPanTilt, fault) || !read_number(pt, "x", -1, 1, &x, fault) ||
             !read_number(pt, "y", -1, 1, &y, fault))) {
    return false;
  }
  if (zoom && (!check_space(zoom, kVelZoom, fault) || !read_number(zoom, "x", -1, 1, &z, fault))) return false;
  long timeout = kDefaultMoveTimeoutMs;
  pugi::xml_node t = child_any(call.req.operation, "Timeout");
  if (t && (!parse_duration(text_of(t), &timeout) || timeout <= 0 || timeout > kMaxMoveTimeoutMs)) {
    *fault = bad_arg("ter:InvalidArgVal", "Timeout " + text_of(t) + " is not a duration of up to PT60S");
    return false;
  }
  if (!head_takes_moves(head_, fault)) return false;
  std::lock_guard<std::mutex> lock(move_mutex_);
  int pan = x == 0 ? 0 : velocity_percent(x), tilt = y == 0 ? 0 : velocity_percent(y);
  int zdir = z > 0 ? 1 : z < 0 ? -1 : 0;
  if (!command("manual:" + std::to_string(pan) + "," + std::to_string(tilt) + "," + std::to_string(zdir), zdir != 0,
               fault)) {
    return false;
  }
  last_pan_ = pan, last_tilt_ = tilt, last_zoom_ = zdir;
  arm_timeout(pan || tilt || zdir ? timeout : 0);
  *out = "<tptz:ContinuousMoveResponse/>";
  return true;
}

bool Service::stop(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  pugi::xml_node pt = child_any(call.req.operation, "PanTilt"), zoom = child_any(call.req.operation, "Zoom");
  bool stop_pt = !pt || text_of(pt) == "true" || text_of(pt) == "1";
  bool stop_zoom = !zoom || text_of(zoom) == "true" || text_of(zoom) == "1";
  std::lock_guard<std::mutex> lock(move_mutex_);
  std::string text;
  if (stop_pt && stop_zoom) {
    text = "stop";
  } else if (stop_pt) {
    text = last_zoom_ != 0 ? "manual:0,0," + std::to_string(last_zoom_) : "stop";
  } else if (stop_zoom && (last_pan_ != 0 || last_tilt_ != 0 || last_zoom_ != 0)) {
    text = "manual:" + std::to_string(last_pan_) + "," + std::to_string(last_tilt_) + ",0";
  }
  if (!text.empty() && !command(text, stop_zoom, fault)) return false;
  if (stop_pt) last_pan_ = last_tilt_ = 0;
  if (stop_zoom) last_zoom_ = 0;
  if (last_pan_ == 0 && last_tilt_ == 0 && last_zoom_ == 0) arm_timeout(0);
  *out = "<tptz:StopResponse/>";
  return true;
}

bool Service::absolute_move(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  pugi::xml_node pos = child_any(call.req.operation, "Position");
  pugi::xml_node pt = child_any(pos, "PanTilt"), zoom = child_any(pos, "Zoom");
  double x = 0, y = 0, z = 0;
  if (!pt && !zoom) return *fault = bad_arg("ter:InvalidPosition", "AbsoluteMove needs a Position"), false;
  if (pt && (!check_space(pt, kPosPanTilt, fault) || !read_number(pt, "x", -1, 1, &x, fault) ||
             !read_number(pt, "y", -1, 1, &y, fault))) {
    return false;
  }
  if (zoom && (!check_space(zoom, kPosZoom, fault) || !read_number(zoom, "x", 0, 1, &z, fault))) return false;
  if (!head_takes_moves(head_, fault) || !apply_speed(child_any(call.req.operation, "Speed"), fault)) return false;
  std::string text = "abs:" + std::to_string(pt ? pan_to_steps(x) : -1) + "," +
                     std::to_string(pt ? tilt_to_steps(y) : -1) + "," + std::to_string(zoom ? zoom_to_lens(z) : -1);
  if (!command(text, zoom, fault)) return false;
  *out = "<tptz:AbsoluteMoveResponse/>";
  return true;
}

bool Service::relative_move(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  pugi::xml_node tr = child_any(call.req.operation, "Translation");
  pugi::xml_node pt = child_any(tr, "PanTilt"), zoom = child_any(tr, "Zoom");
  double x = 0, y = 0, z = 0;
  if (pt && (!read_number(pt, "x", -1, 1, &x, fault) || !read_number(pt, "y", -1, 1, &y, fault))) return false;
  if (zoom && (!check_space(zoom, kTransZoom, fault) || !read_number(zoom, "x", -1, 1, &z, fault))) return false;
  std::string_view space = pt && pt.attribute("space") ? std::string_view(pt.attribute("space").value()) : kTransPanTilt;
  if (space != kTransPanTilt && space != kTransFov) {
    return *fault = bad_arg("ter:SpaceNotSupported", "space " + std::string(space) + " is not accepted here"), false;
  }
  if (space == kTransFov && z != 0) {
    *fault = bad_arg("ter:InvalidTranslation", "a zoom with a move in TranslationSpaceFov: send the zoom apart");
    return false;
  }
  if (!head_takes_moves(head_, fault) || !apply_speed(child_any(call.req.operation, "Speed"), fault)) return false;
  std::string text;
  if (space == kTransFov) {
    // The same geometry as a click on the picture: the point (x, y) of the picture comes to its centre.
    text = "view:" + std::to_string(fov_to_picture_x(x)) + "," + std::to_string(fov_to_picture_y(y));
  } else if (z == 0) {
    text = "relative:" + std::to_string(pan_offset_steps(x)) + "," + std::to_string(tilt_offset_steps(y));
  } else {
    // With a zoom, one absolute move: two commands in a row could be taken as one.
    HeadReading r = head_.read(Clock::now());
    int pan = ((r.pan + pan_offset_steps(x)) % kTurnSteps + kTurnSteps) % kTurnSteps;
    int tilt = std::clamp(r.tilt + tilt_offset_steps(y), 0, kTiltDownSteps);
    int lens = std::clamp(r.zoom + zoom_to_lens(z), 0, kZoomMax);
    text = "abs:" + std::to_string(pan) + "," + std::to_string(tilt) + "," + std::to_string(lens);
  }
  if (!command(text, z != 0, fault)) return false;
  *out = "<tptz:RelativeMoveResponse/>";
  return true;
}

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
  std::string token = text_of(child_any(call.req.operation, "PresetToken"));
  std::map<int, std::string> records;
  int id = -1;
  if (!read_presets(&records, fault)) return false;
  if (!token_number(token, 0, kHomePreset - 1, &id) || records.count(id) == 0) {
    return *fault = bad_arg("ter:NoToken", "no preset \"" + token + "\""), false;
  }
  if (!command("clr_preset:" + std::to_string(id), false, fault)) return false;
  if (!wait_presets(id, false)) return *fault = bus_fault("the preset list did not change"), false;
  *out = "<tptz:RemovePresetResponse/>";
  return true;
}

bool Service::goto_preset(const Call& call, std::string* out, Fault* fault) {
  if (!check_profile(call, fault)) return false;
  std::string token = text_of(child_any(call.req.operation, "PresetToken"));
  std::map<int, std::string> records;
  int id = -1;
  if (!read_presets(&records, fault)) return false;
  if (!token_number(token, 0, kHomePreset - 1, &id) || records.count(id) == 0) {
    return *fault = bad_arg("ter:NoToken", "no preset \"" + token + "\""), false;
  }
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
