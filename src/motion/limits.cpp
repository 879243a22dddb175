// Soft limits. ApplyPanLimit runs on both threads under the one mutex of
// the process; the owner test keeps the per-tick call cheap.
#include "motion/limits.h"

#include <pthread.h>

#include <cstdio>
#include <cstring>

#include "control/bus_text.h"
#include "control/control.h"
#include "platform/gimbal.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "slewd/startup.h"

std::atomic<int32_t> giTiltlimit{0};
int32_t giPanLimitOwner = -1;

static constexpr int kScanCount = 4;

int32_t TiltAngleToSteps(int32_t angle) {
  return (int32_t)(uint32_t)(uint64_t)(((int64_t)angle + 27) * 65535 / 360);
}

void ApplyTiltLimit() {
  char text[kBusValueSize] = {};
  if (kvlink_get("ptz.system.up_limit", text, sizeof text) != 0) return;
  text[sizeof text - 1] = '\0';
  int32_t up = TiltAngleToSteps(TextToInt(text));
  BusRead("ptz.system.down_limit", text);
  int32_t down = TiltAngleToSteps(TextToInt(text));
  giTiltlimit = down;
  os_printf("Limit Up:%d Down:%d\n", up, down);
  TiltLimit(up, down);
  if (GetTiltHallSetting() == 1) TiltLimitEn(1);
}

// Reads one limit set ("on" key, right key, left key) and gives it to the
// driver; equal limits, or a set that is not on, turn the limit off.
static void LoadPanLimitSet(const char* onKey, const char* rightKey, const char* leftKey) {
  char text[kBusValueSize];
  BusRead(onKey, text);
  if (strcmp(text, "on") != 0) {
    PanLimitEn(0);
    return;
  }
  BusRead(rightKey, text);
  int32_t right = TextToInt(text);
  BusRead(leftKey, text);
  int32_t left = TextToInt(text);
  if (right == left) {
    PanLimitEn(0);
    return;
  }
  PanLimitSet(right, left);
  os_usleep(100000);
  PanLimitEn(1);
}

static void LoadScanLimitSet(int32_t scan) {
  char onKey[48], rightKey[48], leftKey[48];
  snprintf(onKey, sizeof onKey, "ptz.scan.scan%d.limit", scan);
  snprintf(rightKey, sizeof rightKey, "ptz.scan.scan%d.right_limit", scan);
  snprintf(leftKey, sizeof leftKey, "ptz.scan.scan%d.left_limit", scan);
  LoadPanLimitSet(onKey, rightKey, leftKey);
}

void ApplyPanLimit(int32_t owner) {
  os_mutex_lock(&gPanLimitMutex);
  if (owner != giPanLimitOwner) {
    giPanLimitOwner = owner;
    if (owner == 0) {
      LoadPanLimitSet("ptz.manual.limit", "ptz.manual.right_limit", "ptz.manual.left_limit");
    } else if (owner == -1) {
      PanLimitEn(0);
    } else if (owner <= kScanCount) {
      LoadScanLimitSet(owner);
    }
  }
  os_mutex_unlock(&gPanLimitMutex);
}

void SetLimitHere(const char* name) {
  static const char* const kNames[][2] = {
      {"m_right", "ptz.manual.right_limit"},     {"m_left", "ptz.manual.left_limit"},
      {"s1_right", "ptz.scan.scan1.right_limit"}, {"s1_left", "ptz.scan.scan1.left_limit"},
      {"s2_right", "ptz.scan.scan2.right_limit"}, {"s2_left", "ptz.scan.scan2.left_limit"},
      {"s3_right", "ptz.scan.scan3.right_limit"}, {"s3_left", "ptz.scan.scan3.left_limit"},
      {"s4_right", "ptz.scan.scan4.right_limit"}, {"s4_left", "ptz.scan.scan4.left_limit"},
  };
  int pan = 0;
  GetPanPos(&pan);
  for (const auto& row : kNames) {
    if (strcmp(name, row[0]) == 0) {
      BusWriteInt(row[1], pan);
      return;
    }
  }
}
