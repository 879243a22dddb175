// Bounded text conversions for bus values.
#include "control/bus_text.h"

#include <climits>
#include <cstring>
#include <ctime>

#include "platform/kvlink.h"
#include "platform/os.h"

int32_t TextToInt(const char* text) {
  const char* p = text;
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) p++;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = (*p++ == '-');
  int64_t value = 0;
  for (; *p >= '0' && *p <= '9'; p++) {
    value = value * 10 + (*p - '0');
    if (value > (int64_t)INT32_MAX + 1) value = (int64_t)INT32_MAX + 1;  // saturate
  }
  if (negative) value = -value;
  if (value > INT32_MAX) value = INT32_MAX;
  return (int32_t)value;
}

int32_t TextOnOff(const char* text) { return strcmp(text, "on") == 0 ? 1 : 0; }

void BusRead(const char* key, char* buf) {
  memset(buf, 0, kBusValueSize);
  kvlink_get(key, buf, kBusValueSize);
  buf[kBusValueSize - 1] = '\0';
}

void BusWriteInt(const char* key, int32_t value) {
  char text[16];
  snprintf(text, sizeof text, "%d", value);
  kvlink_set(key, text);
}

int32_t NowSeconds() {
  struct timespec ts = {};
  os_clock_raw(&ts);
  return (int32_t)(uint32_t)(uint64_t)ts.tv_sec;
}

void CopyText(char* dst, size_t size, const char* src) {
  if (size == 0) return;
  size_t n = strnlen(src, size - 1);
  memcpy(dst, src, n);
  dst[n] = '\0';
}
