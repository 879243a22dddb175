// The view-move geometry against its worked values: lens type 0 without
// sensor keys, focal length 10 mm, head at pan and tilt 10000.
#include <gtest/gtest.h>

#include "control/control.h"
#include "daemon_fixture.h"
#include "motion/view_move.h"
#include "platform/camstate.h"
#include "platform/kvlink.h"
#include "slewd/startup.h"

namespace {

class ViewMove : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    kvlink_set("sim.lens_type", "0");
    kvlink_set("sim.focal_mm", "10");
    kvlink_set("ptz.dzoom.factor", "");
    gfSensorH = gfSensorW = 0.0f;
    giImageMirror = giImageFlip = giEisEnable = 0;
    gfEisFov = 0.0;
    PutPan(10000);
    PutTilt(10000);
  }
  void TearDown() override {
    kvlink_set("sim.focal_mm", "0");
    kvlink_set("sim.lens_type", "1");
    kvlink_set("ptz.dzoom.factor", "");
    giImageMirror = giImageFlip = giEisEnable = 0;
  }
  // Offsets of the picture point (pan, tilt).
  std::pair<int32_t, int32_t> Offsets(int32_t moveW, int32_t moveH) {
    int32_t pan = 12345, tilt = 12345;
    ComputeViewMove(moveW, moveH, &pan, &tilt);
    return {pan, tilt};
  }
  using P = std::pair<int32_t, int32_t>;
};

TEST_F(ViewMove, FourPointsOfThePicture) {
  EXPECT_EQ(Offsets(5000, 5000), P(0, 0));
  EXPECT_EQ(Count("SensorAngleH:12.298071 SensorAngleW:21.181350"), 1);
  EXPECT_EQ(Offsets(7500, 5000), P(-2252, -101));
  EXPECT_EQ(Offsets(5000, 7500), P(0, 1132));
  EXPECT_EQ(Offsets(7500, 2500), P(-2133, -1208));
  EXPECT_EQ(Count("Step Tile:8792/10000 -1208 Step Pan:7867/10000 -2133"), 1);
}

TEST_F(ViewMove, StabiliserAndDigitalZoomNarrowTheField) {
  giEisEnable = 1;
  gfEisFov = 0.05;  // below 0.1: the factor is sqrt(0.75), not 1
  EXPECT_EQ(Offsets(7500, 5000), P(-1935, -75));
  giEisEnable = 0;
  gfEisFov = 0.5;  // EIS off: the field of view has no effect
  EXPECT_EQ(Offsets(7500, 5000), P(-2252, -101));
  kvlink_set("ptz.dzoom.factor", "4.0");
  EXPECT_EQ(Offsets(7500, 5000), P(-830, -14));
  for (const char* none : {"", "0", "1", "x"}) {
    kvlink_set("ptz.dzoom.factor", none);
    EXPECT_EQ(Offsets(7500, 5000), P(-2252, -101)) << "factor '" << none << "'";
  }
}

TEST_F(ViewMove, MirrorAndFlipTurnThePicture) {
  giImageMirror = giImageFlip = 1;
  EXPECT_EQ(Offsets(7500, 2500), P(2385, 1005));
}

TEST_F(ViewMove, LensTableGivesHalfTheFullAngles) {
  gfBaseFocalLength = 4.5f;
  gfMaxFocalLength = 135.0f;
  double h = 0.0, w = 0.0;
  SensorHalfAngles(7, 4.5, &h, &w);
  EXPECT_NEAR(w, 30.2, 1e-5);
  EXPECT_NEAR(h, 17.95, 1e-5);
  SensorHalfAngles(7, 135.0, &h, &w);
  EXPECT_NEAR(w, 1.0, 1e-5);
  EXPECT_NEAR(h, 0.6, 1e-5);
  gfBaseFocalLength = gfMaxFocalLength = 0.0f;
}

TEST_F(ViewMove, DegenerateLensesLeaveTheHeadWhereItIs) {
  kvlink_set("sim.lens_type", "5");  // a type the table does not know
  EXPECT_EQ(Offsets(9000, 1000), P(0, 0));
  kvlink_set("sim.lens_type", "7");  // both focal lengths 0: no sensor line
  EXPECT_EQ(Offsets(9000, 1000), P(0, 0));
  gfBaseFocalLength = gfMaxFocalLength = 8.0f;  // equal ends: the wide angle
  double h = 0.0, w = 0.0;
  SensorHalfAngles(7, 8.0, &h, &w);
  EXPECT_NEAR(w, 30.2, 1e-5);
  gfBaseFocalLength = gfMaxFocalLength = 0.0f;
}

TEST_F(ViewMove, PointBeyondStraightDownFoldsBack) {
  PutTilt((85 + 27) * 65535 / 360);    // tilt 85 degrees
  kvlink_set("sim.focal_mm", "12.3635");  // half height angle 10 degrees
  auto [pan, tilt] = Offsets(5000, 10000);  // bottom edge: b is 10 degrees
  EXPECT_EQ(pan, 0);  // pan does not turn by half a turn
  EXPECT_NEAR(tilt, 0, 1);  // asin folds 95 degrees back to 85
}

TEST_F(ViewMove, RequestEndsTrackingFirstAndReadsMissingNumbersAsZero) {
  iTrackStatus = 1;
  kvlink_set("ptz.preset.view_move", "7500,5000");
  int32_t pan = 0, tilt = 0;
  EXPECT_EQ(RunViewMove(&pan, &tilt), 0);
  EXPECT_EQ(iTrackStatus.load(), 0);
  EXPECT_EQ(Count("out Close Track"), 1);
  EXPECT_EQ(Count("sh killall -9 FigureFollow &"), 1);
  EXPECT_EQ(pan, -2252);
  kvlink_set("ptz.preset.view_move", "7500");  // MoveH 0: the picture's top edge
  EXPECT_EQ(RunViewMove(&pan, &tilt), 0);
  EXPECT_EQ(Count("out MoveH:0 MoveW:7500"), 1);
  EXPECT_EQ(Count("out Close Track"), 1);  // tracking has already ended
}

}  // namespace
