// Plots of a timeline, drawn by gnuplot: pan, tilt and zoom against time,
// the run mode and ptz.status as bands, the changes of mode marked.
#pragma once

#include <string>

#include "timeline.h"

namespace slewsim {

struct PlotAxis {
  // Local wall-clock time of the transcript's second 0, as seconds of the
  // epoch in local time (the axis shows day and time); negative: the axis
  // shows seconds since the start.
  double wall_start = -1;
  std::string title;
  double end = 0;  // seconds the axis spans at least (a run that ended quietly)
};

// Writes the plot of timeline to svg_path. False with a one-line reason
// (gnuplot missing or failing, a path that cannot be written).
bool write_plot(const Timeline& timeline, const PlotAxis& axis, const std::string& svg_path,
                std::string* error);

}  // namespace slewsim
