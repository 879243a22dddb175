// The view-move geometry where the worked-values scenario leaves it open:
// lens type 0 without sensor keys, focal length 10 mm, head at 10000/10000.
#include <gtest/gtest.h>

#include "control/control.h"
#include "daemon_fixture.h"
#include "motion/view_move.h"
#include "platform/camstate.h"
#include "platform/kvlink.h"
#include "slewd/startup.h"

namespace {

using P = std::pair<int32_t, int32_t>;

class ViewMove : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    Reset();
    kvlink_set("sim.lens_type", "0");
    kvlink_set("sim.focal_mm", "10");
    gfSensorH = gfSensorW = 0.0f;
    gfEisFov = 0.0;
    PutPan(10000);
    PutTilt(10000);
  }
  void TearDown() override {
    Reset();
    kvlink_set("sim.focal_mm", "0");
    kvlink_set("sim.lens_type", "1");
  }
  static void Reset() {
    kvlink_set("ptz.dzoom.factor", "");
    giImageMirror = giImageFlip = giEisEnable = 0;
  }
  // Offsets of the picture point (pan, tilt).
  static P Offsets(int32_t moveW, int32_t moveH) {
    int32_t pan = 12345, tilt = 12345;
    ComputeViewMove(moveW, moveH, &pan, &tilt);
    return {pan, tilt};
  }
};

TEST_F(ViewMove, StabiliserAndDigitalZoomNarrowTheField) {
  giEisEnable = 1;
  gfEisFov = 0.05;  // below 0.1: the factor is sqrt(0.75), not 1
  EXPECT_EQ(Offsets(7500, 5000), P(-1935, -75));
  giEisEnable = 0;
  gfEisFov = 0.5;  // EIS off: the field of view has no effect
  EXPECT_EQ(Offsets(7500, 5000), P(-2252, -101));
  for (const char* none : {"", "0", "1", "x"}) {
    kvlink_set("ptz.dzoom.factor", none);
    EXPECT_EQ(Offsets(7500, 5000), P(-2252, -101)) << "factor '" << none << "'";
  }
}

// Type 7 gives half the full angles of its table; degenerate lenses leave
// the head where it is.
TEST_F(ViewMove, LensTableAndDegenerateLenses) {
  gfBaseFocalLength = 4.5f;
  gfMaxFocalLength = 135.0f;
  double h = 0.0, w = 0.0;
  SensorHalfAngles(7, 4.5, &h, &w);
  EXPECT_NEAR(w, 30.2, 1e-5);
  EXPECT_NEAR(h, 17.95, 1e-5);
  SensorHalfAngles(7, 135.0, &h, &w);
  EXPECT_NEAR(w, 1.0, 1e-5);
  EXPECT_NEAR(h, 0.6, 1e-5);
  gfBaseFocalLength = gfMaxFocalLength = 8.0f;  // equal ends: the wide angle
  SensorHalfAngles(7, 8.0, &h, &w);
  EXPECT_NEAR(w, 30.2, 1e-5);
  gfBaseFocalLength = gfMaxFocalLength = 0.0f;
  kvlink_set("sim.lens_type", "5");  // a type the table does not know
  EXPECT_EQ(Offsets(9000, 1000), P(0, 0));
  kvlink_set("sim.lens_type", "7");  // both focal lengths 0
  EXPECT_EQ(Offsets(9000, 1000), P(0, 0));
}

TEST_F(ViewMove, PointBeyondStraightDownFoldsBack) {
  PutTilt((85 + 27) * 65535 / 360);       // tilt 85 degrees
  kvlink_set("sim.focal_mm", "12.3635");  // half height angle 10 degrees
  auto [pan, tilt] = Offsets(5000, 10000);  // bottom edge: 95 degrees
  EXPECT_EQ(pan, 0);        // not half a turn
  EXPECT_NEAR(tilt, 0, 1);  // asin folds 95 back to 85
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
  kvlink_set("ptz.preset.view_move", "7500");  // MoveH 0: the top edge
  EXPECT_EQ(RunViewMove(&pan, &tilt), 0);
  EXPECT_EQ(Count("out MoveH:0 MoveW:7500"), 1);
  EXPECT_EQ(Count("out Close Track"), 1);  // tracking has already ended
}

}  // namespace
