// What the head is doing, as slewonvif follows it on the bus: the position,
// the zoom, ptz.status, and whether a move is over (its position final).
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>

namespace onvif {

using Clock = std::chrono::steady_clock;

// One reading of the head for GetStatus.
struct HeadReading {
  bool up = false;           // a slewd answers on the bus
  int pan = 0, tilt = 4915;  // steps (a camera that never moved stands at pan 0, the horizon)
  int zoom = 0;              // lens position
  int status = 0;            // ptz.status
  bool pan_tilt_moving = false;
  bool zoom_moving = false;
  std::string error;         // why moves are refused now; empty when they are not
};

// Follows the bus writes that tell where the head is. Fed by the bus watch
// (on_change, on_link) and by slewonvif's own commands (note_command).
class HeadState {
 public:
  // A move is over once ptz.status says at rest and neither a status nor a
  // position write has come for this long: the daemon writes status 0
  // before the move's last position, and positions every 100 ms.
  static constexpr std::chrono::milliseconds kQuiet{250};

  void on_change(const std::string& key, const std::string& value, Clock::time_point now);
  void on_link(bool up, const std::map<std::string, std::string>& keys, Clock::time_point now);
  // A move command was just written: count as moving until the head answers.
  void note_command(bool zoom, Clock::time_point now);
  HeadReading read(Clock::time_point now) const;

 private:
  mutable std::mutex mutex_;
  HeadReading last_;
  Clock::time_point pan_tilt_event_{};  // last status or position write, or our command
  Clock::time_point zoom_event_{};      // last lens position write, or our zoom command
};

}  // namespace onvif
