// The real-time world thread: a library call sees the world as of that
// moment, and the thread sleeps while nothing is due, however often the
// daemon calls. Time passes for real; checks depend only on whether any did.
#include <climits>
#include <mutex>

#include "platform/gimbal.h"
#include "realtime_fixture.h"
#include "world/world.h"

namespace {

class RealtimeWorld : public RealtimeCamera {
 protected:
  void SetUp() override {
    RealtimeCamera::SetUp();
    // Calibration off, so that the head moves at once.
    sim::bus_write(sim::Origin::External, "sim.pan.cali_s", "0");
    sim::bus_write(sim::Origin::External, "sim.tilt.cali_s", "0");
    PanReset();
    TiltReset();
  }
  // Whether the world thread comes to sleep with nothing due.
  static bool AwaitThreadIdle() {
    return Await([] { return sim::world_thread_deadline() == INT64_MAX; }, 10);
  }
};

TEST_F(RealtimeWorld, ACallSeesTheHeadWhereItIsAtThatMoment) {
  ASSERT_EQ(PanContinuousMove(0, 7200), 0);  // 65535 steps a second
  int first = 0, second = 0;
  GetPanPos(&first);
  std::this_thread::sleep_for(std::chrono::milliseconds(2));  // over 100 steps
  GetPanPos(&second);
  EXPECT_NE(first, second);  // a world stepped every 10 ms would mostly repeat
  PanContinuousMove(0, 0);
}

TEST_F(RealtimeWorld, TheThreadSleepsWhileNothingIsDueHoweverOftenTheDaemonCalls) {
  ASSERT_TRUE(AwaitThreadIdle());
  int64_t wakes = sim::world_thread_wakes();
  for (int i = 0; i < 20; i++) {
    int pos = 0;
    GetPanPos(&pos);
    GetPanStatus();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  EXPECT_EQ(sim::world_thread_wakes(), wakes);
  EXPECT_EQ(sim::world_thread_deadline(), INT64_MAX);
}

TEST_F(RealtimeWorld, TheThreadBringsAMoveToItsEndWithNoCall) {
  ASSERT_TRUE(AwaitThreadIdle());
  ASSERT_EQ(TiltABSMove(1, 7200, 200), 0);  // 200 steps: about 3 ms
  // Looked at directly, not through a call that would catch the world up.
  auto arrived = [] {
    std::lock_guard<std::recursive_mutex> lock(sim::big_lock());
    const sim::Axis& tilt = sim::the_world().tilt;
    return tilt.pos == 200 && !sim::axis_moving(tilt);
  };
  EXPECT_TRUE(Await(arrived, 10));
  EXPECT_TRUE(AwaitThreadIdle());
}

}  // namespace
