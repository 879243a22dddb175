// Positioning. The lens helpers are here; the moves themselves land with
// the positioning work and until then return at once, moving nothing.
#include "motion/positioning.h"

#include <cstdio>

#include "platform/camstate.h"
#include "platform/kvlink.h"

int32_t giFreezeOn = 0;
int32_t giEisRtEnable = 1;
int32_t giEisRtStart = 0;

int32_t GoPreset(int32_t, int32_t, int32_t, int32_t, int32_t, int32_t) { return 0; }

int32_t GoTrackPosition(int32_t, int32_t, int32_t, int32_t, int32_t) { return 0; }

void SyncLensType() {
  if (GetLensType() == -1) SetLensType(get_lenstype());
}

// Writes a lens position as decimal text to key.
static void SetLensKey(const char* key, int32_t position) {
  char text[128];
  snprintf(text, sizeof text, "%d", position);
  kvlink_set(key, text);
}

void SetLensZoom(int32_t position) { SetLensKey("ptz.lens.set_pos.zoom", position); }

void SetLensFocus(int32_t position) { SetLensKey("ptz.lens.set_pos.focus", position); }
