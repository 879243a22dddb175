// Symbols the program exports for the closed libraries to take by name.
#pragma once

#include <cstdint>

extern "C" {

extern uint32_t PPS_1_2Phase_800[256];
extern uint32_t PPS_2_2Phase[256];
extern uint32_t PPS_1_2Phase[256];
extern uint32_t PPS_512uStepPhase[256];
extern uint32_t PPS_512uStepPhase1320[256];

// 0 when scan `id` has fixed focus, else 1.
int GetFocus(int id);

}
