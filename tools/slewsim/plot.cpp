// The plot: a gnuplot script with the data inline, run by gnuplot. The
// curves are thinned to an envelope per column of the picture, so a week
// of positions plots as fast as a minute.
#include "plot.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

extern char** environ;

namespace slewsim {

namespace {

constexpr int kColumns = 1600;  // envelope bins across the time axis

// The x value of second t of the transcript.
double x_of(const PlotAxis& axis, double t) { return axis.wall_start >= 0 ? axis.wall_start + t : t; }

// Escapes a text for a double-quoted gnuplot string.
std::string quoted(const std::string& text) {
  std::string q = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') q += '\\';
    q += (c == '\n' ? ' ' : c);
  }
  return q + "\"";
}

// A series as a datablock, thinned to the lowest and highest value of each
// bin in time order, and held until the next sample (a step curve).
void write_series(std::ostream& s, const char* name, const std::vector<Sample>& samples,
                  const PlotAxis& axis, double end) {
  s << "$" << name << " << EOD\n";
  double width = end > 0 ? end / kColumns : 1;
  size_t i = 0;
  while (i < samples.size()) {
    long bin = static_cast<long>(samples[i].t / width);
    size_t lo = i, hi = i, last = i;
    for (; i < samples.size() && static_cast<long>(samples[i].t / width) == bin; ++i) {
      if (samples[i].value < samples[lo].value) lo = i;
      if (samples[i].value > samples[hi].value) hi = i;
      last = i;
    }
    std::set<size_t> keep{lo, hi, last};
    for (size_t k : keep) s << x_of(axis, samples[k].t) << " " << samples[k].value << "\n";
  }
  if (!samples.empty()) s << x_of(axis, end) << " " << samples.back().value << "\n";
  s << "EOD\n";
}

// The bands of one key as one datablock per distinct text (for the key of
// the plot): x centre, half width; returns the texts in order.
std::vector<std::string> write_bands(std::ostream& s, const char* name, const std::vector<Band>& bands,
                                     const PlotAxis& axis) {
  std::vector<std::string> texts;
  for (const Band& b : bands) {
    if (std::find(texts.begin(), texts.end(), b.text) == texts.end()) texts.push_back(b.text);
  }
  for (size_t i = 0; i < texts.size(); ++i) {
    s << "$" << name << i << " << EOD\n";
    for (const Band& b : bands) {
      if (b.text != texts[i]) continue;
      double from = x_of(axis, b.from), to = x_of(axis, b.to);
      s << (from + to) / 2 << " " << (to - from) / 2 << "\n";
    }
    s << "EOD\n";
  }
  return texts;
}

// The gnuplot script of the whole plot.
std::string script(const Timeline& tl, const PlotAxis& axis, const std::string& svg_path) {
  std::ostringstream s;
  s.precision(12);
  double end = std::max({tl.end, axis.end, 1.0});
  write_series(s, "pan", tl.pan, axis, end);
  write_series(s, "tilt", tl.tilt, axis, end);
  write_series(s, "zoom", tl.zoom, axis, end);
  std::vector<std::string> modes = write_bands(s, "mode", tl.mode, axis);
  std::vector<std::string> statuses = write_bands(s, "status", tl.status, axis);
  s << "set terminal svg size 1400,800 dynamic noenhanced background rgb 'white' font 'sans,11'\n"
    << "set output " << quoted(svg_path) << "\n"
    << "set multiplot title " << quoted(axis.title) << "\n"
    << "set lmargin 12\nset rmargin 26\n"
    << "set xrange [" << x_of(axis, 0) << ":" << x_of(axis, end) << "]\n";
  if (axis.wall_start >= 0) {
    s << "set xdata time\nset timefmt '%s'\nset format x '%a %H:%M'\n";
  } else {
    s << "set xlabel 'seconds'\n";
  }
  // Top: the position and the changes of mode.
  s << "set origin 0,0.3\nset size 1,0.65\nset grid\nset key outside right top\n"
    << "set ylabel 'degrees'\nset y2label 'zoom, % of the range'\nset y2range [0:100]\nset ytics nomirror\n"
    << "set y2tics\n";
  int n = 0;
  for (const ModeChange& c : tl.changes) {
    double x = x_of(axis, c.t);
    std::string label = c.mode + (c.target.empty() ? "" : " " + c.target) + " (" + c.why + ")";
    ++n;
    s << "set arrow " << n << " from " << x << ", graph 0 to " << x
      << ", graph 1 nohead dt 2 lc rgb '#555555'\n"
      << "set label " << n << " " << quoted(label) << " at " << x << ", graph 0.98 rotate by 90 right"
      << " offset 1,0 font ',9'\n";
  }
  // Only the curves with data: gnuplot warns of an empty one.
  std::string curves;
  if (!tl.pan.empty()) curves += ", $pan using 1:2 with steps lw 2 title 'pan'";
  if (!tl.tilt.empty()) curves += ", $tilt using 1:2 with steps lw 2 title 'tilt'";
  if (!tl.zoom.empty()) curves += ", $zoom using 1:2 axes x1y2 with steps lw 2 title 'zoom'";
  s << "plot " << (curves.empty() ? "NaN notitle" : curves.substr(2)) << "\n"
    << "unset arrow\nunset label\nunset y2tics\nunset y2label\nunset ylabel\nunset grid\n";
  // Bottom: the bands, mode above status.
  s << "set origin 0,0\nset size 1,0.3\nset yrange [-0.6:1.6]\nset ytics ('status' 0, 'mode' 1)\n"
    << "set style fill solid 0.8 noborder\nset key outside right top maxrows 12\nplot ";
  bool first = true;
  auto bands = [&](const char* name, const std::vector<std::string>& texts, int row, const char* what) {
    for (size_t i = 0; i < texts.size(); ++i) {
      s << (first ? "" : ", ") << "$" << name << i << " using 1:(" << row << "):2:(0.4) with boxxyerror title "
        << quoted(std::string(what) + " " + texts[i]);
      first = false;
    }
  };
  bands("mode", modes, 1, "mode");
  bands("status", statuses, 0, "status");
  if (first) s << "NaN notitle";
  s << "\nunset multiplot\n";
  return s.str();
}

// Runs gnuplot on a script file; "" or what went wrong.
std::string run_gnuplot(const std::string& script_path) {
  pid_t pid = 0;
  char* argv[] = {const_cast<char*>("gnuplot"), const_cast<char*>(script_path.c_str()), nullptr};
  int rc = posix_spawnp(&pid, "gnuplot", nullptr, nullptr, argv, environ);
  if (rc != 0) return std::string("cannot run gnuplot (install the gnuplot-nox package): ") + strerror(rc);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return "gnuplot failed on " + script_path;
  return "";
}

}  // namespace

bool write_plot(const Timeline& timeline, const PlotAxis& axis, const std::string& svg_path,
                std::string* error) {
  std::string script_path = svg_path + ".gp";
  {
    std::ofstream out(script_path);
    out << script(timeline, axis, svg_path);
    if (!out) {
      *error = script_path + ": cannot write";
      return false;
    }
  }
  *error = run_gnuplot(script_path);
  if (error->empty()) unlink(script_path.c_str());
  return error->empty();
}

}  // namespace slewsim
