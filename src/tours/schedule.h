// The weekly schedule of duties.
#pragma once

#include <cstdint>

extern int32_t giScheduleEnable;  // ptz.schedule.enable

// Reads the schedule keys into the table.
void LoadSchedule();
// The encoded action of the entry active now, or -1.
int32_t CheckSchedule();
// Sets the target of an encoded action.
void ApplyScheduleTarget(int32_t action);
