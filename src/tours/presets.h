// The preset store: 513 slots mirrored from the list ptz.preset.position.
#pragma once

#include <cstdint>

constexpr int32_t kPresetSlots = 513;
constexpr int32_t kPresetLast = 512;

struct PresetRecord {
  int32_t pan;       // steps, -1 empty
  int32_t tilt;
  int32_t zoom;
  int32_t focus;     // fixed focus, -1 none
  int32_t prefocus;  // focus hint for the move, -1 none
  int32_t valid;
  char name[64];
};

extern PresetRecord gPreset[kPresetSlots];

// Finds key in text; -1 if absent, else 0 and the field's number in *out
// unless the field is empty.
int ParseKeyInt(const char* text, const char* key, int32_t* out);
int SetPreset(int32_t id, int32_t pan, int32_t tilt, int32_t zoom, int32_t focusMode,
              const char* name);
int CleanPreset(int32_t id);
int LockPresetFocus(int32_t id);
int AutoPresetFocus(int32_t id);
void ClearPresets();
int LoadPreset();
