// The slewsim command line: options, then every scenario parsed before any
// of them runs.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "runner/run.h"
#include "runner/soak.h"

namespace sim {

namespace {

const char* const kUsage =
    "usage: slewsim [--transcript FILE] [--keep DIR] [-v] SCENARIO...\n"
    "       slewsim --soak SEED [--hours H] [--transcript FILE] [-v]";
const char* const kHelp =
    "usage: slewsim [--transcript FILE] [--keep DIR] [-v] [--plot FILE.svg] SCENARIO...\n"
    "       slewsim --soak SEED [--hours H] [--transcript FILE] [-v] [--plot FILE.svg]\n"
    "       slewsim --preview STATE_DIR [--hours H] [--from TIME] [--plot FILE.svg]\n"
    "               [--transcript FILE]\n"
    "Runs scenario files against slewd on the simulated camera, in virtual time.\n"
    "  --transcript FILE  write everything the daemon did (one scenario only)\n"
    "  --keep DIR         keep the camera's files and bus in DIR\n"
    "  -v                 add the getter calls to the transcript\n"
    "  --soak SEED        random commands, settings and faults from SEED, with\n"
    "                     invariants checked all the time (docs/reliability.md)\n"
    "  --hours H          virtual hours of the soak (default 1) or the preview\n"
    "                     (default 24), at most 168\n"
    "  --plot FILE.svg    draw pan, tilt, zoom, run mode and status against time\n"
    "  --preview DIR      what the head of state folder DIR will do in the next\n"
    "                     hours, from a copy of its bus (docs/preview.md)\n"
    "  --from TIME        the preview's local start, 'YYYY-MM-DD HH:MM:SS' (now)\n"
    "  -h, --help         this text\n"
    "Exit: 0 every scenario passed, 1 one failed, 2 bad command line or scenario.\n"
    "See docs/scenarios.md and `man slewsim`.\n";

// Whether the command line asks for help.
bool wants_help(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (!strcmp(argv[i], "-h") || !strcmp(argv[i], "--help")) return true;
  }
  return false;
}

// The soak asked for on the command line.
struct SoakRequest {
  bool on = false;
  uint64_t seed = 0;
  double hours = 1;
};

// Reads a whole decimal number into out; false for anything else.
bool read_seed(const char* text, uint64_t& out) {
  char* end = nullptr;
  errno = 0;
  unsigned long long n = strtoull(text, &end, 10);
  if (!*text || *end || errno || text[0] == '-') return false;
  out = n;
  return true;
}

// Reads a number of hours, more than 0 and at most a week.
bool read_hours(const char* text, double& out) {
  char* end = nullptr;
  double h = strtod(text, &end);
  if (!*text || *end || !(h > 0 && h <= 168)) return false;
  out = h;
  return true;
}

// Parses the options into options and files; "" or what is wrong.
std::string parse_options(int argc, char** argv, RunOptions& options, std::vector<std::string>& files,
                          SoakRequest& soak) {
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    if (!strcmp(a, "--soak") || !strcmp(a, "--hours")) {
      if (i + 1 >= argc) return std::string(a) + " needs a number";
      const char* v = argv[++i];
      if (!strcmp(a, "--soak") ? !read_seed(v, soak.seed) : !read_hours(v, soak.hours))
        return std::string("bad ") + a + " value '" + v + "'";
      soak.on |= !strcmp(a, "--soak");
    } else if (!strcmp(a, "--transcript") || !strcmp(a, "--keep")) {
      if (i + 1 >= argc || !argv[i + 1][0]) return std::string(a) + " needs a path";
      (!strcmp(a, "--keep") ? options.keep : options.transcript) = argv[++i];
    } else if (!strcmp(a, "-v")) {
      options.verbose = true;
    } else if (a[0] == '-' && a[1]) {
      return std::string("unknown option ") + a;
    } else {
      files.push_back(a);
    }
  }
  if (soak.on) return files.empty() ? "" : "--soak takes no scenario";
  if (files.empty()) return "no scenario given";
  if (!options.transcript.empty() && files.size() != 1) return "--transcript takes exactly one scenario";
  return "";
}

// Runs the soak in a child like any scenario, with its invariants watched.
int run_soak(const SoakRequest& soak, RunOptions& options, DaemonMain daemon_main,
             const DaemonProbes& probes, FILE* out) {
  SoakCounts counts;
  std::vector<Scenario> plan{soak_plan(soak.seed, soak.hours, &counts)};
  options.watch = soak_watch(probes, counts);
  // A virtual hour takes minutes under the sanitizers; allow ten per hour.
  options.timeout_s = static_cast<int>(300 + soak.hours * 600);
  return run_scenarios(plan, options, daemon_main, out);
}

}  // namespace

int slewsim_main(int argc, char** argv, DaemonMain daemon_main, FILE* out, FILE* err,
                 const DaemonProbes* probes) {
  if (wants_help(argc, argv)) {
    fputs(kHelp, out);
    return 0;
  }
  RunOptions options;
  std::vector<std::string> files;
  SoakRequest soak;
  std::string why = parse_options(argc, argv, options, files, soak);
  if (why.empty() && soak.on && !probes) why = "--soak needs a daemon with probes";
  if (!why.empty()) {
    fprintf(err, "slewsim: %s\n%s\n", why.c_str(), kUsage);
    return 2;
  }
  if (soak.on) return run_soak(soak, options, daemon_main, *probes, out);
  std::vector<Scenario> scenarios(files.size());
  for (size_t i = 0; i < files.size(); ++i) {
    if (!parse_scenario_file(files[i], scenarios[i], why)) {
      fprintf(err, "%s\n", why.c_str());
      return 2;
    }
  }
  return run_scenarios(scenarios, options, daemon_main, out);
}

}  // namespace sim
