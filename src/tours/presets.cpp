// The preset store: the table in memory and its mirror on the bus.
#include "tours/presets.h"

#include <cstdio>
#include <cstring>

#include "control/bus_text.h"
#include "platform/kvlink.h"
#include "platform/os.h"

PresetRecord gPreset[kPresetSlots];

static const char* const kPresetList = "ptz.preset.position";
static const char* const kPresetAppend = "ptz.preset.position.999";

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

// Copies a name into a slot, cut to 63 characters; null zeroes it.
static void StoreName(PresetRecord* slot, const char* name) {
  memset(slot->name, 0, sizeof slot->name);
  if (name != nullptr) CopyText(slot->name, sizeof slot->name, name);
}

int GetPresetStr(const char* text) {
  os_printf("Str:%s\n", text);
  int32_t id = -1;
  if (ParseKeyInt(text, "id:", &id) != 0) return -1;
  if (id > kPresetLoadLast || id < 0) return -1;  // a negative number names no slot
  PresetRecord* slot = &gPreset[id];
  slot->valid = 1;
  ParseKeyInt(text, "pan:", &slot->pan);
  ParseKeyInt(text, "tilt:", &slot->tilt);
  ParseKeyInt(text, "zoom:", &slot->zoom);
  slot->focus = -1;
  ParseKeyInt(text, "focus:", &slot->focus);
  slot->prefocus = -1;
  ParseKeyInt(text, "pref:", &slot->prefocus);
  const char* name = strstr(text, "name:");
  StoreName(slot, name != nullptr ? name + 5 : nullptr);
  os_printf("GetPresetStr->id:%d,pan:%d,tilt:%d,zoom:%d,focus:%d,prefocus:%d,name:%s\n", id,
            slot->pan, slot->tilt, slot->zoom, slot->focus, slot->prefocus, slot->name);
  return 0;
}

void FormatPresetRecord(int32_t id, char* out, int size) {
  const PresetRecord& p = gPreset[id];
  snprintf(out, size, "id:%d,pan:%d,tilt:%d,zoom:%d,focus:%d,pref:%d,name:%s", id, p.pan, p.tilt,
           p.zoom, p.focus, p.prefocus, p.name);
}

void ClearPresets() {
  for (PresetRecord& slot : gPreset) slot = PresetRecord{0, -1, -1, -1, -1, -1, {}};
}

int LoadPreset() {
  int index = 0;
  for (;; index++) {
    char key[kBusValueSize] = {};
    if (kvlink_get_name(kPresetList, index, key, sizeof key) == -1) break;
    key[sizeof key - 1] = '\0';
    char value[kBusValueSize];
    BusRead(key, value);
    GetPresetStr(value);
  }
  return index;
}

void SyncPresetforMem() {
  kvlink_restore_default(kPresetList);
  for (int32_t id = 0; id <= kPresetLast; id++) {
    if (gPreset[id].valid != 1) continue;
    char record[kBusValueSize] = {};
    FormatPresetRecord(id, record, sizeof record);
    kvlink_set(kPresetAppend, record);
    os_printf("SyncPresetforMem Preset->%s\n", record);
  }
}

int SetPreset(int32_t id, int32_t pan, int32_t tilt, int32_t zoom, int32_t focusMode,
              const char* name) {
  os_printf("Set Preset:%d %d %d %d %s\n", id, pan, tilt, zoom, name != nullptr ? name : "");
  char focusText[kBusValueSize];
  BusRead("ptz.lens.get_pos.focus", focusText);
  int32_t focus = TextToInt(focusText);
  PresetRecord* slot = &gPreset[id];
  slot->focus = focusMode == 1 ? focus : -1;
  slot->prefocus = focus;
  slot->pan = pan;
  slot->tilt = tilt;
  slot->zoom = zoom;
  slot->valid = 1;
  StoreName(slot, name);
  SyncPresetforMem();
  return 0;
}

int CleanPreset(int32_t id) {
  os_printf("Clean Preset:%d\n", id);
  PresetRecord* slot = &gPreset[id];
  slot->pan = slot->tilt = slot->zoom = slot->focus = slot->prefocus = -1;
  slot->valid = 0;
  SyncPresetforMem();
  return 0;
}

// Applies a focus rule to one slot or, for -1, to slots 0..511, then
// rewrites the list. Numbers that name no slot are refused untouched.
static int ForPresetSlots(int32_t id, void (*rule)(PresetRecord*)) {
  if (id == -1) {
    for (int32_t slot = 0; slot <= kPresetLoadLast; slot++) rule(&gPreset[slot]);
  } else if (id >= 0 && id <= kPresetLast) {
    rule(&gPreset[id]);
  } else {
    return 0;
  }
  SyncPresetforMem();
  return 0;
}

// The hint becomes the fixed focus.
static void LockRule(PresetRecord* slot) {
  if (slot->pan != -1 && slot->focus == -1) slot->focus = slot->prefocus;
}

// The fixed focus is dropped; the lens focuses by itself.
static void AutoRule(PresetRecord* slot) {
  if (slot->pan != -1 && slot->focus != -1) slot->focus = -1;
}

int LockPresetFocus(int32_t id) { return ForPresetSlots(id, LockRule); }

int AutoPresetFocus(int32_t id) { return ForPresetSlots(id, AutoRule); }
