// The preview: the bus of a state folder is copied (asked of its running
// slewd, else read from a copy of its store files), played as a scenario of
// the given hours, and its transcript read back into a table and a plot.
#include "preview.h"

#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>

#include "bus_link.h"
#include "plot.h"
#include "runner/scenario.h"
#include "timeline.h"

namespace slewsim {

namespace {

namespace fs = std::filesystem;
using Bus = std::map<std::string, std::string>;

// Keys of the simulated camera that the preview sets itself.
const char* const kClockKey = "sim.clock";
const char* const kPanKey = "sim.pan.pos";
const char* const kTiltKey = "sim.tilt.pos";

// A scratch folder removed when the preview ends.
struct Scratch {
  std::string path;
  Scratch() {
    std::string pattern = (getenv("TMPDIR") ? getenv("TMPDIR") : "/tmp") + std::string("/slewsim-preview.XXXXXX");
    if (mkdtemp(pattern.data())) path = pattern;
  }
  ~Scratch() {
    std::error_code ignored;
    if (!path.empty()) fs::remove_all(path, ignored);
  }
};

// Every key of a store file, read from copies of the file and its log in
// scratch so that the store itself is never opened.
bool read_store_copy(const std::string& state, const std::string& scratch, Bus* bus, std::string* error) {
  std::string store = state + "/bus.db", copy = scratch + "/bus.db";
  std::error_code ec;
  if (!fs::is_regular_file(store, ec)) {
    *error = "no slewd answers on " + state + " and it holds no bus store (" + store + ")";
    return false;
  }
  fs::copy_file(store, copy, ec);
  if (!ec && fs::exists(store + "-wal")) fs::copy_file(store + "-wal", copy + "-wal", ec);
  if (ec) {
    *error = "cannot copy " + store + ": " + ec.message();
    return false;
  }
  sqlite3* db = nullptr;
  sqlite3_stmt* select = nullptr;
  bool ok = sqlite3_open_v2(copy.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
            sqlite3_prepare_v2(db, "SELECT key, value FROM kv", -1, &select, nullptr) == SQLITE_OK;
  while (ok && sqlite3_step(select) == SQLITE_ROW) {
    (*bus)[reinterpret_cast<const char*>(sqlite3_column_text(select, 0))] =
        reinterpret_cast<const char*>(sqlite3_column_text(select, 1));
  }
  if (!ok) *error = store + " is not a bus store: " + sqlite3_errmsg(db);
  sqlite3_finalize(select);
  sqlite3_close(db);
  return ok;
}

// The bus of the state folder: asked of its slewd when one runs (a list
// changes nothing there), else read from its store. source says which.
bool read_bus(const std::string& state, const std::string& scratch, Bus* bus, std::string* source,
              std::string* error) {
  buslink::BusLink link(state);
  std::string ignored;
  if (link.list("", bus, &ignored) == buslink::BusReply::kOk) {
    *source = "the bus of the running slewd";
    return true;
  }
  bus->clear();
  *source = "the stored bus";
  return read_store_copy(state, scratch, bus, error);
}

// A scenario directive made here rather than parsed.
sim::Directive directive(sim::Op op, const std::string& key, const std::string& text, int64_t ns = 0) {
  sim::Directive d{};
  d.op = op;
  d.source = "preview";
  d.key = key;
  d.text = text;
  d.ns = ns;
  return d;
}

// The scenario of the preview: the copied bus, the clock at local now and
// the head where the bus says it stands, then the hours.
sim::Scenario preview_scenario(const Bus& bus, const std::string& clock, double hours) {
  sim::Scenario s;
  s.path = s.name = "preview";
  for (const auto& [key, value] : bus) {
    if (key != kClockKey && key != kPanKey && key != kTiltKey) s.steps.push_back(directive(sim::Op::Bus, key, value));
  }
  auto position = [&](const char* key) {
    auto it = bus.find(key);
    return it == bus.end() ? std::string("0") : it->second;
  };
  s.steps.push_back(directive(sim::Op::Bus, kClockKey, clock));
  s.steps.push_back(directive(sim::Op::Bus, kPanKey, position("ptz.pan_pos")));
  s.steps.push_back(directive(sim::Op::Bus, kTiltKey, position("ptz.tilt_pos")));
  s.start = s.steps.size();
  s.steps.push_back(directive(sim::Op::Wait, "", "", static_cast<int64_t>(hours * 3600e9)));
  return s;
}

// The local wall-clock start as the knob takes it ("" for a from that is
// not a time), and as seconds of the epoch in local time (for the axis).
std::string start_time(const std::string& from, double* local_epoch) {
  struct tm local = {};
  if (from.empty()) {
    time_t now = time(nullptr);
    localtime_r(&now, &local);
  } else {
    const char* end = strptime(from.c_str(), "%Y-%m-%d %H:%M:%S", &local);
    if (end == nullptr || *end != '\0') return "";
  }
  *local_epoch = static_cast<double>(timegm(&local));
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

// A time of the preview as "Tue 2026-11-24 08:00:00".
std::string wall_text(double local_epoch, double t) {
  time_t when = static_cast<time_t>(local_epoch + t);
  struct tm tm = {};
  gmtime_r(&when, &tm);
  char text[40];
  strftime(text, sizeof text, "%a %Y-%m-%d %H:%M:%S", &tm);
  return text;
}

// Runs the scenario; "" or why it failed.
std::string play(const sim::Scenario& scenario, const std::string& transcript, double hours,
                 sim::DaemonMain daemon_main) {
  sim::RunOptions options;
  options.transcript = transcript;
  options.timeout_s = static_cast<int>(300 + hours * 600);
  char* report = nullptr;
  size_t size = 0;
  FILE* sink = open_memstream(&report, &size);
  int status = sim::run_scenarios({scenario}, options, daemon_main, sink);
  fclose(sink);
  std::string text = report ? report : "";
  free(report);
  return status == 0 ? "" : text.substr(0, text.find('\n'));
}

// The table of mode changes.
void print_table(const Timeline& timeline, double local_epoch, FILE* out) {
  fprintf(out, "%-24s  %-9s  %-16s  %s\n", "when", "mode", "preset or patrol", "why");
  for (const ModeChange& c : timeline.changes) {
    fprintf(out, "%-24s  %-9s  %-16s  %s\n", wall_text(local_epoch, c.t).c_str(), c.mode.c_str(),
            c.target.c_str(), c.why.c_str());
  }
  if (timeline.changes.empty()) fprintf(out, "(no change of mode)\n");
}

}  // namespace

int run_preview(const PreviewRequest& request, sim::DaemonMain daemon_main, FILE* out, FILE* err) {
  Scratch scratch;
  if (scratch.path.empty()) {
    fprintf(err, "slewsim: cannot make a scratch folder\n");
    return 2;
  }
  Bus bus;
  std::string source, error;
  if (!read_bus(request.state, scratch.path, &bus, &source, &error)) {
    fprintf(err, "slewsim: %s\n", error.c_str());
    return 2;
  }
  double local_epoch = 0;
  std::string clock = start_time(request.from, &local_epoch);
  if (clock.empty()) {
    fprintf(err, "slewsim: bad --from value '%s': YYYY-MM-DD HH:MM:SS\n", request.from.c_str());
    return 2;
  }
  std::string transcript = request.transcript.empty() ? scratch.path + "/preview.txt" : request.transcript;
  fprintf(out, "preview of %s (%s) from %s for %g h\n", request.state.c_str(), source.c_str(),
          wall_text(local_epoch, 0).c_str(), request.hours);
  fflush(out);
  error = play(preview_scenario(bus, clock, request.hours), transcript, request.hours, daemon_main);
  if (!error.empty()) {
    fprintf(err, "slewsim: the preview's run failed: %s\n", error.c_str());
    return 1;
  }
  Timeline timeline;
  if (!read_timeline(transcript, preset_names(bus), &timeline, &error)) {
    fprintf(err, "slewsim: %s\n", error.c_str());
    return 1;
  }
  print_table(timeline, local_epoch, out);
  if (request.plot.empty()) return 0;
  PlotAxis axis{local_epoch, "what the head of " + request.state + " will do", request.hours * 3600};
  if (!write_plot(timeline, axis, request.plot, &error)) {
    fprintf(err, "slewsim: %s\n", error.c_str());
    return 1;
  }
  fprintf(out, "plot: %s\n", request.plot.c_str());
  return 0;
}

}  // namespace slewsim
