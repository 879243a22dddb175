// slewctl: the bus client of a running slewd.
#pragma once

#include <cstdio>
#include <string>

namespace sim {

// Exit statuses of slewctl.
enum SlewctlStatus {
  kCtlOk = 0,        // done
  kCtlNoValue = 1,   // get: the key holds no value
  kCtlUsage = 2,     // bad command line
  kCtlNoDaemon = 3,  // no slewd answers on the state folder, or it went away
  kCtlRefused = 4,   // bad key, value over 127 characters, or refused by slewd
  kCtlTimeout = 5,   // no answer in time, or run --wait saw no arrival in time
};

// The help text of slewctl.
extern const char* const kSlewctlHelp;

// Runs slewctl's command line (argv[0] is the program) against the slewd of
// the state folder, printing results on out and one-line errors on err.
int slewctl_run(const std::string& state, int argc, char** argv, FILE* out, FILE* err);

}  // namespace sim
