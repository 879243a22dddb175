// Patrols. Until the tour itself lands, a patrol holds the head still in
// its mode and hands over as soon as another mode is asked for.
#include "tours/patrol.h"

int32_t giPatrolPreset = 0;

void LoadPatrol() {}

int32_t RunPatrol(int32_t newMode, int32_t) { return newMode; }
