// slewd on the simulated camera, in real time. The state folder is
// $SLEWD_STATE, else $HOME/.local/state/slewd (see docs/realtime.md).
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bus_protocol.h"
#include "core.h"
#include "realtime.h"
#include "slewd/slewd.h"

int main(int argc, char** argv) {
  std::string state, error;
  if (!sim::state_folder(&state, &error) || sim::realtime_start(state, &error) != 0) {
    fprintf(stderr, "slewd: %s\n", error.c_str());
    return 1;
  }
  // An exit from inside the daemon (a signal) leaves the threads running.
  atexit(sim::realtime_freeze);
  int status = slewd_main(argc, argv);
  sim::trace(sim::Kind::Exit, "%d", status);
  sim::realtime_stop();
  return status;
}
