// slewctl: gets, sets, lists and watches keys on the bus of a running slewd,
// and runs commands. The state folder (and so the socket) is $SLEWD_STATE,
// else $HOME/.local/state/slewd, as for slewd. `slewctl preview` hands over
// to slewsim, which holds the daemon to run the preview with.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bus/bus_client.h"
#include "bus/bus_protocol.h"
#include "bus_link.h"

namespace {

// slewctl preview [--hours H] [--plot FILE.svg]: slewsim --preview STATE ...
int preview(const std::string& state, int argc, char** argv) {
  std::string program = buslink::sibling_program("slewsim");
  std::vector<const char*> args{"slewsim", "--preview", state.c_str()};
  for (int i = 2; i < argc; ++i) args.push_back(argv[i]);
  args.push_back(nullptr);
  execvp(program.c_str(), const_cast<char* const*>(args.data()));
  fprintf(stderr, "slewctl: cannot run %s: %s\n", program.c_str(), strerror(errno));
  return sim::kCtlUsage;
}

}  // namespace

int main(int argc, char** argv) {
  std::string state;
  if (!buslink::tool_state_folder("slewctl", &state)) return sim::kCtlNoDaemon;
  if (argc >= 2 && strcmp(argv[1], "preview") == 0) return preview(state, argc, argv);
  return sim::slewctl_run(state, argc, argv, stdout, stderr);
}
