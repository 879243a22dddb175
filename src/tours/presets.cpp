// The preset store. Storing and loading come with the positioning work;
// until then slots stay empty and the commands store nothing.
#include "tours/presets.h"

#include <cstring>

#include "control/bus_text.h"

PresetRecord gPreset[kPresetSlots];

int ParseKeyInt(const char* text, const char* key, int32_t* out) {
  const char* found = strstr(text, key);
  if (found == nullptr) return -1;
  char work[kBusValueSize] = {};
  size_t n = 0;
  for (const char* p = found + strlen(key); *p != '\0' && *p != ','; p++) {
    if (*p != ' ' && n < sizeof work - 1) work[n++] = *p;
  }
  if (n > 0) *out = TextToInt(work);
  return 0;
}

int SetPreset(int32_t, int32_t, int32_t, int32_t, int32_t, const char*) { return 0; }

int CleanPreset(int32_t) { return 0; }

int LockPresetFocus(int32_t) { return 0; }

int AutoPresetFocus(int32_t) { return 0; }

void ClearPresets() {
  for (PresetRecord& slot : gPreset) {
    slot = PresetRecord{-1, -1, -1, -1, -1, 0, ""};
  }
}

int LoadPreset() { return 0; }
