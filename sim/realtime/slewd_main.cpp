// slewd on the simulated camera, in real time. The state folder is
// $SLEWD_STATE, else $HOME/.local/state/slewd (see docs/realtime.md).
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bus/bus_protocol.h"
#include "core/core.h"
#include "realtime/realtime.h"
#include "slewd/slewd.h"

namespace {

const char* const kHelp =
    "usage: slewd [spddry N | pan | tilt | updatep FILE | updatet FILE | test [DELAY] | limit]\n"
    "Runs the daemon of the pan/tilt/zoom head on the simulated camera, in real time.\n"
    "Without a word it runs the daemon; spddry N (0..3) runs it with the speed-dry\n"
    "exercise; the other words are one-shot maintenance commands.\n"
    "State folder: $SLEWD_STATE, else ~/.local/state/slewd (bus store, socket,\n"
    "transcript.log). Talk to it with slewctl; stop it with Ctrl-C or SIGTERM.\n"
    "Standard output is the daemon's own trace.\n"
    "See docs/commands.md, docs/realtime.md and `man slewd`.\n";

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (!strcmp(argv[1], "--help") || !strcmp(argv[1], "-h"))) {
    fputs(kHelp, stdout);
    return 0;
  }
  std::string state, error;
  if (!sim::state_folder(&state, &error) || sim::realtime_start(state, &error) != 0) {
    fprintf(stderr, "slewd: %s\n", error.c_str());
    return 1;
  }
  // Standard output stays the daemon's trace: the one line for a person
  // goes to standard error.
  fprintf(stderr, "slewd: simulated camera in %s, bus socket %s; stop with Ctrl-C or kill %d\n",
          state.c_str(), sim::socket_path(state).c_str(), static_cast<int>(getpid()));
  // An exit from inside the daemon (a signal) leaves the threads running.
  atexit(sim::realtime_freeze);
  int status = slewd_main(argc, argv);
  sim::trace(sim::Kind::Exit, "%d", status);
  sim::realtime_stop();
  return status;
}
