// View move: turns a point of the picture into pan and tilt offsets. Each
// step keeps the precision the camera's clients were tuned against: the
// sensor line in single precision, the geometry in double, the three
// picture angles rounded to single.
#include "motion/view_move.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "control/bus_text.h"
#include "control/control.h"
#include "platform/camstate.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "slewd/startup.h"
#include "tours/pattern.h"
#include "tours/tracking.h"

static constexpr double kPi = 3.141592653589793;
static constexpr double kDegreesFromTable = 0.017453292222222222;  // 3.1415926 / 180
static constexpr double kCentre = 5000.0;

// Full field-of-view angles of the known lenses, degrees, by lens type.
struct LensFov {
  int32_t type;
  float wideW, teleW, wideH, teleH;
};
static const LensFov kLensFov[] = {
    {7, 60.4f, 2.0f, 35.9f, 1.2f},
    {8, 65.4f, 2.0f, 39.0f, 1.1f},
    {9, 57.9f, 3.0f, 44.4f, 2.3f},
};

static double ToDegrees(double radians) { return radians * 180.0 / kPi; }
static double ToRadians(double degrees) { return degrees * kPi / 180.0; }

// asin that folds an argument carried just past +-1 by rounding back to
// the edge, where it belongs, instead of giving a result that is not a number.
static double AsinEdge(double x) {
  if (x > 1.0) x = 1.0;
  if (x < -1.0) x = -1.0;
  return asin(x);
}

void SensorWidthLine(float* out, float angleBase, float angleMax, float focalBase, float focalMax) {
  float w1 = (float)((double)(focalBase + focalBase) * tan(angleBase * kDegreesFromTable / 2));
  float w2 = (float)((double)(focalMax + focalMax) * tan(angleMax * kDegreesFromTable / 2));
  float span = focalBase - focalMax;
  if (span == 0.0f) {
    // Equal focal lengths leave the line undefined: a constant width that
    // shows the wide angle, 0 when both are 0 (the head then stays).
    out[0] = 0.0f;
    out[1] = w1;
    return;
  }
  out[0] = (w1 - w2) / span;
  out[1] = w1 - ((w1 - w2) * focalBase) / span;
}

// Row of the lens table for a type; null for a type it does not know.
static const LensFov* FindLensFov(int32_t type) {
  for (const LensFov& row : kLensFov) {
    if (row.type == type) return &row;
  }
  return nullptr;
}

// Sensor height and width at focal length f.
static void SensorSize(int32_t lensType, double f, double* h, double* w) {
  *h = 4.36;
  *w = 7.75;
  if (lensType == 0) {
    if (gfSensorH > 0) *h = gfSensorH;
    if (gfSensorW > 0) *w = gfSensorW;
    return;
  }
  const LensFov* row = FindLensFov(lensType);
  static const LensFov kUnknown = {0, 0.0f, 0.0f, 0.0f, 0.0f};
  if (row == nullptr) row = &kUnknown;
  float line[2];
  SensorWidthLine(line, row->wideW, row->teleW, gfBaseFocalLength, gfMaxFocalLength);
  *w = line[0] * f + line[1];
  SensorWidthLine(line, row->wideH, row->teleH, gfBaseFocalLength, gfMaxFocalLength);
  *h = line[0] * f + line[1];
}

void SensorHalfAngles(int32_t lensType, double f, double* angleH, double* angleW) {
  double h = 0.0, w = 0.0;
  SensorSize(lensType, f, &h, &w);
  *angleH = ToDegrees(atan(h / (f + f)));
  *angleW = ToDegrees(atan(w / (f + f)));
}

// Focal length with the effect of digital zoom: a factor of 13 counts as 8.
static double EffectiveFocalLength() {
  double f = 0.0;
  GetFocalLength(&f);
  if (!(f > 0.1)) f = gfBaseFocalLength > 0.1 ? gfBaseFocalLength : 6.5;
  char text[kBusValueSize];
  BusRead("ptz.dzoom.factor", text);
  double dz = atof(text);
  dz = dz > 1.0 ? ((dz - 1.0) * 7.0) / 12.0 + 1.0 : 1.0;
  return f * dz;
}

// Direction to the picture point (x, y), from the half angles and the
// head's direction; fills the new pan and tilt in degrees.
static void TargetDirection(double x, double y, double angleH, double angleW, double panDeg,
                            double tiltDeg, double* panNew, double* tiltNew) {
  float a = (float)ToDegrees(atan((tan(ToRadians(angleW)) * (x - kCentre)) / kCentre));
  float b = (float)ToDegrees(atan((tan(ToRadians(angleH)) * -(y - kCentre)) / kCentre));
  float c = (float)ToDegrees(atan(cos(ToRadians(b)) * tan(ToRadians(a))));
  *tiltNew = ToDegrees(AsinEdge(cos(ToRadians(c)) * sin(ToRadians(b + tiltDeg))));
  *panNew = panDeg + ToDegrees(AsinEdge(sin(ToRadians(c)) / cos(ToRadians(*tiltNew))));
}

void ComputeViewMove(int32_t moveW, int32_t moveH, int32_t* outPan, int32_t* outTilt) {
  int64_t x = moveW, y = moveH;
  if (giImageMirror == 0) x = 10000 - x;
  if (giImageFlip == 0) y = 10000 - y;
  int32_t lensType = get_lenstype();
  int pan = 0, tilt = 0;
  GetPan(&pan);
  GetTilt(&tilt);
  double f = EffectiveFocalLength();
  double angleH = 0.0, angleW = 0.0;
  SensorHalfAngles(lensType, f, &angleH, &angleW);
  os_printf("SensorAngleH:%lf SensorAngleW:%lf\n", angleH, angleW);
  if (giEisEnable == 1) {
    double fov = gfEisFov;
    double e = fov >= 0.1 ? fov : 0.75;
    angleH *= sqrt(e);
    angleW *= sqrt(e);
    os_printf("eis SensorAngleH:%lf SensorAngleW:%lf\n", angleH, angleW);
  }
  double panDeg = (pan * 360.0) / 65535.0;
  double tiltDeg = (tilt * 360.0) / 65535.0 - 27.0;
  double panNew = 0.0, tiltNew = 0.0;
  TargetDirection((double)x, (double)y, angleH, angleW, panDeg, tiltDeg, &panNew, &tiltNew);
  int32_t tiltSteps = TruncToInt32(((tiltNew + 27.0) * 65535.0) / 360.0);
  int32_t panSteps = TruncToInt32((panNew * 65535.0) / 360.0);
  int32_t tiltOffset = Wrap32((int64_t)tiltSteps - tilt);
  int32_t panOffset = Wrap32((int64_t)panSteps - pan);
  *outPan = panOffset;
  *outTilt = tiltOffset;
  os_printf("Step Tile:%d/%d %d Step Pan:%d/%d %d\n", tiltSteps, tilt, tiltOffset, panSteps, pan,
            panOffset);
}

// A view move ends tracking first.
static void CloseTrack() {
  if (iTrackStatus != 1) return;
  os_puts("Close Track");
  iTrackStatus = 0;
  StopTracker();
}

int32_t RunViewMove(int32_t* outPan, int32_t* outTilt) {
  char value[kBusValueSize];
  BusRead("ptz.preset.view_move", value);
  CloseTrack();
  if (giPatternRec == 1) {
    // The replay works the offsets out again from the head's position then.
    char line[kBusValueSize + 8];
    snprintf(line, sizeof line, "view:%s", value);
    PatternRecordEvent(line);
  }
  int32_t move[2] = {0, 0};
  ScanIntList(value, ',', move, 2);
  os_printf("MoveH:%d MoveW:%d\n", move[1], move[0]);
  ComputeViewMove(move[0], move[1], outPan, outTilt);
  return 0;
}
