// Running scenarios: each in a child process of its own, in virtual time,
// against a daemon entry given as a function (the simulator does not link
// the daemon itself).
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "runner/scenario.h"

namespace sim {

using DaemonMain = int (*)(int argc, char** argv);

struct RunOptions {
  std::string transcript;  // write the whole transcript here (one scenario)
  std::string keep;        // keep sandbox files and a bus dump under here
  bool verbose = false;    // getters, kvlink_get and sim writes in the transcript
  int timeout_s = 300;     // real-time limit of one scenario's process
};

// In a child process: sets up the simulated camera in a fresh sandbox, plays
// the scenario around daemon_main, writes "PASS" or "FAIL why" to report_fd
// and ends the process. keep_dir: where to keep the sandbox, or empty.
[[noreturn]] void run_scenario(const Scenario& scenario, const RunOptions& options,
                               DaemonMain daemon_main, const std::string& sandbox,
                               const std::string& keep_dir, int report_fd);

// Runs every scenario in its own process; prints "PASS name" or
// "FAIL name: why" for each and "N passed, M failed" on out. Returns 0 when
// all passed, 1 otherwise.
int run_scenarios(const std::vector<Scenario>& scenarios, const RunOptions& options,
                  DaemonMain daemon_main, FILE* out);

// The slewsim command line: [--transcript FILE] [--keep DIR] [-v] SCENARIO...
// Returns the exit status: 2 for bad usage or a scenario it cannot parse.
int slewsim_main(int argc, char** argv, DaemonMain daemon_main, FILE* out, FILE* err);

}  // namespace sim
