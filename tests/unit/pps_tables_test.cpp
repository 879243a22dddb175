// The exported PPS tables: first and last entries of every run.
#include <gtest/gtest.h>

#include "platform/exports.h"

namespace {

struct RunEnds {
  const uint32_t* table;
  int first, last;
  uint32_t firstValue, lastValue;
};

TEST(PpsTables, RunEndsMatchTheDriverTables) {
  const RunEnds runs[] = {
      {PPS_1_2Phase_800, 0, 0, 1024, 1024},   {PPS_1_2Phase_800, 1, 9, 781, 156},
      {PPS_1_2Phase_800, 10, 127, 4208, 3170}, {PPS_1_2Phase_800, 128, 255, 8718, 7949},
      {PPS_2_2Phase, 0, 39, 781, 20},          {PPS_2_2Phase, 40, 199, 5730, 5245},
      {PPS_2_2Phase, 200, 255, 7666, 7559},    {PPS_1_2Phase, 0, 3, 1296, 324},
      {PPS_1_2Phase, 4, 6, 1542, 1394},        {PPS_1_2Phase, 7, 13, 2696, 2418},
      {PPS_1_2Phase, 14, 33, 3763, 3377},      {PPS_1_2Phase, 34, 56, 4688, 4460},
      {PPS_1_2Phase, 57, 102, 5835, 5522},     {PPS_1_2Phase, 103, 137, 6942, 6745},
      {PPS_1_2Phase, 138, 255, 8362, 7819},    {PPS_512uStepPhase, 0, 2, 5768, 5336},
      {PPS_512uStepPhase, 3, 6, 6468, 6329},   {PPS_512uStepPhase, 7, 15, 7492, 7330},
      {PPS_512uStepPhase, 16, 35, 8497, 8336}, {PPS_512uStepPhase, 36, 50, 9496, 9419},
      {PPS_512uStepPhase, 51, 255, 10639, 10330}, {PPS_512uStepPhase1320, 0, 8, 7091, 6249},
      {PPS_512uStepPhase1320, 9, 36, 8571, 8294}, {PPS_512uStepPhase1320, 37, 255, 10639, 10299},
  };
  for (const RunEnds& run : runs) {
    // Two tables lie up to 1 from the rule inside their runs.
    EXPECT_NEAR(run.table[run.first], run.firstValue, 1) << "index " << run.first;
    EXPECT_NEAR(run.table[run.last], run.lastValue, 1) << "index " << run.last;
  }
}

}  // namespace
