// View move. Until the geometry lands, a view move asks for nothing.
#include "motion/view_move.h"

int32_t RunViewMove(int32_t*, int32_t*) { return -1; }
