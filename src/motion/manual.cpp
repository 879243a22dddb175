// Manual motion. Until the mover lands, it stops at once: the loop's
// contract is that 0 sends the head back to idle.
#include "motion/manual.h"

#include "control/control.h"

int32_t ManualMove(int32_t) { return kModeIdle; }
