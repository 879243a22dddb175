// slewsim: runs scenario files (or a soak) against slewd on the simulated
// camera, in virtual time; previews the next hours of a state folder; plots
// either. See docs/scenarios.md, docs/reliability.md and docs/preview.md.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "control/control.h"
#include "plot.h"
#include "preview.h"
#include "runner/run.h"
#include "slewd/loop.h"
#include "slewd/slewd.h"
#include "timeline.h"

namespace {

// The soak's looks inside the daemon: the health count changes on every
// tick (it goes back to 0 in a health pass), and the two run modes.
int32_t LoopTickProbe() { return gLoop.iHealthTick; }
int32_t RunModeProbe() { return giRunMode; }
int32_t NewModeProbe() { return giNewMode; }

const sim::DaemonProbes kProbes = {LoopTickProbe, RunModeProbe, NewModeProbe};

const char* const kPreviewUsage =
    "usage: slewsim --preview STATE_DIR [--hours H] [--from 'YYYY-MM-DD HH:MM:SS'] [--plot FILE.svg]\n"
    "                [--transcript FILE]";

// The value of option name in args (removed from them with the option), or
// "" when absent; false when the option has no value.
bool take_option(std::vector<std::string>* args, const char* name, std::string* value) {
  for (size_t i = 1; i < args->size(); ++i) {
    if ((*args)[i] != name) continue;
    if (i + 1 >= args->size() || (*args)[i + 1].empty()) return false;
    *value = (*args)[i + 1];
    args->erase(args->begin() + static_cast<long>(i), args->begin() + static_cast<long>(i) + 2);
    return true;
  }
  return true;
}

// slewsim --preview: every option read here.
int preview_main(std::vector<std::string> args) {
  slewsim::PreviewRequest request;
  std::string hours;
  if (!take_option(&args, "--preview", &request.state) || !take_option(&args, "--hours", &hours) ||
      !take_option(&args, "--plot", &request.plot) || !take_option(&args, "--transcript", &request.transcript) ||
      !take_option(&args, "--from", &request.from) || args.size() != 1) {
    fprintf(stderr, "slewsim: --preview takes a state folder and only --hours, --from, --plot, --transcript\n%s\n",
            kPreviewUsage);
    return 2;
  }
  if (!hours.empty()) {
    char* end = nullptr;
    request.hours = strtod(hours.c_str(), &end);
    if (*end || !(request.hours > 0 && request.hours <= 168)) {
      fprintf(stderr, "slewsim: bad --hours value '%s': more than 0, at most 168\n", hours.c_str());
      return 2;
    }
  }
  return slewsim::run_preview(request, slewd_main, stdout, stderr);
}

// Runs scenarios or a soak as the runner does.
int runner_main(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  return sim::slewsim_main(static_cast<int>(args.size()), argv.data(), slewd_main, stdout, stderr, &kProbes);
}

// A run with --plot: the run keeps a transcript (a scratch one unless asked
// for), then the plot is drawn from it, whether the run passed or not.
int plot_main(std::vector<std::string> args, const std::string& svg) {
  std::string transcript, scratch, title;
  take_option(&args, "--transcript", &transcript);
  for (size_t i = 1; i < args.size(); ++i) title += (title.empty() ? "" : " ") + args[i];
  if (transcript.empty()) {
    scratch = svg + ".transcript";
    transcript = scratch;
  }
  args.push_back("--transcript");
  args.push_back(transcript);
  int status = runner_main(args);
  if (status == 2) return status;
  slewsim::Timeline timeline;
  std::string error;
  bool ok = slewsim::read_timeline(transcript, {}, &timeline, &error) &&
            slewsim::write_plot(timeline, {-1, "slewsim " + title, 0}, svg, &error);
  if (!scratch.empty()) unlink(scratch.c_str());
  if (!ok) {
    fprintf(stderr, "slewsim: %s\n", error.c_str());
    return 1;
  }
  printf("plot: %s\n", svg.c_str());
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv, argv + argc);
  for (const std::string& a : args) {
    if (a == "-h" || a == "--help") return runner_main(args);
    if (a == "--preview") return preview_main(args);
  }
  std::string svg;
  if (!take_option(&args, "--plot", &svg)) {
    fprintf(stderr, "slewsim: --plot needs a file\n");
    return 2;
  }
  return svg.empty() ? runner_main(args) : plot_main(args, svg);
}
