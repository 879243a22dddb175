// The preset store: 513 slots mirrored from the list ptz.preset.position.
#pragma once

#include <cstdint>

constexpr int32_t kPresetSlots = 513;
constexpr int32_t kPresetLast = 512;      // highest slot a command may store
constexpr int32_t kPresetLoadLast = 511;  // highest slot loaded at start
constexpr int32_t kPresetNameSize = 64;   // name of at most 63 characters

struct PresetRecord {
  int32_t valid;     // 1 if the slot holds a preset
  int32_t pan;       // steps, -1 unset
  int32_t tilt;      // steps, -1 unset
  int32_t zoom;      // lens position, -1 unset
  int32_t focus;     // fixed focus, -1: the lens focuses by itself
  int32_t prefocus;  // focus when stored: the hint for the move, -1 unset
  char name[kPresetNameSize];
};

extern PresetRecord gPreset[kPresetSlots];

// Finds key in text; -1 if absent, else 0 and the field's number (blanks
// dropped, up to the next comma) in *out unless the field is empty.
int ParseKeyInt(const char* text, const char* key, int32_t* out);
// Loads one record text into its slot; -1 if nothing was loaded.
int GetPresetStr(const char* text);
// Formats the record text of a slot into out (size bytes, at most 127
// characters are kept).
void FormatPresetRecord(int32_t id, char* out, int size);
void ClearPresets();
// Loads every entry of the list; returns how many entries were read.
int LoadPreset();
// Rewrites the list on the bus from the table.
void SyncPresetforMem();
int SetPreset(int32_t id, int32_t pan, int32_t tilt, int32_t zoom, int32_t focusMode,
              const char* name);
int CleanPreset(int32_t id);
// -1 means slots 0 to 511; a number that names no slot is refused.
int LockPresetFocus(int32_t id);
int AutoPresetFocus(int32_t id);
