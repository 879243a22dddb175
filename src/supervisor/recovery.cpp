// Recovery timers and their one-shot guards.
#include "supervisor/recovery.h"

#include <ctime>

#include "control/bus_text.h"
#include "control/control.h"
#include "platform/kvlink.h"
#include "platform/os.h"
#include "tours/schedule.h"

int32_t DeadlineAfterMinutes(int32_t now, int32_t minutes) {
  return (int32_t)(uint32_t)(uint64_t)((int64_t)now + 60 * (int64_t)minutes);
}

void ArmRecoverRule(int32_t now) {
  int32_t minutes = giRecoverTime;
  giRecoverDeadline = (minutes >= 1 && giPatternRun == 0) ? DeadlineAfterMinutes(now, minutes) : -1;
}

void ArmScheduleRule(int32_t now) {
  int32_t minutes = giScheduleRecoverTime;
  giScheduleDeadline = minutes >= 1 ? DeadlineAfterMinutes(now, minutes) : -1;
}

void RecoverTimeChanged(int32_t now, int32_t* lastRecoverTime) {
  int32_t minutes = giRecoverTime;
  if (minutes == *lastRecoverTime) return;
  *lastRecoverTime = minutes;
  giRecoverDeadline = minutes == 0 ? -1 : DeadlineAfterMinutes(now, minutes);
}

void RearmAfterPattern(int32_t now, int32_t scheduleMode) {
  if (giRecoverTime > 0) ArmRecoverRule(now);
  if (giScheduleEnable == 1 && scheduleMode != -1) ArmScheduleRule(now);
}

// A recover test: publishes ptz.system.recover_mode when the head has been
// idle past the deadline and no schedule entry is active.
static void RecoverTest(int32_t now, Shared& guard) {
  int32_t deadline = giRecoverDeadline;
  if (deadline <= 0 || guard != 0 || giRecoverTime <= 0 || giRunMode != kModeIdle) return;
  int32_t enable = giScheduleEnable;
  bool noEntry = enable == 0 || (enable == 1 && CheckSchedule() == -1);
  if (!noEntry) return;
  if (now <= deadline) return;
  giRecoverDeadline = -1;
  guard = -1;
  char command[kBusValueSize];
  BusRead("ptz.system.recover_mode", command);
  kvlink_set("ptz.run_mode", command);
  os_printf("Run Recover:%s\n", command);
}

// A schedule test: publishes the whole day's schedule value again.
static void ScheduleTest(int32_t now, int32_t scheduleMode, Shared& guard) {
  int32_t deadline = giScheduleDeadline;
  if (deadline <= 0 || guard != 0 || giRunMode != kModeIdle || giScheduleEnable != 1) return;
  if (scheduleMode == -1 || now <= deadline) return;
  time_t wall = os_time();
  struct tm local = {};
  os_localtime(&wall, &local);
  os_printf("Schedule recover run mode:%d Time:%d / %d\n", scheduleMode, now, deadline);
  ApplyScheduleTarget(scheduleMode);
  char command[kBusValueSize];
  char key[kScheduleKeySize];
  ScheduleDayKey(local.tm_wday, key);
  BusRead(key, command);
  giScheduleDeadline = -1;
  guard = -1;
  kvlink_set("ptz.run_mode", command);
}

void RunRecoveryTests(int32_t now, int32_t scheduleMode) {
  RecoverTest(now, giRecoverArmPreset);
  RecoverTest(now, giRecoverArmAbs);
  ScheduleTest(now, scheduleMode, giScheduleArmPreset);
  ScheduleTest(now, scheduleMode, giScheduleArmAbs);
}

void GuardsLive() {
  giRecoverArmPreset = 0;
  giScheduleArmPreset = 0;
  giRecoverArmAbs = 0;
  giScheduleArmAbs = 0;
}

void GuardsBeforePreset() {
  if (giRecoverDeadline <= 0) giRecoverArmPreset = 0;
  if (giScheduleDeadline <= 0) giScheduleArmPreset = 0;
  giRecoverArmAbs = -1;
  giScheduleArmAbs = -1;
}

void GuardsAfterAbs() {
  giRecoverArmPreset = -1;
  giScheduleArmPreset = -1;
  if (giRecoverDeadline <= 0) giRecoverArmAbs = 0;
  if (giScheduleDeadline <= 0) giScheduleArmAbs = 0;
}
