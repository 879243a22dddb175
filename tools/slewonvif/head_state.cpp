// The head's position and motion, followed from bus writes.
#include "head_state.h"

#include <cstdlib>

namespace onvif {
namespace {

// An integer from a bus value (an empty or bad text is 0, as the daemon reads it).
int number(const std::string& value) { return static_cast<int>(std::strtol(value.c_str(), nullptr, 10)); }

// Why a head in this ptz.status refuses moves, or empty.
std::string refusal(int status) {
  switch (status % 10) {
    case 2: return "the head is initialising";
    case 3: return "the head runs its speed-dry exercise";
    case 5: return "the head runs its stabiliser test";
    default: return "";
  }
}

}  // namespace

void HeadState::on_change(const std::string& key, const std::string& value, Clock::time_point now) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (key == "ptz.pan_pos") {
    last_.pan = number(value);
    pan_tilt_event_ = now;
  } else if (key == "ptz.tilt_pos") {
    last_.tilt = number(value);
    pan_tilt_event_ = now;
  } else if (key == "ptz.status") {
    last_.status = number(value);
    pan_tilt_event_ = now;
  } else if (key == "ptz.lens.get_pos.zoom") {
    last_.zoom = number(value);
    zoom_event_ = now;
  } else if (key == "ptz.lens.manual.zoom" || key == "ptz.lens.set_pos.zoom") {
    zoom_event_ = now;
  }
}

void HeadState::on_link(bool up, const std::map<std::string, std::string>& keys, Clock::time_point now) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    last_.up = up;
  }
  for (const char* key : {"ptz.pan_pos", "ptz.tilt_pos", "ptz.status", "ptz.lens.get_pos.zoom"}) {
    auto it = keys.find(key);
    if (it != keys.end()) on_change(it->first, it->second, now - kQuiet);
  }
}

void HeadState::note_command(bool zoom, Clock::time_point now) {
  std::lock_guard<std::mutex> lock(mutex_);
  pan_tilt_event_ = now;
  if (zoom) zoom_event_ = now;
}

HeadReading HeadState::read(Clock::time_point now) const {
  std::lock_guard<std::mutex> lock(mutex_);
  HeadReading r = last_;
  r.pan_tilt_moving = r.status % 10 != 0 || now - pan_tilt_event_ < kQuiet;
  r.zoom_moving = now - zoom_event_ < kQuiet;  // the lens publishes every 100 ms while it runs
  r.error = refusal(r.status);
  return r;
}

}  // namespace onvif
