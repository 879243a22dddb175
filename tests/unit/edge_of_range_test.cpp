// Values at the 32-bit edges, each found by a long random run: the negation
// of INT32_MIN behind mirror and flip, and the tick counters of a head that
// rests for longer than 2^31 ticks (about 248 days).
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>

#include "control/control.h"
#include "control/publish.h"
#include "control/run_mode.h"
#include "daemon_fixture.h"
#include "slewd/loop.h"

namespace {

class EdgeOfRange : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    giRunMode = kModeIdle;
    giNewMode = kModeIdle;
    giMaxSpeed = 720;
    giManualPanSpeed = 90;
    giManualTiltSpeed = 90;
    giManualProportion = 0;
  }
  void TearDown() override {
    giImageMirror = 0;
    giImageFlip = 0;
  }
};

// The inputs of the soak's finding: a pan (or tilt) that saturates to
// INT32_MIN, negated by mirror (or flip). The speed still ends within the
// manual limit of 900, whatever the wrap made of it.
TEST_F(EdgeOfRange, MirrorAndFlipOfTheSmallestNumberStayWithinTheManualLimit) {
  const char* const kInputs[] = {"-2147483648,-2147483648,0", "-99999999999,-99999999999,0",
                                 "-2147483647,-2147483647,0"};
  giImageMirror = 1;
  giImageFlip = 1;
  for (const char* input : kInputs) {
    SCOPED_TRACE(input);
    ComputeManualSpeeds(input);
    EXPECT_LE(abs(giManualPan.load()), 900);
    EXPECT_NE(giManualPan.load(), 0);
    EXPECT_LE(abs(giManualTilt.load()), 900);
    EXPECT_NE(giManualTilt.load(), 0);
  }
  char command[] = "manual:-2147483648,-2147483648,0";
  OnRunMode(command, command);  // the whole command, as the bus delivers it
  EXPECT_EQ(giNewMode.load(), kModeManual);
  EXPECT_LE(abs(giManualPan.load()), 900);
}

// An idle head near the end of the counter's range: it stops at INT32_MAX,
// and the holding gains, set once at tick 300, are not set again.
TEST_F(EdgeOfRange, IdleTickCountStopsAtItsLimitAfterYearsOfRest) {
  giRecoverDeadline = -1;
  giScheduleDeadline = -1;
  gLoop.iIdleTick = INT32_MAX - 3;
  for (int i = 0; i < 10; i++) LoopTick(&gLoop);
  EXPECT_EQ(gLoop.iIdleTick, INT32_MAX);
  EXPECT_EQ(Count("Set_stop_PID"), 0);
  giNewMode = kModeManual;  // a moving branch starts the count again
  giManualPan = 100;
  LoopTick(&gLoop);
  LoopTick(&gLoop);
  EXPECT_LT(gLoop.iIdleTick, 300);
  giNewMode = kModeIdle;
  for (int i = 0; i < 5; i++) LoopTick(&gLoop);
}

// The publication count runs on while nothing moves; after years at its
// limit the next change still goes out at once, and the pace starts over.
TEST_F(EdgeOfRange, PositionCountStopsAtItsLimitAndTheNextChangeGoesOut) {
  giPosTick = INT32_MAX - 3;
  for (int i = 0; i < 10; i++) UpdatePosition();
  EXPECT_EQ(giPosTick, INT32_MAX);
  sim::bus_write(sim::Origin::External, "sim.pan.pos", "1234");
  Mark();
  UpdatePosition();
  EXPECT_EQ(Count("Pos:P->1234"), 1);
  EXPECT_EQ(giPosTick, 0);
}

}  // namespace
