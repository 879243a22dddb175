// The schedule. Until the timetable lands, no entry is ever active.
#include "tours/schedule.h"

int32_t giScheduleEnable = 0;

void LoadSchedule() {}

int32_t CheckSchedule() { return -1; }

void ApplyScheduleTarget(int32_t) {}
