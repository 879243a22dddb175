// The PTZ service: the node and its spaces, status and moves, each turned
// into bus commands (docs/onvif.md); presets and tours are in preset_ops.cpp.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "ptz_common.h"
#include "service.h"
#include "spaces.h"

namespace onvif {
namespace ptz {

// A number as xs:float text, without a negative zero.
std::string num(double v) {
  char text[32];
  snprintf(text, sizeof text, "%.6f", v + 0.0);
  std::string t = text;
  if (t == "-0.000000") t = "0.000000";
  return t;
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

}  // namespace ptz

using namespace ptz;

namespace {

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
bool ptz::head_takes_moves(const HeadState& head, Fault* fault) {
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

}  // namespace onvif
