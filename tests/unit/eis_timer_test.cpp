// The stabiliser timer at its boundary: the virtual clock stands still
// between sleeps, so the elapsed time can be set to the microsecond.
#include <gtest/gtest.h>

#include "control/control.h"
#include "daemon_fixture.h"
#include "motion/positioning.h"
#include "supervisor/health.h"

namespace {

class EisTimer : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    giEisEnable = 1;
    giEisRtEnable = 0;
  }
  void TearDown() override {
    giEisEnable = 0;
    giEisRtEnable = 1;
  }
  // Puts the last move `us` microseconds before now.
  static void MoveStartedAgo(uint32_t us) {
    giEisRtStart = (int32_t)((uint32_t)MicrosecondStamp() - us);
  }
};

TEST_F(EisTimer, ExactlyTheDelayIsNotYetMoreIs) {
  MoveStartedAgo(1799999);
  EisRtTimer();
  EXPECT_EQ(giEisRtEnable, 0);
  EXPECT_EQ(Count("set encode.cam1.eis.rt_enable"), 0);
  MoveStartedAgo(1800000);
  EisRtTimer();
  EXPECT_EQ(giEisRtEnable, 1);
  EXPECT_EQ(Count("set encode.cam1.eis.rt_enable=on"), 1);
  EXPECT_EQ(Count("out [slewd]======= eis rt on"), 1);
}

TEST_F(EisTimer, StabiliserOffLeavesTheKeyAlone) {
  giEisEnable = 0;
  MoveStartedAgo(100000000);
  EisRtTimer();
  EXPECT_EQ(giEisRtEnable, 0);
  EXPECT_EQ(Count("eis.rt_enable"), 0);
}

}  // namespace
