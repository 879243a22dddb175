// The preview: what the head of a state folder will do in the next hours,
// run in virtual time from a copy of its bus, at the present position and
// wall-clock time, without touching the camera it was copied from.
#pragma once

#include <cstdio>
#include <string>

#include "runner/run.h"

namespace slewsim {

struct PreviewRequest {
  std::string state;       // the state folder whose bus is copied
  double hours = 24;       // more than 0, at most a week
  std::string from;        // local start time "YYYY-MM-DD HH:MM:SS", or "" for now
  std::string plot;        // an SVG file to draw, or ""
  std::string transcript;  // keep the run's transcript here, or ""
};

// Runs the preview and prints its table of mode changes on out; one-line
// errors on err. Returns 0, 1 when the run failed, 2 for a state folder
// with nothing to copy.
int run_preview(const PreviewRequest& request, sim::DaemonMain daemon_main, FILE* out, FILE* err);

}  // namespace slewsim
