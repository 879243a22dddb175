// The slewsim command line: options, then every scenario parsed before any
// of them runs.
#include <cstring>

#include "runner/run.h"

namespace sim {

namespace {

const char* const kUsage = "usage: slewsim [--transcript FILE] [--keep DIR] [-v] SCENARIO...";
const char* const kHelp =
    "usage: slewsim [--transcript FILE] [--keep DIR] [-v] SCENARIO...\n"
    "Runs scenario files against slewd on the simulated camera, in virtual time.\n"
    "  --transcript FILE  write everything the daemon did (one scenario only)\n"
    "  --keep DIR         keep the camera's files and bus in DIR\n"
    "  -v                 add the getter calls to the transcript\n"
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

// Parses the options into options and files; "" or what is wrong.
std::string parse_options(int argc, char** argv, RunOptions& options, std::vector<std::string>& files) {
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    if (!strcmp(a, "--transcript") || !strcmp(a, "--keep")) {
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
  if (files.empty()) return "no scenario given";
  if (!options.transcript.empty() && files.size() != 1) return "--transcript takes exactly one scenario";
  return "";
}

}  // namespace

int slewsim_main(int argc, char** argv, DaemonMain daemon_main, FILE* out, FILE* err) {
  if (wants_help(argc, argv)) {
    fputs(kHelp, out);
    return 0;
  }
  RunOptions options;
  std::vector<std::string> files;
  std::string why = parse_options(argc, argv, options, files);
  if (!why.empty()) {
    fprintf(err, "slewsim: %s\n%s\n", why.c_str(), kUsage);
    return 2;
  }
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
