// slewsim: runs scenario files (or a soak) against slewd on the simulated
// camera, in virtual time. See docs/scenarios.md and docs/reliability.md.
#include <cstdio>

#include "control/control.h"
#include "runner/run.h"
#include "slewd/loop.h"
#include "slewd/slewd.h"

namespace {

// The soak's looks inside the daemon: the health count changes on every
// tick (it goes back to 0 in a health pass), and the two run modes.
int32_t LoopTickProbe() { return gLoop.iHealthTick; }
int32_t RunModeProbe() { return giRunMode; }
int32_t NewModeProbe() { return giNewMode; }

const sim::DaemonProbes kProbes = {LoopTickProbe, RunModeProbe, NewModeProbe};

}  // namespace

int main(int argc, char** argv) {
  return sim::slewsim_main(argc, argv, slewd_main, stdout, stderr, &kProbes);
}
