// What the PTZ operations share: the spaces' URIs, number and vector
// readers, preset records on the bus, and the faults they give.
#pragma once

#include <pugixml.hpp>

#include <string>
#include <string_view>

#include "head_state.h"
#include "soap.h"

namespace onvif::ptz {

inline constexpr std::string_view kPosPanTilt = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/PositionGenericSpace";
inline constexpr std::string_view kPosZoom = "http://www.onvif.org/ver10/tptz/ZoomSpaces/PositionGenericSpace";
inline constexpr std::string_view kTransPanTilt = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/TranslationGenericSpace";
inline constexpr std::string_view kTransFov = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/TranslationSpaceFov";
inline constexpr std::string_view kTransZoom = "http://www.onvif.org/ver10/tptz/ZoomSpaces/TranslationGenericSpace";
inline constexpr std::string_view kVelPanTilt = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/VelocityGenericSpace";
inline constexpr std::string_view kVelZoom = "http://www.onvif.org/ver10/tptz/ZoomSpaces/VelocityGenericSpace";
inline constexpr std::string_view kSpeedPanTilt = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/GenericSpeedSpace";
inline constexpr std::string_view kSpeedZoom = "http://www.onvif.org/ver10/tptz/ZoomSpaces/ZoomGenericSpeedSpace";
inline constexpr int kPatrols = 8;
inline constexpr int kMaxNameChars = 60;  // what a preset record on the bus leaves room for

// A number as xs:float text, without a negative zero.
std::string num(double v);
// A PTZVector in the generic position space.
std::string position_xml(const char* element, int pan, int tilt, int zoom);
// An argument fault with InvalidArgVal and a detail code.
Fault bad_arg(const char* detail, std::string reason);
// The bus failed us: the fault for it.
Fault bus_fault(const std::string& error);
// Reads attribute name of node as a number within lo..hi.
bool read_number(pugi::xml_node node, const char* name, double lo, double hi, double* v, Fault* fault);
// Checks that a vector's space, when named, is the one expected.
bool check_space(pugi::xml_node node, std::string_view expected, Fault* fault);
// A preset or tour token: a decimal number in lo..hi.
bool token_number(const std::string& text, int lo, int hi, int* n);
// Refuses a move while the head is in a state that does not take one.
bool head_takes_moves(const HeadState& head, Fault* fault);

// The fields of a preset record on the bus.
struct PresetRecord {
  int id = -1, pan = 0, tilt = 0, zoom = 0;
  std::string name;
};
// Parses "id:%d,pan:%d,tilt:%d,zoom:%d,focus:%d,pref:%d,name:%s".
bool parse_record(const std::string& text, PresetRecord* r);

}  // namespace onvif::ptz
