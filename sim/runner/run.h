// Running scenarios: each in a child process of its own, in virtual time,
// against a daemon entry given as a function (the simulator does not link
// the daemon itself).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "runner/scenario.h"

namespace sim {

using DaemonMain = int (*)(int argc, char** argv);

// What the soak reads of the daemon itself, handed in with its entry.
struct DaemonProbes {
  int32_t (*tick)();      // changes on every tick of the main loop
  int32_t (*run_mode)();  // giRunMode
  int32_t (*new_mode)();  // giNewMode
};

// Checks made all through a run (the soak's invariants). Each returns "" or
// what is wrong, which fails the run at the next step.
struct RunWatch {
  std::string (*on_line)(const char* line);  // every new transcript line
  std::string (*on_step)(int64_t now_ns);    // between virtual steps
  std::string (*summary)();                  // figures added to the PASS line
};

struct RunOptions {
  std::string transcript;  // write the whole transcript here (one scenario)
  std::string keep;        // keep sandbox files and a bus dump under here
  bool verbose = false;    // getters, kvlink_get and sim writes in the transcript
  int timeout_s = 300;     // real-time limit of one scenario's process
  const RunWatch* watch = nullptr;  // invariants checked all the time, or none
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
// or --soak SEED [--hours H] [--transcript FILE] [-v] (needs probes).
// Returns the exit status: 2 for bad usage or a scenario it cannot parse.
int slewsim_main(int argc, char** argv, DaemonMain daemon_main, FILE* out, FILE* err,
                 const DaemonProbes* probes = nullptr);

}  // namespace sim
