// Bounded text conversions for bus values.
#include "control/bus_text.h"

#include <climits>
#include <cstring>
#include <ctime>

#include "platform/kvlink.h"
#include "platform/os.h"

const char* ScanInt(const char* text, int32_t* out) {
  const char* p = text;
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) p++;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = (*p++ == '-');
  if (*p < '0' || *p > '9') return nullptr;
  int64_t value = 0;
  for (; *p >= '0' && *p <= '9'; p++) {
    value = value * 10 + (*p - '0');
    if (value > (int64_t)INT32_MAX + 1) value = (int64_t)INT32_MAX + 1;  // saturate
  }
  if (negative) value = -value;
  if (value > INT32_MAX) value = INT32_MAX;
  *out = (int32_t)value;
  return p;
}

int32_t TextToInt(const char* text) {
  int32_t value = 0;
  ScanInt(text, &value);
  return value;
}

int ScanIntList(const char* text, char separator, int32_t* out, int count) {
  const char* p = text;
  for (int i = 0; i < count; i++) {
    p = ScanInt(p, &out[i]);
    if (p == nullptr) return i;
    if (i + 1 < count && *p++ != separator) return i + 1;
  }
  return count;
}

int32_t TruncToInt32(double value) {
  if (!(value == value)) return 0;
  if (value >= 2147483647.0) return INT32_MAX;
  if (value <= -2147483648.0) return INT32_MIN;
  return (int32_t)value;
}

void CountTick(int32_t* counter) {
  if (*counter < INT32_MAX) (*counter)++;
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

int64_t NowMilliseconds() {
  struct timespec ts = {};
  os_clock_raw(&ts);
  return (int64_t)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

void CopyText(char* dst, size_t size, const char* src) {
  if (size == 0) return;
  size_t n = strnlen(src, size - 1);
  memcpy(dst, src, n);
  dst[n] = '\0';
}
