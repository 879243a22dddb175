// slewctl: gets, sets, lists and watches keys on the bus of a running slewd,
// and runs commands. The state folder (and so the socket) is $SLEWD_STATE,
// else $HOME/.local/state/slewd, as for slewd.
#include <cstdio>
#include <string>

#include "bus/bus_client.h"
#include "bus/bus_protocol.h"

int main(int argc, char** argv) {
  std::string state, error;
  if (!sim::state_folder(&state, &error)) {
    fprintf(stderr, "slewctl: %s\n", error.c_str());
    return sim::kCtlNoDaemon;
  }
  return sim::slewctl_run(state, argc, argv, stdout, stderr);
}
