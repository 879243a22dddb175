// slewsim: runs scenario files against slewd on the simulated camera, in
// virtual time. See docs/scenarios.md.
#include <cstdio>

#include "runner/run.h"
#include "slewd/slewd.h"

int main(int argc, char** argv) { return sim::slewsim_main(argc, argv, slewd_main, stdout, stderr); }
