// What the head publishes: the status code, the position in steps and
// degrees, and the two overlay texts.
#pragma once

#include <cstdint>

// Status owners (tens digit) and states (units digit) of ptz.status.
enum StatusOwner : int32_t { kOwnerDirect = 0, kOwnerPatrol = 1, kOwnerPattern = 2,
                             kOwnerScan = 3, kOwnerTrack = 4 };
enum StatusState : int32_t { kStateRest = 0, kStateSpeed = 1, kStateInit = 2,
                             kStateSpdDry = 3, kStatePosition = 4, kStateOisTest = 5 };

// Updates since the position last went out; paces publication and runs on
// while the head rests.
extern int32_t giPosTick;

// Publishes owner*10+state when the pair changed.
void SetPtStatus(int32_t owner, int32_t state);
// Reads the position from the driver and publishes it at its pace.
void UpdatePosition();
// Shows a preset name on the picture; the empty text clears it.
void SetPresetOsd(const char* text);
// Publishes the compass word of the pan position relative to east.
void SetDirectionOsd(int32_t pan, int32_t east);
// Index 0..7 of the compass sector that holds pan, relative to east.
int32_t CompassSector(int32_t pan, int32_t east);
// Whole degrees of a pan and a tilt position, as published.
int32_t PanDegrees(int32_t pan);
int32_t TiltDegrees(int32_t tilt);
