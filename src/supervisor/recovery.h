// Recovery timers: an idle head goes back to its recover duty, or to the
// schedule's duty, after a set time.
#pragma once

#include <cstdint>

// Wraps a deadline computed in 64 bits back to the 32-bit clock second.
int32_t DeadlineAfterMinutes(int32_t now, int32_t minutes);
// The recover rule and the schedule rule of arming.
void ArmRecoverRule(int32_t now);
void ArmScheduleRule(int32_t now);
// Tick step 2: a changed recover time re-arms (or disarms) at once.
void RecoverTimeChanged(int32_t now, int32_t* lastRecoverTime);
// Tick step 8: the deadlines after a pattern has ended.
void RearmAfterPattern(int32_t now, int32_t scheduleMode);
// Tick step 9: the four firing tests, in order.
void RunRecoveryTests(int32_t now, int32_t scheduleMode);
// The guards as the branches set them.
void GuardsLive();
void GuardsBeforePreset();
void GuardsAfterAbs();
